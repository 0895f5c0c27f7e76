#include "base/deployment.h"
#include "base/log.h"
#include "engine/servercomm.h"
#include "syncfolder/folderchooser.h"
#include "syncfolder/syncfolder.h"
#include "ui/dialogcld.h"
#include "ui/guide.h"
#include "ui/mymenu.h"
#include "ui/sharefolder.h"
#include "ui/webpages.h"
#include "update/updater.h"

#include <QAction>
#include <QApplication>
#include <QDateTime>
#include <QDesktopServices>
#include <QDir>
#include <QLineEdit>
#include <QMessageBox>
#include <QScreen>
#include <QSettings>
#include <QStandardPaths>
#include <QStyle>
#include <QTimer>

namespace
{

constexpr int exitCodeOfMenu = 1;
constexpr qint64 doubleClickTime = 200; // ms

QString webSite()
{
    return DialogCld::tr(deployment::webSite);
}

} // namespace

QAction* DialogCld::addAction(const QString& text, const char* slot)
{
    auto* action = new QAction(text, this);
    if (slot != nullptr)
        connect(action, SIGNAL(triggered()), this, slot);
    m_menu->addAction(action);
    return action;
}

void DialogCld::createMenu()
{
    m_menu = new MyMenu(this);
    addAction(tr("Open Orvel Storage folder"), SLOT(openHomefolder()));
    addAction(tr("Open Orvel Storage web site"), SLOT(openHomepage()));
    m_syncAction = addAction(tr("Stop sync"), SLOT(disableSync()));
    m_menu->addSeparator();
    m_packageAction = addAction(QString(), SLOT(openBuy()));
    m_spaceAction = addAction(QString(), nullptr);
    m_spaceAction->setEnabled(false);
    for (QAction* unknown : {m_packageAction, m_spaceAction})
        unknown->setVisible(false); // until the engine tells
    m_menu->addSeparator();
    addAction(tr("Settings"), SLOT(menuShow()));
    addAction(tr("Guide"), SLOT(openGuide()));
    addAction(tr("Help"), SLOT(openHelp()));
    addAction(tr("Check for updates"), SLOT(manualUpdate()));
    addAction(tr("Exit"), SLOT(menuClose()));
}

void DialogCld::menuShow()
{
    ORVEL_LOG << "maindlg:"
              << "Menu show";
    endTrayWatch();
    setWindowState(windowState() & ~Qt::WindowMinimized);
    show();
    raise();
    activateWindow();
    QApplication::setActiveWindow(this);
}

void DialogCld::menuClose()
{
    m_quitting = true;
    QCoreApplication::exit(exitCodeOfMenu);
}

void DialogCld::manualUpdate()
{
    m_updater->CheckNow();
}

void DialogCld::checkUpdate()
{
}

void DialogCld::toggleAutoUpdate(bool on)
{
    QSettings settings;
    settings.beginGroup(QStringLiteral("QtSparkle"));
    settings.setValue(QStringLiteral("check_automatically"), on);
}

void DialogCld::disableSync()
{
    m_syncStopped = !m_syncStopped;
    setTrayIcon(m_syncStopped ? QStringLiteral(":/offline36.png") : QStringLiteral(":/online36.png"));
    m_syncAction->setText(m_syncStopped ? tr("Continue sync") : tr("Stop sync"));
    m_server->setSyncEnabled(!m_syncStopped);
}

void DialogCld::trayActivated(QSystemTrayIcon::ActivationReason reason)
{
    if (reason != QSystemTrayIcon::Trigger)
        return;
    const qint64 elapsed =
        m_sinceFolderClick.isValid() ? m_sinceFolderClick.elapsed() : QDateTime::currentMSecsSinceEpoch();
    ORVEL_LOG << "maindlg:" << elapsed;
    if (elapsed > doubleClickTime) {
        if (m_syncFolder->uid() != 0)
            openHomefolder();
        m_sinceFolderClick.start();
    }
    m_syncFolder->AppActivated();
}

void DialogCld::openHomepage()
{
    QDesktopServices::openUrl(webpages::homepage(webSite()));
}

void DialogCld::openBuy()
{
    QDesktopServices::openUrl(webpages::orderPage(webSite()));
}

void DialogCld::openHelp()
{
    QDesktopServices::openUrl(webpages::help(webSite()));
}

void DialogCld::openHomefolder()
{
    QDesktopServices::openUrl(webpages::folder(m_panel.folderPath->text()));
}

void DialogCld::openGuide()
{
    // Windows keeps it in front of a window that is there already; on the first start this one is shown later.
    winId();
    auto* guide = new Guide(this);
    guide->setAttribute(Qt::WA_DeleteOnClose);
    connect(guide, SIGNAL(finished(int)), this, SLOT(guideClosed(int)));
    guide->setWindowFlags(Qt::Dialog | Qt::WindowTitleHint | Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint);
    // In the middle of the screen: on the first start the window has no place yet to be centred on.
    guide->setGeometry(QStyle::alignedRect(guide->layoutDirection(), Qt::AlignCenter, guide->sizeHint(),
                                           QGuiApplication::primaryScreen()->availableGeometry()));
    guide->show();
    guide->raise();
    guide->activateWindow();
    QTimer::singleShot(0, guide, SLOT(raise())); // the window comes up only now on the first start
}

void DialogCld::guideClosed(int result)
{
    Q_UNUSED(result)
    ORVEL_LOG << "maindlg:"
              << "Cleanup guide";
    if (auto* guide = qobject_cast<Guide*>(sender()))
        guide->close();
}

void DialogCld::changeRoot()
{
    ORVEL_LOG << "maindlg:"
              << "change root";
    const QString current = m_panel.folderPath->text();
    if (current.isEmpty())
        return;
    QString start = QStandardPaths::writableLocation(QStandardPaths::HomeLocation);
    if (!m_server->config().homepath.isEmpty()) {
        QDir parent(current);
        parent.cdUp();
        start = parent.path();
    }
    const QString picked = folderchooser::ask(this, tr("Pick Orvel Storage folder"), start);
    ORVEL_LOG << "maindlg:"
              << "movedpath" << picked;
    if (picked.isEmpty()) {
        ORVEL_LOG << "maindlg:"
                  << "openpath empty";
        return;
    }

    const QString folderName = rootName();
    const QString newRoot = picked + QLatin1Char('/') + folderName;
    if (!QDir(newRoot).exists()) {
        m_panel.folderPath->setText(newRoot);
        m_syncFolder->moveRoot(newRoot, [this, current](const QString& reason) {
            m_panel.folderPath->setText(current);
            warn(tr("The folder could not be moved:") + QLatin1Char(' ') + reason);
        });
        return;
    }
    ORVEL_LOG << "maindlg:"
              << "New path exists!";
    warn(tr("Folder named") + QLatin1Char(' ') + folderName + QLatin1Char(' ') + tr("already exists."));
}

void DialogCld::warn(const QString& text)
{
    auto* box = new QMessageBox(QMessageBox::Warning, tr("Error"), text, QMessageBox::Ok, this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

void DialogCld::shellCommand(QString cmd, QString path)
{
    ORVEL_LOG << "maindlg:"
              << "Shell command " << cmd << path;
    if (cmd == QLatin1String("website"))
        openHomepage();
    else if (cmd == QLatin1String("shareitem") || cmd == QLatin1String("revs"))
        m_server->pathQuery(path, cmd);
}

void DialogCld::pathQueryResult(QString tag, QList<quint64> ids)
{
    ORVEL_LOG << "maindlg:"
              << "Query result " << tag;
    if (ids.size() < 2)
        return;
    const QString& host = m_server->config().synchome;
    if (tag == QLatin1String("shareitem"))
        QDesktopServices::openUrl(webpages::item(host, ids, QStringLiteral("share")));
    else if (tag == QLatin1String("revs"))
        QDesktopServices::openUrl(webpages::item(host, ids, QStringLiteral("versions")));
}

void DialogCld::shareFolder(QString user, QString path, int id)
{
    m_server->shareFolder(user, path, id);
}

void DialogCld::shareClosed(ShareFolder* s)
{
    ORVEL_LOG << "maindlg:"
              << "Deleting share dialog";
    s->deleteLater();
}
