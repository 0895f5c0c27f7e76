#include "ui/pickracun.h"

#include "ui/measures.h"

#include <QGroupBox>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

namespace
{

constexpr int windowWidth = 300; // pixels, the least: for its title

} // namespace

PickRacun::PickRacun(const QStringList& ids)
    : m_ids(ids)
    , m_group(new QGroupBox(tr("Pick accunt")))
{
    setWindowTitle(tr("Orvel Storage account"));

    auto* choices = new QVBoxLayout(m_group);
    for (const QString& id : qAsConst(m_ids)) {
        choices->addWidget(new QRadioButton(id));
    }

    auto* button = new QPushButton(tr("Login"));
    button->setDefault(true);
    button->setMinimumWidth(measures::buttonWidth);
    connect(button, SIGNAL(clicked()), this, SLOT(dologin()));

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(measures::margin, measures::margin, measures::margin, measures::margin);
    layout->setSpacing(measures::sectionGap);
    layout->addWidget(m_group);
    layout->addWidget(button, 0, Qt::AlignRight);
    setMinimumWidth(windowWidth);
}

void PickRacun::dologin()
{
    const auto choices = m_group->findChildren<QRadioButton*>();
    for (const QRadioButton* choice : choices) {
        if (choice->isChecked()) {
            emit PickedRacun(choice->text());
            return;
        }
    }
}
