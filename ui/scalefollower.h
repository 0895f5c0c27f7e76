#pragma once

#include <QAbstractNativeEventFilter>
#include <QObject>
#include <QPair>
#include <QPointer>
#include <QSize>
#include <QVector>

class QScreen;
class QSystemTrayIcon;
class QWidget;

/// Lets windows and tray icon follow when the scale of a screen changes while the program runs.
///
/// Windows gives each window its new size in pixels first. Qt 5.15 learns of the scale only afterwards, so it takes
/// that size for more room, of which the screen shows a part; the tray icon it keeps as it is. GUI thread only.
class ScaleFollower final : public QObject, private QAbstractNativeEventFilter
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ScaleFollower)

public:
    /// Neither owns nor outlives the icon.
    explicit ScaleFollower(QSystemTrayIcon* tray);
    ~ScaleFollower() override;

private slots:
    void watch(QScreen* screen);
    void followSoon();
    void follow();

private:
    bool nativeEventFilter(const QByteArray& type, void* message, long* result) override;

    QSystemTrayIcon* m_tray;
    QVector<QPair<QPointer<QWidget>, QSize>> m_sizes; ///< of windows, before they were given other ones
};
