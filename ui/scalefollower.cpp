#include "ui/scalefollower.h"

#include "ui/scalemessage.h"

#include <QApplication>
#include <QEvent>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QTimer>
#include <QWidget>
#include <QWindow>

namespace
{

constexpr qreal unscaledDotsPerInch = 96;

} // namespace

ScaleFollower::ScaleFollower(QSystemTrayIcon* tray)
    : m_tray(tray)
{
    const auto screens = QGuiApplication::screens();
    for (QScreen* screen : screens)
        watch(screen);
    connect(qGuiApp, SIGNAL(screenAdded(QScreen*)), this, SLOT(watch(QScreen*)));
    QCoreApplication::instance()->installNativeEventFilter(this);
}

ScaleFollower::~ScaleFollower()
{
    QCoreApplication::instance()->removeNativeEventFilter(this);
}

void ScaleFollower::watch(QScreen* screen)
{
    connect(screen, SIGNAL(logicalDotsPerInchChanged(qreal)), this, SLOT(followSoon()));
}

/// Qt forgets the earlier scale, and takes in the new size, after it has told of them.
void ScaleFollower::followSoon()
{
    QTimer::singleShot(0, this, SLOT(follow()));
}

bool ScaleFollower::nativeEventFilter(const QByteArray& type, void* message, long* result)
{
    Q_UNUSED(type)
    Q_UNUSED(result)
    const scalemessage::Change change = scalemessage::read(message);
    QWidget* window = change.window == 0 ? nullptr : QWidget::find(change.window);
    if (window == nullptr || !window->isWindow() || window->windowHandle() == nullptr || window->isMaximized())
        return false;
    // Qt works with whole numbers. Above one it draws larger texts, and the window needs the room that it gets.
    const qreal scale = change.dotsPerInch / unscaledDotsPerInch;
    const int factor = qMax(1, qRound(scale));
    const bool isKnown = qFuzzyCompare(window->windowHandle()->devicePixelRatio(), factor);
    if (isKnown && factor < scale)
        return false;
    m_sizes.append({window, window->size()});
    if (isKnown) // so Qt will not tell of it
        followSoon();
    return false;
}

void ScaleFollower::follow()
{
    for (const auto& entry : qAsConst(m_sizes)) {
        if (!entry.first)
            continue;
        entry.first->resize(entry.second);
        entry.first->windowHandle()->resize(entry.second); // also while the size by Windows is on its way to the widget
    }
    m_sizes.clear();
    // As Qt tells the windows that come to another screen.
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget* window : windows) {
        QEvent event(QEvent::ScreenChangeInternal);
        QCoreApplication::sendEvent(window, &event);
    }
    m_tray->setIcon(m_tray->icon());
}
