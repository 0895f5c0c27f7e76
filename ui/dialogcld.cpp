#include "ui/dialogcld.h"

#include "base/deployment.h"
#include "base/log.h"
#include "engine/privatefiles.h"
#include "engine/servercomm.h"
#include "shell/pipecmdreader.h"
#include "syncfolder/syncfolder.h"
#include "ui/desktop.h"
#include "ui/mymenu.h"
#include "ui/pickracun.h"
#include "ui/scalefollower.h"
#include "ui/settingsfile.h"
#include "ui/webpages.h"
#include "update/updater.h"

#include <QApplication>
#include <QCheckBox>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QStandardPaths>
#include <QTimer>

namespace
{

constexpr int hideDelay = 1; // ms after the event loop has started

} // namespace

// The order below is part of what the program is: the engine link resolves its data directory before the
// application has its names, so that the directory is called after the executable.
DialogCld::DialogCld(QWidget* parent)
    : QDialog(parent)
{
    qApp->setStyleSheet(QStringLiteral("QDialog {background-image: url(:/watermark.png);"
                                       "background-position:left top;background-repeat:none;background-color:white}"));
    QApplication::setPalette(desktop::readableOnWhite(QApplication::palette()));
    QApplication::setQuitOnLastWindowClosed(false);
    QGuiApplication::setFallbackSessionManagementEnabled(false); // a window that stays would be a veto
    connect(qApp, SIGNAL(aboutToQuit()), this, SLOT(aboutToDie()));
    createServer();
    createCommandReader();
    copyStatusIcons();
    nameApplication();
    settingsfile::tidy();
    ORVEL_LOG << "maindlg:"
              << "STATE PATH" << m_server->stateDir();
    createSyncFolder();

    QSettings settings;
    settings.setValue(QStringLiteral("apppath"), QCoreApplication::arguments().value(0));
    const int runStartup = settings.value(QStringLiteral("runstartup"), 1).toInt();
    m_updater = new qtsparkle::Updater(webpages::updateFeed(m_server->config().synchome), this);
    buildPanel(runStartup);

    const int runNumber = settings.value(QStringLiteral("runnum"), 0).toInt();
    greet(runNumber);
    settings.setValue(QStringLiteral("runnum"), runNumber + 1);

    createMenu();
    createTray();
    if (!settings.contains(QStringLiteral("localapppath")))
        settings.setValue(QStringLiteral("localapppath"), m_server->stateDir());
    const bool signedIn = settings.value(QStringLiteral("lastuidact"), 0).toInt() > 0;
    if (runNumber > 1 && signedIn)
        QTimer::singleShot(hideDelay, this, SLOT(hide()));
}

DialogCld::~DialogCld()
{
    delete m_picker;
    m_server->disconnect(this); // what the engine says at its end finds nobody here any more
}

void DialogCld::createServer()
{
    const QString organization = tr("Velmora d.d.");
    ORVEL_LOG << "maindlg:"
              << "Organization is " << organization;
    m_server = std::make_unique<ServerComm>(tr("Orvel Storage"), organization, false);
    connect(m_server.get(), SIGNAL(netStateChanged()), this, SLOT(srvStateChange()));
    connect(m_server.get(), SIGNAL(serverDied()), this, SLOT(srvDied()));
    connect(m_server.get(), SIGNAL(spaceUsedChanged()), this, SLOT(spaceUsedChanged()));
    connect(m_server.get(), SIGNAL(pathQueryResult(QString, QList<quint64>)), this,
            SLOT(pathQueryResult(QString, QList<quint64>)));
    connect(m_server.get(), SIGNAL(racunIds(QStringList)), this, SLOT(pickRacun(QStringList)));
}

void DialogCld::createCommandReader()
{
    m_commandReader = std::make_unique<PipeCmdReader>();
    connect(m_commandReader.get(), SIGNAL(Command(QString, QString)), this, SLOT(shellCommand(QString, QString)));
}

/// The shell extension shows these on the files; it finds them in the data directory.
void DialogCld::copyStatusIcons() const
{
    for (const char* name : {"synced.ico", "quota.ico", "syncing.ico", "offline.ico"}) {
        QFile resource(QStringLiteral(":/") + QLatin1String(name));
        QFile copy(m_server->stateDir() + QLatin1Char('/') + QLatin1String(name));
        const QByteArray icon = resource.open(QIODevice::ReadOnly) ? resource.readAll() : QByteArray();
        if (!icon.isEmpty() && (!copy.open(QIODevice::ReadOnly) || copy.readAll() != icon)) {
            copy.close();
            privatefiles::write(copy.fileName(), icon);
        }
    }
}

void DialogCld::nameApplication()
{
    setWindowTitle(tr("Orvel Storage"));
    QIcon icon(QStringLiteral(":/omri36.png"));
    icon.addFile(QStringLiteral(":/omri72.png")); // for places where it is shown larger
    setWindowIcon(icon);
    QCoreApplication::setApplicationName(tr("Orvel Storage"));
    QCoreApplication::setApplicationVersion(QLatin1String(deployment::version));
    QCoreApplication::setOrganizationName(QStringLiteral("Velmora d.d."));
    QCoreApplication::setOrganizationDomain(QLatin1String(deployment::organizationDomain));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/omri72.png")));
}

void DialogCld::createSyncFolder()
{
    m_syncFolder = std::make_unique<SyncFolder>(m_server.get(), nullptr);
    connect(m_syncFolder.get(), SIGNAL(pathsChanged(QStringList&)), m_server.get(),
            SLOT(observedPathsChanged(QStringList&)));
    connect(m_syncFolder.get(), SIGNAL(rootsChanged(QList<QDir>&)), this, SLOT(rootsChanged(QList<QDir>&)));
    m_syncFolder->AppActivated();
}

void DialogCld::buildPanel(int runStartup)
{
    const QSettings settings;
    auto* startup = new QCheckBox(tr("Run Orvel Storage at system startup."));
    startup->setChecked(runStartup == 1);
    if (!settings.contains(QStringLiteral("runstartup")))
        toggleStartUp(runStartup == 1);
    connect(startup, SIGNAL(toggled(bool)), this, SLOT(toggleStartUp(bool)));

    const QString rootPath = m_syncFolder->rootPath();
    m_panel = SettingsPanel::build(this, startup, settings.value(QStringLiteral("username")).toString(), rootPath);
    ORVEL_LOG << "maindlg:"
              << "VALIDATED PATH " << rootPath;
    if (rootPath.isEmpty())
        m_panel.folderPath->setText(defaultRootPath());
    connect(m_panel.login, SIGNAL(clicked()), this, SLOT(doLogin()));
    connect(m_panel.pickFolder, SIGNAL(clicked()), this, SLOT(changeRoot()));
}

/// Where the engine makes the sync folder of an account that has none yet.
QString DialogCld::defaultRootPath() const
{
    const EngineConfig& config = m_server->config();
    const QString parent =
        config.homepath.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::HomeLocation) : config.homepath;
    return parent + QLatin1Char('/') + rootName();
}

QString DialogCld::rootName() const
{
    const EngineConfig& config = m_server->config();
    return config.homefolder.isEmpty() ? config.syncfolders.value(0) : config.homefolder;
}

/// The first start shows the guide and settles the question of automatic update checks.
void DialogCld::greet(int runNumber)
{
    QSettings settings;
    settings.beginGroup(QStringLiteral("QtSparkle"));
    if (runNumber == 0) {
        openGuide();
        settings.setValue(QStringLiteral("check_automatically"), true);
        settings.setValue(QStringLiteral("first_boot"), false);
        settings.setValue(QStringLiteral("asked_permission"), true);
        m_panel.autoUpdate->setChecked(true);
    } else {
        m_panel.autoUpdate->setChecked(settings.value(QStringLiteral("check_automatically"), true).toBool());
    }
    // Only now: showing the setting is no choice of the user's.
    connect(m_panel.autoUpdate, SIGNAL(toggled(bool)), this, SLOT(toggleAutoUpdate(bool)));
}

const ServerComm& DialogCld::server() const
{
    return *m_server;
}

const SyncFolder& DialogCld::syncFolder() const
{
    return *m_syncFolder;
}

const QSystemTrayIcon& DialogCld::tray() const
{
    return *m_tray;
}

const SettingsPanel& DialogCld::panel() const
{
    return m_panel;
}
