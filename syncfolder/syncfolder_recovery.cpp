#include "base/log.h"
#include "engine/privatefiles.h"
#include "engine/servercomm.h"
#include "syncfolder/pickhomepath.h"
#include "syncfolder/renamefolder.h"
#include "syncfolder/syncfolder.h"
#include "json/asciijson.h"
#include "json/json.h"

#include <QCoreApplication>
#include <QDataStream>
#include <QFile>
#include <QStandardPaths>
#include <QTimer>
#include <QTimerEvent>

#include <utility>

namespace
{

constexpr int eventCheckInterval = 60000; // ms
constexpr int eventCheckDelay = 5000;     // ms
constexpr int engineEndTimeout = 3000;    // ms
constexpr int engineEndLook = 20;         // ms

} // namespace

void SyncFolder::AppActivated()
{
    ORVEL_LOG << "syncfolder:"
              << "AppActivated" << static_cast<const void*>(m_picker.data());
    if (m_picker || m_rootValid)
        return;
    const QString home = QStandardPaths::writableLocation(QStandardPaths::HomeLocation);
    ORVEL_LOG << "syncfolder:"
              << "picking home start pos: " << home;

    m_picker = new PickHomepath(QStringLiteral("moveordel"),
                                home + QLatin1Char('/') + QCoreApplication::applicationName(), nullptr);
    m_picker->setWindowFlags(Qt::Tool | Qt::WindowStaysOnTopHint);
    connect(m_picker, SIGNAL(finished(int)), this, SLOT(pickHomeclosed(int)));
    connect(m_picker, SIGNAL(RootDeleted()), this, SLOT(RootDeleted()));
    connect(m_picker, SIGNAL(RootPathPicked(QString)), this, SLOT(RootPicked(QString)));
    m_picker->raise();
    m_picker->activateWindow();
    m_picker->show();
}

void SyncFolder::pickHomeclosed(int result)
{
    Q_UNUSED(result)
    ORVEL_LOG << "syncfolder:"
              << "pick home closed";
    if (!m_picker)
        return;
    m_picker->deleteLater(); // it is still emitting the signal that led here
    m_picker->hide();
    m_picker = nullptr;
}

void SyncFolder::RootPicked(QString path)
{
    ORVEL_LOG << "syncfolder:"
              << "Root picked " << path;
    QDir dir(path);
    if (dir.isRoot())
        return;
    const QString name = dir.dirName();
    dir.cdUp();
    const QString parent = dir.path();

    const QVariantList roots = readRoots();
    if (roots.isEmpty()) {
        m_server->setHome(parent, name);
        m_server->saveConfig();
        return;
    }

    QVariantMap root = roots.first().toMap();
    root.insert(QStringLiteral("name"), name);
    root.insert(QStringLiteral("path"), parent);
    // It is read as Latin-1, up to the first zero byte.
    privatefiles::write(rootsFile(), asciiJson(Json::serialize(QVariantList{root})));
    m_server->toggleServer(true);
    QList<QDir> picked{QDir(path)};
    emit rootsChanged(picked);
}

void SyncFolder::RootDeleted()
{
    const QDir stateDir(m_server->stateDir());
    const QStringList names =
        stateDir.entryList({QStringLiteral("*.tree"), QStringLiteral("*.json")}, QDir::Files, QDir::Unsorted);
    for (const QString& name : names) {
        if (name == QLatin1String("config.json"))
            continue;
        const QString path = m_server->stateDir() + QLatin1Char('/') + name;
        ORVEL_LOG << "syncfolder:"
                  << "Deleting file " << path;
        QFile::remove(path);
    }
    m_server->toggleServer(true);
}

void SyncFolder::moveRoot(const QString& newPath, MoveFailed failed)
{
    const QVariantList roots = readRoots();
    if (roots.isEmpty()) {
        RootPicked(newPath);
        return;
    }
    const QVariantMap root = roots.first().toMap();
    QDir dir(root.value(QStringLiteral("path")).toString());
    if (!dir.cd(root.value(QStringLiteral("name")).toString()))
        return;
    m_move.path = dir.path();
    m_move.newPath = newPath;
    m_move.failed = std::move(failed);
    m_server->toggleServer(false);
    m_move.deadline.setRemainingTime(engineEndTimeout);
    if (m_server->hasProcess())
        m_move.look.start(engineEndLook, this);
    else
        finishMove();
}

void SyncFolder::timerEvent(QTimerEvent* event)
{
    if (event->timerId() != m_move.look.timerId()) {
        QObject::timerEvent(event);
        return;
    }
    if (m_server->hasProcess() && !m_move.deadline.hasExpired())
        return;
    m_move.look.stop();
    finishMove();
}

void SyncFolder::finishMove()
{
    const QString reason = renameFolder(m_move.path, m_move.newPath);
    if (reason.isEmpty())
        RootPicked(m_move.newPath);
    m_server->toggleServer(true);
    if (reason.isEmpty())
        return;
    ORVEL_LOG << "syncfolder:"
              << "Unable to move" << m_move.path << "to" << m_move.newPath << reason;
    if (m_move.failed)
        m_move.failed(reason);
}

// A probe for platforms whose change notifications can stall. Nothing starts it on the present ones.

void SyncFolder::macEventChecker()
{
    QTimer::singleShot(eventCheckInterval, this, SLOT(macEventChecker()));
    QTimer::singleShot(eventCheckDelay, this, SLOT(macEventChecker1()));
    if (m_cacheDir.path() == QLatin1String("."))
        return;
    QFile file(m_cacheDir.path() + QStringLiteral("/fsfile"));
    if (!file.open(QIODevice::WriteOnly))
        return;
    QDataStream(&file) << "ABC";
}

void SyncFolder::macEventChecker1()
{
}
