#include "syncfolder/syncfolder.h"

#include "base/log.h"
#include "engine/privatefiles.h"
#include "engine/servercomm.h"
#include "syncfolder/pickhomepath.h"
#include "json/json.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QTimer>

namespace
{

constexpr int reportDelay = 1000; // ms

QString member(const QVariant& root, const char* key)
{
    return root.toMap().value(QLatin1String(key)).toString();
}

/// The root's directory; @p entered tells whether it is there.
QDir directoryOf(const QVariant& root, bool& entered)
{
    QDir dir(member(root, "path"));
    const QString name = member(root, "name");
    entered = dir.cd(name);
    if (!entered) // the one above it is none of ours
        dir.setPath(QDir::cleanPath(dir.filePath(name)));
    return dir;
}

/// Whether the element names a directory; what lacks a part would lead to the one above it, or to our own.
bool isRoot(const QVariant& element)
{
    return !member(element, "path").isEmpty() && !member(element, "name").isEmpty();
}

/// The file is written only for another account: reports of the network's state may come many times a second.
void store(QSettings& settings, const QString& key, quint64 uid)
{
    const QVariant stored = settings.value(key);
    if (!stored.isValid() || stored.toULongLong() != uid)
        settings.setValue(key, uid);
}

} // namespace

SyncFolder::SyncFolder(ServerComm* server, QObject* parent)
    : QObject(parent)
    , m_server(server)
    , m_lastChangeTime(QDateTime::currentMSecsSinceEpoch())
    , m_cacheDir(QString())
{
    qRegisterMetaType<QStringList*>("QStringList*"); // it crosses from the watcher's thread in an event
    connect(m_server, SIGNAL(rootsChanged()), this, SLOT(rootsChanged()));
    connect(m_server, SIGNAL(netStateChanged()), this, SLOT(loginChanged()));

    m_uid = static_cast<quint64>(m_settings.value(QStringLiteral("lastuid"), 0).toLongLong());
    if (m_uid != 0 && !validRootPaths(m_uid)) {
        m_rootValid = false;
        m_server->saveConfig();
    } else {
        m_server->toggleServer(true);
    }
}

SyncFolder::~SyncFolder()
{
    m_watcher.reset();
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall); // the watcher's last batches, which are ours to delete
    delete m_picker;
}

const QString& SyncFolder::rootPath() const
{
    return m_rootPath;
}

quint64 SyncFolder::uid() const
{
    return m_uid;
}

QString SyncFolder::rootsFile() const
{
    return m_server->stateDir() + QDir::separator() + QStringLiteral("%1.json").arg(m_uid);
}

QVariantList SyncFolder::readRoots() const
{
    QFile file(rootsFile());
    const QByteArray content = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    if (content.isEmpty())
        return {};

    bool ok = false;
    // Latin-1, although the text is JSON: the engine escapes what is not ASCII.
    const QVariant roots = Json::parse(QString::fromLatin1(content.constData()), ok);
    if (!ok) {
        ORVEL_LOG << "syncfolder:"
                  << "Unable to parse json " << content;
        return {};
    }
    return roots.toList();
}

bool SyncFolder::validRootPaths(quint64 uid)
{
    ORVEL_LOG << "validrootpaths " << uid;
    if (uid == 0)
        return true;
    const QVariantList roots = readRoots();
    ORVEL_LOG << "syncfolder:"
              << "Valid rootpaths for " << roots.size();
    for (const QVariant& root : roots) {
        if (!isRoot(root))
            continue;
        bool entered = false;
        const QDir dir = directoryOf(root, entered);
        if (!entered)
            return false;
        m_rootPath = dir.path();
    }
    return true;
}

void SyncFolder::findCacheDir(const QDir& root)
{
    const QStringList caches =
        root.entryList({QStringLiteral("*.cache")}, QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Unsorted);
    if (caches.isEmpty())
        return;
    m_cacheDir.cd(root.path());
    m_cacheDir.cd(caches.first());
    ORVEL_LOG << "syncfolder:"
              << "CACHEDIR " << m_cacheDir.path();
}

void SyncFolder::destroyWatcher()
{
    m_watcher.reset();
}

void SyncFolder::rootsChanged()
{
    ORVEL_LOG << "syncfolder:"
              << "root changed " << m_uid;
    privatefiles::restrict(rootsFile()); // the engine wrote it
    const QVariantList roots = readRoots();
    QStringList paths;
    QList<QDir> dirs;
    for (const QVariant& root : roots) {
        if (!isRoot(root))
            continue;
        bool entered = false; // not asked: the watcher reports a root that it cannot open
        const QDir dir = directoryOf(root, entered);
        findCacheDir(dir);
        paths << dir.path();
        dirs << dir;
    }
    destroyWatcher();
    m_watcher.reset(new WinFileWatcher(paths, nullptr));
    connect(m_watcher.get(), SIGNAL(pathsChanged(QStringList*)), this, SLOT(extPathsChanged(QStringList*)));
    emit rootsChanged(dirs);
}

void SyncFolder::extPathsChanged(QStringList* paths)
{
    const std::unique_ptr<QStringList> owned(paths);
    m_lastChangeTime = QDateTime::currentMSecsSinceEpoch();
    ORVEL_LOG << "syncfolder:"
              << "extpaths changed " << paths->join(QLatin1Char(' ')) << m_lastChangeTime;

    const QString cache = m_cacheDir.path();
    for (const QString& path : qAsConst(*paths)) {
        if (path.startsWith(cache))
            continue;
        const int known = m_pendingSet.size();
        m_pendingSet.insert(path);
        if (m_pendingSet.size() != known)
            m_pendingPaths.append(path);
    }
    if (m_reportArmed) {
        m_reportAgain = true;
    } else {
        m_reportArmed = true;
        QTimer::singleShot(reportDelay, Qt::PreciseTimer, this, SLOT(reportTimeout()));
    }
}

void SyncFolder::reportTimeout()
{
    if (m_reportAgain) {
        QTimer::singleShot(reportDelay, Qt::PreciseTimer, this, SLOT(reportTimeout()));
        // Not armed while this second timer runs: a change meanwhile starts a timer of its own.
        m_reportArmed = false;
        m_reportAgain = false;
        return;
    }
    if (!m_pendingPaths.isEmpty()) {
        emit pathsChanged(m_pendingPaths);
        m_pendingPaths.clear();
        m_pendingSet.clear();
    }
    m_reportArmed = false;
    m_reportAgain = false;
}

void SyncFolder::loginChanged()
{
    const quint64 newUid = m_server->state().uid;
    ORVEL_LOG << "syncfolder:"
              << "Sync folder uid changed from " << m_uid << " to " << newUid;
    if (newUid != 0)
        store(m_settings, QStringLiteral("lastuid"), newUid);
    store(m_settings, QStringLiteral("lastuidact"), newUid);

    if (newUid == m_uid) {
        if (m_watcher)
            return;
    } else {
        destroyWatcher();
        if (newUid == 0) {
            m_uid = 0;
            return;
        }
    }
    // Still with the previous account's file; the engine's own report after a log-in loads the new one.
    rootsChanged();
    m_uid = newUid;
}
