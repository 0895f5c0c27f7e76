#include "base/log.h"
#include "engine/servercomm.h"
#include "syncfolder/syncfolder.h"
#include "ui/desktop.h"
#include "ui/dialogcld.h"
#include "ui/mymenu.h"
#include "ui/panelview.h"
#include "ui/scalefollower.h"
#include "ui/traystatus.h"

#include <QAction>
#include <QApplication>
#include <QTimerEvent>

namespace
{

constexpr float gibibytesPerByte = 9.313226e-10F;
constexpr int gibibyteShift = 30;
constexpr int freePrecision = 2;      // significant digits
constexpr int trayLookInterval = 250; // ms
constexpr int trayLooks = 120;

QString trayTitle()
{
    return QCoreApplication::applicationName() + QLatin1Char(' ') + QCoreApplication::applicationVersion();
}

} // namespace

void DialogCld::createTray()
{
    m_tray = new QSystemTrayIcon(this);
    m_tray->setContextMenu(m_menu);
    setTrayIcon(QStringLiteral(":/omri36.png"));
    m_tray->setVisible(true);
    m_scaleFollower = std::make_unique<ScaleFollower>(m_tray);
    m_tray->setToolTip(trayTitle());
    connect(m_tray, SIGNAL(activated(QSystemTrayIcon::ActivationReason)), this,
            SLOT(trayActivated(QSystemTrayIcon::ActivationReason)));
    // Some window managers minimise only what has the button for it.
    if (!desktop::hasTray())
        setWindowFlag(Qt::WindowMinimizeButtonHint);
}

void DialogCld::setVisible(bool visible)
{
    if (visible || isHidden() || desktop::hasTray()) {
        QDialog::setVisible(visible);
        return;
    }
    showMinimized(); // a hidden window would be gone for good
    // At log-on the panel may only be on its way, and the window manager, too. Nothing tells of it, and looking for
    // ever would cost.
    m_trayLooks = trayLooks;
    m_trayWatch.start(trayLookInterval, this);
    qApp->installEventFilter(this);
}

void DialogCld::endTrayWatch()
{
    m_trayWatch.stop();
    qApp->removeEventFilter(this);
}

void DialogCld::timerEvent(QTimerEvent* event)
{
    if (event->timerId() != m_trayWatch.timerId()) {
        QDialog::timerEvent(event);
        return;
    }
    const bool trayIsUp = desktop::hasTray();
    if (trayIsUp || --m_trayLooks == 0)
        endTrayWatch();
    if (trayIsUp)
        hide();
}

/// Whoever works in the window has brought it back, and keeps it.
bool DialogCld::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::MouseButtonPress || event->type() == QEvent::KeyPress) {
        const auto* widget = qobject_cast<QWidget*>(watched);
        if (widget != nullptr && widget->window() == this)
            endTrayWatch();
    }
    return QDialog::eventFilter(watched, event);
}

/// A busy engine reports again and again, and an icon takes long to load.
void DialogCld::setTrayIcon(const QString& resource)
{
    if (m_trayIcon == resource)
        return;
    m_trayIcon = resource;
    m_tray->setIcon(QIcon(resource));
}

void DialogCld::srvStateChange()
{
    const EngineState& state = m_server->state();
    ORVEL_LOG << "maindlg:"
              << "network state " << state.netState;
    const bool accountKnown = m_syncFolder && m_syncFolder->uid() != 0;
    if (const auto view =
            panelView(state.netState, accountKnown, m_loginAttempts, QCoreApplication::applicationName())) {
        m_panel.show(*view);
        m_loginConfirms = view->loginConfirms;
    }
    if (m_awaitsAnswer && state.netState != QLatin1String("offline")) {
        m_awaitsAnswer = false;
        if (state.netState == QLatin1String("logout"))
            m_panel.askForPasswordAgain();
    }
    if (const auto status = trayStatus(state, trayTitle())) {
        setTrayIcon(status->icon);
        if (status->toolTip != m_tray->toolTip())
            m_tray->setToolTip(status->toolTip);
    }
}

void DialogCld::spaceUsedChanged()
{
    const EngineState& state = m_server->state();
    const quint64 free = state.quota > state.space ? state.quota - state.space : 0; // a quota can be exceeded
    ORVEL_LOG << "maindlg:"
              << "space used changed free =" << free << state.quota;
    const double freeGibibytes = static_cast<double>(free) * static_cast<double>(gibibytesPerByte);
    m_spaceAction->setText(QStringLiteral("%L1 GB ").arg(freeGibibytes, 0, 'g', freePrecision) + tr("free out of") +
                           QStringLiteral(" %1 GB").arg(state.quota >> gibibyteShift));
    m_packageAction->setText(QStringLiteral("%1 - ").arg(state.package) + tr("Change package"));
    for (QAction* known : {m_packageAction, m_spaceAction})
        known->setVisible(true);
}

void DialogCld::srvDied()
{
    ORVEL_LOG << "maindlg:"
              << "srvdied";
    if (m_quitting)
        return;
    m_syncFolder.reset();
    createSyncFolder();
}

void DialogCld::aboutToDie()
{
    m_quitting = true;
    m_server->toggleServer(false);
}
