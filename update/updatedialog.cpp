#include "update/updatedialog.h"

#include "update/followredirects.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QPushButton>
#include <QSettings>
#include <QSpacerItem>
#include <QTextBrowser>
#include <QUrl>
#include <QVBoxLayout>

namespace qtsparkle
{

namespace
{

constexpr int initialWidth = 643;     // pixels
constexpr int initialHeight = 475;    // pixels
constexpr int iconSize = 64;          // pixels
constexpr int silenceTimeout = 30000; // ms without a byte

template<typename Widget>
Widget* named(Widget* widget, const char* name)
{
    widget->setObjectName(QLatin1String(name));
    return widget;
}

/// Shows what it is given and fetches nothing: a picture in the notes must not tell the maker who reads them.
class NotesBrowser final : public QTextBrowser
{
public:
    QVariant loadResource(int type, const QUrl& name) override
    {
        Q_UNUSED(type)
        Q_UNUSED(name)
        return {};
    }
};

} // namespace

struct UpdateDialog::Widgets
{
    QLabel* icon = nullptr;
    QLabel* title = nullptr;
    QLabel* summary = nullptr;
    QLabel* releaseNotesLabel = nullptr;
    QTextBrowser* releaseNotes = nullptr;
    QPushButton* skip = nullptr;
    QPushButton* later = nullptr;
    QPushButton* install = nullptr;

    explicit Widgets(QDialog* dialog);
    void buildIconColumn(QHBoxLayout* columns);
    void buildTextColumn(QHBoxLayout* columns);
    void buildButtons(QVBoxLayout* column);
    void setTexts(QDialog* dialog) const;
};

UpdateDialog::Widgets::Widgets(QDialog* dialog)
{
    dialog->setObjectName(QStringLiteral("UpdateDialog"));
    dialog->resize(initialWidth, initialHeight);
    auto* columns = named(new QHBoxLayout(dialog), "horizontalLayout_2");
    buildIconColumn(columns);
    auto* line = named(new QFrame, "line");
    line->setFrameShape(QFrame::VLine);
    line->setFrameShadow(QFrame::Sunken);
    columns->addWidget(line);
    buildTextColumn(columns);
    setTexts(dialog);
}

void UpdateDialog::Widgets::buildIconColumn(QHBoxLayout* columns)
{
    auto* column = named(new QVBoxLayout, "verticalLayout_2");
    columns->addLayout(column);
    icon = named(new QLabel, "icon");
    column->addWidget(icon);
    column->addItem(new QSpacerItem(20, 40, QSizePolicy::Minimum, QSizePolicy::Expanding));
}

void UpdateDialog::Widgets::buildTextColumn(QHBoxLayout* columns)
{
    auto* column = named(new QVBoxLayout, "verticalLayout");
    columns->addLayout(column);
    title = named(new QLabel, "title");
    title->setWordWrap(true);
    column->addWidget(title);
    summary = named(new QLabel, "summary");
    column->addWidget(summary);
    releaseNotesLabel = named(new QLabel, "release_notes_label");
    column->addWidget(releaseNotesLabel);
    releaseNotes = named(new NotesBrowser, "release_notes");
    releaseNotes->setOpenExternalLinks(true); // in the browser, not in the box
    releaseNotesLabel->setBuddy(releaseNotes);
    column->addWidget(releaseNotes);
    buildButtons(column);
}

void UpdateDialog::Widgets::buildButtons(QVBoxLayout* column)
{
    auto* row = named(new QHBoxLayout, "horizontalLayout");
    column->addLayout(row);
    skip = named(new QPushButton, "skip");
    row->addWidget(skip);
    row->addItem(new QSpacerItem(40, 20, QSizePolicy::Expanding, QSizePolicy::Minimum));
    later = named(new QPushButton, "later");
    row->addWidget(later);
    install = named(new QPushButton, "install");
    install->setDefault(true);
    row->addWidget(install);
}

void UpdateDialog::Widgets::setTexts(QDialog* dialog) const
{
    dialog->setWindowTitle(QCoreApplication::translate("UpdateDialog", "Software Update"));
    releaseNotesLabel->setText(QStringLiteral("<b>") +
                               QCoreApplication::translate("UpdateDialog", "Zgodovina sprememb:") +
                               QStringLiteral("</b>"));
    skip->setText(QCoreApplication::translate("UpdateDialog", "Preskoči to verzijo"));
    later->setText(QCoreApplication::translate("UpdateDialog", "Opomni me kasneje"));
    install->setText(QCoreApplication::translate("UpdateDialog", "Namesti posodobitev"));
}

UpdateDialog::UpdateDialog(QWidget* parent)
    : QDialog(parent)
    , m_widgets(std::make_unique<Widgets>(this))
{
    m_widgets->icon->hide();
    connect(m_widgets->install, SIGNAL(clicked()), this, SLOT(Install()));
    connect(m_widgets->skip, SIGNAL(clicked()), this, SLOT(Skip()));
    connect(m_widgets->later, SIGNAL(clicked()), this, SLOT(close()));
}

UpdateDialog::~UpdateDialog() = default;

void UpdateDialog::SetNetworkAccessManager(QNetworkAccessManager* network)
{
    m_network = network;
}

void UpdateDialog::SetIcon(const QIcon& icon)
{
    m_widgets->icon->setVisible(!icon.isNull());
    if (!icon.isNull())
        m_widgets->icon->setPixmap(icon.pixmap(iconSize));
}

void UpdateDialog::SetVersion(const QString& version)
{
    m_version = version;
}

void UpdateDialog::ShowUpdate(AppCastPtr appcast)
{
    m_appcast = appcast;
    const QString name = QCoreApplication::applicationName();
    m_widgets->title->setText(QStringLiteral("<h3>") + tr("Nova različica %1e je na voljo").arg(name) +
                              QStringLiteral("</h3>"));
    m_widgets->summary->setText(tr("%1 %2 je na voljo - ti imaš %3. Želiš prenesti najnovejšo različico?")
                                    .arg(name, appcast->version, m_version));
    show();

    if (m_network == nullptr) {
        m_network = new QNetworkAccessManager(this);
        m_network->setTransferTimeout(silenceTimeout);
    }
    const QUrl notes(appcast->release_notes_url);
    if (!FollowRedirects::IsWeb(notes))
        return;
    auto* redirects = new FollowRedirects(m_network->get(QNetworkRequest(notes)));
    connect(redirects, SIGNAL(Finished()), this, SLOT(ReleaseNotesReady()));
}

void UpdateDialog::ReleaseNotesReady()
{
    auto* redirects = qobject_cast<FollowRedirects*>(sender());
    if (redirects == nullptr)
        return;
    redirects->deleteLater();
    const QString type = redirects->reply()->header(QNetworkRequest::ContentTypeHeader).toString();
    // Latin-1, up to the first zero byte.
    const QString notes = QString::fromLatin1(redirects->takeBody().constData());
    if (type.contains(QLatin1String("text/html")))
        m_widgets->releaseNotes->setHtml(notes);
    else
        m_widgets->releaseNotes->setPlainText(notes);
}

void UpdateDialog::Install()
{
    if (m_appcast)
        QDesktopServices::openUrl(QUrl(m_appcast->download_url));
    close();
}

void UpdateDialog::Skip()
{
    if (m_appcast)
        QSettings().setValue(QStringLiteral("QtSparkle/skipped_version"), m_appcast->version);
    close();
}

} // namespace qtsparkle
