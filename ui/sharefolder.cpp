#include "ui/sharefolder.h"

#include "base/log.h"
#include "ui/measures.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace
{

constexpr int rowGap = 12;      // pixels
constexpr int emailWidth = 240; // pixels, the least

} // namespace

ShareFolder::ShareFolder(int id, const QString& folderPath, QWidget* parent)
    : QDialog(parent)
    , m_id(id)
    , m_layout(new QVBoxLayout(this))
    , m_inputRow(new QHBoxLayout)
    , m_folderPath(folderPath)
    , m_email(new QLineEdit)
    , m_button(new QPushButton(tr("Find")))
    , m_result(new QLabel)
{
    setWindowTitle(tr("Folder sharing"));
    auto* caption = new QLabel(tr("Email of user"));
    caption->setBuddy(m_email);
    m_email->setMinimumWidth(emailWidth);
    m_button->setMinimumWidth(measures::buttonWidth);
    m_layout->setContentsMargins(measures::margin, measures::margin, measures::margin, measures::margin);
    m_layout->setSpacing(rowGap);
    m_inputRow->addWidget(caption);
    m_inputRow->addWidget(m_email, 1);
    m_inputRow->addWidget(m_button);
    m_layout->addLayout(m_inputRow);
    m_layout->addWidget(m_result);

    m_email->setFocus();
    m_email->grabKeyboard(); // typing arrives even before the window is active
    m_email->installEventFilter(this);
    connect(m_button, SIGNAL(pressed()), this, SLOT(sharePressed()));
}

/// The edit keeps the keyboard only as long as the user stays in it.
bool ShareFolder::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_email && event->type() == QEvent::FocusOut)
        m_email->releaseKeyboard();
    return QDialog::eventFilter(watched, event);
}

void ShareFolder::done(int result)
{
    m_email->releaseKeyboard();
    QDialog::done(result);
    emit shareClosed(this);
}

void ShareFolder::sharePressed()
{
    if (m_answered) {
        close();
        return;
    }
    emit newSharedFolder(m_email->text(), m_folderPath, m_id);
}

void ShareFolder::shareFolderResult(int msgid, bool success, int msg)
{
    ORVEL_LOG << "sharefolderresult " << msgid << base::text(success) << msg;
    const QString refusals[] = {
        tr("Path not found"),
        tr("Only owner has the right to share folder with others"),
        tr("Folder above or below this one has already been shared"),
        tr("Server error. Please try later."),
        tr("User does not exist"),
    };
    const bool known = msg >= 0 && msg < static_cast<int>(std::size(refusals));
    const QString refusal = known ? refusals[msg] : QString();
    m_result->setText(success ? tr("Sharing succeeded") : refusal);
    m_result->setAlignment(Qt::AlignCenter);
    m_answered = true;
    m_button->setText(tr("OK"));
    m_button->setEnabled(true);
    m_email->releaseKeyboard();
    m_email->setEnabled(false);
    m_inputRow->removeWidget(m_button);
    m_layout->addWidget(m_button);
    m_layout->setAlignment(m_button, Qt::AlignHCenter);
    m_button->setFocus();
}
