#include "ui/settingspanel.h"

#include "ui/panelview.h"

#include <QCheckBox>
#include <QCoreApplication>
#include <QDialog>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>
#include <QVector>

#include <utility>

namespace
{

constexpr int margin = 24;         // pixels
constexpr int minimumWidth = 460;  // pixels
constexpr int panelSpacing = 10;   // pixels
constexpr int buttonMinWidth = 96; // pixels

QFrame* makeSeparator()
{
    auto* line = new QFrame;
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    return line;
}

} // namespace

SettingsPanel SettingsPanel::build(QDialog* dialog, QCheckBox* startupBox, const QString& savedUsername,
                                   const QString& rootPath)
{
    SettingsPanel panel;
    auto* layout = new QVBoxLayout;
    layout->setContentsMargins(margin, margin, margin, margin);
    layout->setSpacing(panelSpacing);

    panel.heading =
        new QLabel(QStringLiteral("<b>") + QCoreApplication::translate("DialogCld", "Orvel Storage account") +
                   QStringLiteral("</b>"));
    layout->addWidget(panel.heading);

    auto* credentials = new QGridLayout;
    panel.usernameCaption = new QLabel(QCoreApplication::translate("DialogCld", "Email:"));
    panel.username = new QLineEdit(savedUsername);
    panel.username->setObjectName(QStringLiteral("username"));
    panel.usernameCaption->setBuddy(panel.username);
    credentials->addWidget(panel.usernameCaption, 0, 0);
    credentials->addWidget(panel.username, 0, 1);
    panel.passwordCaption = new QLabel(QCoreApplication::translate("DialogCld", "Password:"));
    panel.password = new QLineEdit;
    panel.password->setObjectName(QStringLiteral("password"));
    panel.password->setEchoMode(QLineEdit::Password);
    panel.passwordCaption->setBuddy(panel.password);
    credentials->addWidget(panel.passwordCaption, 1, 0);
    credentials->addWidget(panel.password, 1, 1);

    // The lower half stands in rows of its own: what is added first is not always what is seen first.
    auto* settings = new QGridLayout;
    settings->setVerticalSpacing(panelSpacing);
    enum Row
    {
        FirstSeparatorRow,
        FolderCaptionRow,
        FolderRow,
        SecondSeparatorRow,
        StartupRow,
        AutoUpdateRow,
        EmptyRow
    };
    settings->setRowStretch(EmptyRow, 1); // hidden rows leave their height to it

    panel.startup = startupBox;
    settings->addWidget(panel.startup, StartupRow, 0);

    auto* folderRow = new QHBoxLayout;
    panel.folderPath = new QLineEdit;
    panel.folderPath->setReadOnly(true);
    panel.pickFolder = new QPushButton(QCoreApplication::translate("DialogCld", "Pick folder"));
    panel.pickFolder->setAutoDefault(false);
    folderRow->addWidget(panel.folderPath);
    folderRow->addWidget(panel.pickFolder);
    settings->addLayout(folderRow, FolderRow, 0);

    panel.folderCaption = new QLabel;
    panel.folderCaption->setBuddy(panel.folderPath);
    settings->addWidget(panel.folderCaption, FolderCaptionRow, 0);

    panel.autoUpdate = new QCheckBox(QCoreApplication::translate("DialogCld", "Check for updates automatically"));
    panel.autoUpdate->hide();
    settings->addWidget(panel.autoUpdate, AutoUpdateRow, 0);

    panel.firstSeparator = makeSeparator();
    panel.firstSeparator->hide();
    settings->addWidget(panel.firstSeparator, FirstSeparatorRow, 0);
    panel.secondSeparator = makeSeparator();
    settings->addWidget(panel.secondSeparator, SecondSeparatorRow, 0);

    layout->addLayout(credentials);
    layout->addLayout(settings);
    layout->addStretch(1);

    auto* bottom = new QHBoxLayout;
    panel.status = new QLabel(QCoreApplication::translate("DialogCld", "Disconnected from the cloud."));
    panel.status->setWordWrap(true);
    panel.login = new QPushButton(QCoreApplication::translate("DialogCld", "Login"));
    panel.login->setDefault(true);
    panel.login->setMinimumWidth(buttonMinWidth);
    bottom->addWidget(panel.status, 1);
    bottom->addWidget(panel.login);
    layout->addLayout(bottom);

    if (rootPath.isEmpty()) {
        panel.folderCaption->setText(
            QCoreApplication::translate("DialogCld", "Orvel Storage folder will be created at:"));
    } else {
        panel.showFolder(rootPath);
    }
    dialog->setLayout(layout);
    dialog->setMinimumWidth(minimumWidth);
    QWidget* const tabOrder[] = {panel.username, panel.password,   panel.folderPath, panel.pickFolder,
                                 panel.startup,  panel.autoUpdate, panel.login};
    for (size_t i = 1; i < std::size(tabOrder); ++i)
        QWidget::setTabOrder(tabOrder[i - 1], tabOrder[i]);
    return panel;
}

void SettingsPanel::show(const PanelView& view) const
{
    heading->setText(view.heading);
    // Left alone, the focus would go on from a form that cannot be filled in to the path, and select it.
    const bool canSignInAgain = view.credentialsEnabled && !username->isEnabled();
    if (!view.credentialsEnabled && (username->hasFocus() || password->hasFocus()))
        (view.loginEnabled ? static_cast<QWidget*>(login) : startup)->setFocus();

    QVector<std::pair<QWidget*, bool>> visibility{
        {usernameCaption, view.credentialsVisible},
        {username, view.credentialsVisible},
        {passwordCaption, view.credentialsVisible},
        {password, view.credentialsVisible},
        {autoUpdate, view.updateVisible},
        {firstSeparator, view.updateVisible},
        {login, true},
    };
    if (view.folderVisible) {
        for (QWidget* widget : {static_cast<QWidget*>(folderPath), static_cast<QWidget*>(folderCaption),
                                static_cast<QWidget*>(secondSeparator)})
            visibility.append({widget, *view.folderVisible});
    }
    if (view.pickFolderVisible)
        visibility.append({pickFolder, *view.pickFolderVisible});
    // Hide first: the window would grow for what is never seen together.
    for (const bool shown : {false, true}) {
        for (const auto& entry : qAsConst(visibility)) {
            if (entry.second == shown)
                entry.first->setVisible(shown);
        }
    }

    username->setEnabled(view.credentialsEnabled);
    password->setEnabled(view.credentialsEnabled);
    if (canSignInAgain)
        username->setFocus();
    login->setEnabled(view.loginEnabled);
    login->setText(view.loginText);
    if (view.status)
        status->setText(*view.status);
}

void SettingsPanel::askForPasswordAgain() const
{
    password->setFocus();
    password->selectAll();
}

void SettingsPanel::showFolder(const QString& path) const
{
    folderCaption->setText(QCoreApplication::translate("DialogCld", "Orvel Storage is at:"));
    folderPath->setText(path);
}
