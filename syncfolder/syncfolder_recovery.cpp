#include "base/log.h"
#include "engine/privatefiles.h"
#include "engine/servercomm.h"
#include "syncfolder/pickhomepath.h"
#include "syncfolder/syncfolder.h"
#include "json/asciijson.h"
#include "json/json.h"

#include <QCoreApplication>
#include <QDataStream>
#include <QFile>
#include <QStandardPaths>
#include <QTimer>

namespace
{

constexpr int eventCheckInterval = 60000; // ms
constexpr int eventCheckDelay = 5000;     // ms

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

void SyncFolder::moveRoot(const QString& newPath)
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
    m_server->toggleServer(false);
    if (dir.rename(dir.path(), newPath))
        RootPicked(newPath);
    m_server->toggleServer(true);
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
