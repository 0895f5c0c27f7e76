#include "ui/mymenu.h"

#include "base/log.h"

MyMenu::MyMenu(QWidget* parent)
    : QMenu(parent)
{
}

void MyMenu::enterEvent(QEvent* event)
{
    ORVEL_LOG << "Enter event";
    QMenu::enterEvent(event);
}

void MyMenu::leaveEvent(QEvent* event)
{
    ORVEL_LOG << "Leave event";
    QMenu::leaveEvent(event);
}

void MyMenu::focusOutEvent(QFocusEvent* event)
{
    ORVEL_LOG << "Focus out event";
    QMenu::focusOutEvent(event);
}
