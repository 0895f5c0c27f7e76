#include "syncfolder/pickhomepath.h"

#include "syncfolder/folderchooser.h"

#include <QDir>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

namespace
{

constexpr int answered = 1;

constexpr int margin = 24;         // pixels
constexpr int rowGap = 14;         // pixels
constexpr int questionWidth = 380; // pixels, the least
constexpr int buttonWidth = 100;   // pixels, the least

} // namespace

PickHomepath::PickHomepath(const QString& mode, const QString& defaultPath, QWidget* parent)
    : QDialog(parent)
    , m_defaultPath(defaultPath)
    , m_layout(new QVBoxLayout(this))
{
    if (mode == QLatin1String("moveordel"))
        buildMoveOrDelete();
}

void PickHomepath::buildMoveOrDelete()
{
    m_layout->setContentsMargins(margin, margin, margin, margin);
    m_layout->setSpacing(rowGap);

    auto* heading = new QLabel(QStringLiteral("<b>") + tr("Error") + QStringLiteral("</b>"));
    heading->setAlignment(Qt::AlignCenter);
    m_layout->addWidget(heading);

    auto* question = new QLabel(tr("Orvel Storage folder was not found. Was it moved/renamed or deleted?"));
    question->setWordWrap(true);
    question->setMinimumSize(questionWidth, question->heightForWidth(questionWidth));
    m_layout->addWidget(question);
    setAccessibleName(question->text()); // the window has no title to be read out

    auto* line = new QFrame;
    line->setFrameStyle(QFrame::HLine);
    m_layout->addWidget(line);

    const auto addChoice = [this](const QString& caption, const QString& buttonText, const char* slot) {
        auto* row = new QHBoxLayout;
        row->addWidget(new QLabel(caption), 1);
        auto* button = new QPushButton(buttonText);
        button->setMinimumWidth(buttonWidth);
        button->setAccessibleDescription(caption);
        connect(button, SIGNAL(clicked()), this, slot);
        row->addWidget(button);
        m_layout->addLayout(row);
    };
    addChoice(tr("Moved/renamed:"), tr("Find"), SLOT(RootMoved()));
    m_layout->addWidget(line); // adding it again moves it between the two choices
    addChoice(tr("Deleted:"), tr("Restore"), SLOT(RootDeleted1()));
}

void PickHomepath::RootMoved()
{
    QDir start(m_defaultPath);
    start.cdUp();
    const QPointer<PickHomepath> alive(this);
    const QString picked = folderchooser::ask(this, tr("Pick Orvel Storage folder"), start.path());
    if (!alive || picked.isEmpty())
        return;
    emit RootPathPicked(picked);
    emit finished(answered);
}

void PickHomepath::RootDeleted1()
{
    emit RootDeleted();
    emit finished(answered);
}

void PickHomepath::DefaultPath()
{
    emit RootPathPicked(m_defaultPath);
    emit finished(answered);
}
