#include "ui/guide.h"

#include "ui/measures.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace
{

constexpr QSize pictureSize(600, 340);
constexpr int textWidth = pictureSize.width();

/// Its place stays free while it is hidden.
void keepPlace(QWidget* widget)
{
    QSizePolicy policy = widget->sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    widget->setSizePolicy(policy);
}

} // namespace

// The misspellings and dots of the page texts stand in the translations' keys and must stay.

Guide::Guide(QWidget* parent)
    : QDialog(parent)
    , m_picture(new QLabel)
    , m_text(new QLabel)
    , m_stepLabel(new QLabel)
    , m_skip(new QPushButton(tr("Skip guide")))
    , m_next(new QPushButton(tr("Next")))
    , m_back(new QPushButton(tr("Back")))
    , m_texts{tr("Orvel Storage is a special folder on your computer....."),
              tr("There are three posible state of the destop app...."),
              tr("Default setting for auto startup at login...."), tr("Enjoy using ....")}
{
    setWindowTitle(tr("Welcome to Orvel Storage"));
    m_text->setWordWrap(true);
    m_text->setTextFormat(Qt::RichText);
    m_text->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    m_picture->setAlignment(Qt::AlignCenter);
    m_next->setDefault(true);
    buildLayout();
    reserveRoom();
    connect(m_next, SIGNAL(clicked()), this, SLOT(moveForward()));
    connect(m_back, SIGNAL(clicked()), this, SLOT(moveBack()));
    connect(m_skip, SIGNAL(clicked()), this, SLOT(close()));
    showStep(1);
}

void Guide::buildLayout()
{
    auto* row = new QHBoxLayout;
    row->addWidget(m_stepLabel, 1);
    row->addWidget(m_back);
    row->addWidget(m_skip);
    row->addWidget(m_next);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(measures::margin, measures::margin, measures::margin, measures::margin);
    layout->setSpacing(measures::sectionGap);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    layout->addWidget(m_text);
    layout->addWidget(m_picture);
    layout->addLayout(row);
}

/// So that nothing moves from step to step: room for the longest text and for every button.
void Guide::reserveRoom()
{
    int textHeight = 0;
    for (const QString& text : m_texts) {
        m_text->setText(text);
        textHeight = qMax(textHeight, m_text->heightForWidth(textWidth));
    }
    m_text->setFixedSize(textWidth, textHeight);

    const QString firstSkip = m_skip->text();
    int skipWidth = measures::buttonWidth;
    for (const QString& text : {tr("Skip Guide"), tr("Close guide"), firstSkip}) {
        m_skip->setText(text);
        skipWidth = qMax(skipWidth, m_skip->sizeHint().width());
    }
    m_skip->setMinimumWidth(skipWidth);
    for (QPushButton* button : {m_back, m_next}) {
        button->setMinimumWidth(measures::buttonWidth);
        keepPlace(button);
    }
}

/// A screen with another scale wants another picture.
bool Guide::event(QEvent* event)
{
    const bool accepted = QDialog::event(event);
    if (event->type() == QEvent::ScreenChangeInternal)
        showPicture();
    return accepted;
}

void Guide::moveForward()
{
    showStep(m_step + 1);
}

void Guide::moveBack()
{
    showStep(m_step - 1);
}

/// Translated, since there are words in the picture. An icon has the finer one for screens that show it.
void Guide::showPicture()
{
    m_picture->setPixmap(QIcon(tr(":/guide%1.png").arg(m_step)).pixmap(windowHandle(), pictureSize));
}

void Guide::showStep(int step)
{
    if (step < 1 || step > stepCount)
        return;
    m_step = step;
    m_stepLabel->setText(tr("Step %n", "", step) + QLatin1Char(' ') + tr("of %n", "", stepCount));
    m_text->setText(m_texts.at(static_cast<size_t>(step - 1)));
    showPicture();

    switch (step) {
    case 1:
        m_back->hide();
        break;
    case 2:
        m_back->show();
        break;
    case 3:
        m_next->show();
        m_next->setDefault(true);
        m_skip->setText(tr("Skip Guide"));
        break;
    default:
        m_skip->setFocus(); // Enter goes on to the end, not back to where the focus would fall
        m_skip->setDefault(true);
        m_next->hide();
        m_skip->setText(tr("Close guide"));
    }
}
