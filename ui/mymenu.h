#pragma once

#include <QMenu>

/// The tray's context menu. It only tells the log when pointer and focus come and go.
class MyMenu final : public QMenu
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MyMenu)

public:
    explicit MyMenu(QWidget* parent);

protected:
    void enterEvent(QEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
};
