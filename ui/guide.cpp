#include "ui/guide.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPixmap>
#include <QPushButton>
#include <QVBoxLayout>

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
    m_next->setDefault(true);
    buildLayout();
    connect(m_next, SIGNAL(clicked()), this, SLOT(moveForward()));
    connect(m_back, SIGNAL(clicked()), this, SLOT(moveBack()));
    connect(m_skip, SIGNAL(clicked()), this, SLOT(close()));
    showStep(1);
}

void Guide::buildLayout()
{
    auto* row = new QHBoxLayout;
    row->addWidget(m_stepLabel);
    row->addWidget(m_back);
    row->addWidget(m_skip);
    row->addWidget(m_next);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_text);
    layout->addWidget(m_picture);
    layout->addLayout(row);
}

void Guide::moveForward()
{
    showStep(m_step + 1);
}

void Guide::moveBack()
{
    showStep(m_step - 1);
}

void Guide::showStep(int step)
{
    if (step < 1 || step > stepCount)
        return;
    m_step = step;
    m_stepLabel->setText(tr("Step %n", "", step) + QLatin1Char(' ') + tr("of %n", "", stepCount));
    m_text->setText(m_texts.at(static_cast<size_t>(step - 1)));
    m_picture->setPixmap(QPixmap(QStringLiteral(":/guide%1.png").arg(step)));

    switch (step) {
    case 1:
        m_back->hide();
        break;
    case 2:
        m_back->show();
        break;
    case 3:
        m_next->show();
        m_skip->setText(tr("Skip Guide"));
        break;
    default:
        m_next->hide();
        m_skip->setText(tr("Close guide"));
    }
}
