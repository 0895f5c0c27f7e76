#include "syncfolder/winfilewatcher.h"

#include "base/log.h"
#include "syncfolder/winfilewatcher_tree.h"

#include <QDir>
#include <QElapsedTimer>
#include <QMetaMethod>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <atomic>
#include <utility>

struct WinFileWatcher::Private
{
    void wake() const
    {
        eventfd_write(wakeUp.get(), 1);
    }

    FileDescriptor wakeUp; ///< ends the wait of the thread
    FileDescriptor mounts; ///< tells when they change
    std::atomic<bool> connected = false;
    std::vector<std::unique_ptr<WatchedTree>> trees;
    Observer* observer = nullptr;
};

WinFileWatcher::WinFileWatcher(const QStringList& paths, QObject* parent, Observer* observer)
    : QThread(parent)
    , m_private(std::make_unique<Private>())
{
    m_private->observer = observer;
    qRegisterMetaType<QStringList*>("QStringList*"); // it crosses to the receiver's thread in an event
    ORVEL_LOG << "Win file watcher paths: " << paths.join(QLatin1Char(' '));
    if (paths.isEmpty())
        return;
    m_private->wakeUp = FileDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    m_private->mounts = FileDescriptor(open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
    for (const QString& path : paths) {
        const auto report = [this](const QStringList& directories, bool hasMissed) {
            if (isInterruptionRequested()) // the receiver may be gone
                return;
            if (hasMissed && m_private->observer != nullptr)
                m_private->observer->missed();
            emit pathsChanged(new QStringList(directories));
        };
        auto tree = std::make_unique<WatchedTree>(QDir::fromNativeSeparators(path), report);
        const WatchedTree::Opened opened = tree->open();
        if (opened != WatchedTree::Opened::Yes) {
            if (opened == WatchedTree::Opened::NoDirectory)
                ORVEL_LOG << "Unable CreateFile failed for path " << path;
            else
                ORVEL_LOG << "Create event for file failed " << path;
            m_private->trees.clear();
            return;
        }
        m_private->trees.push_back(std::move(tree));
    }
    ORVEL_LOG << "size" << WatchedTree::bufferSize;
    start(InheritPriority);
}

WinFileWatcher::~WinFileWatcher()
{
    stop();
}

void WinFileWatcher::askToStop()
{
    requestInterruption();
    if (m_private->wakeUp.isValid())
        m_private->wake();
}

void WinFileWatcher::connectNotify(const QMetaMethod& signal)
{
    if (signal != QMetaMethod::fromSignal(&WinFileWatcher::pathsChanged))
        return;
    m_private->connected = true;
    if (m_private->wakeUp.isValid())
        m_private->wake();
}

void WinFileWatcher::run()
{
    bool scanned = false;
    QElapsedTimer sinceRecheck;
    sinceRecheck.start();
    std::vector<pollfd> waits;
    while (!isInterruptionRequested()) {
        waits.assign(1, {m_private->wakeUp.get(), POLLIN, 0});
        bool idle = true;
        bool incomplete = false;
        // Nobody would take a report before; until then the notifications wait in their queues.
        if (m_private->connected) {
            for (const auto& tree : m_private->trees) {
                if (!scanned)
                    tree->scan();
                waits.push_back({tree->queue(), POLLIN, 0});
                idle = idle && !tree->hasDetached();
                incomplete = incomplete || tree->isIncomplete();
            }
            waits.push_back({m_private->mounts.get(), POLLPRI, 0});
            if (!std::exchange(scanned, true) && m_private->observer != nullptr && !isInterruptionRequested())
                m_private->observer->watching();
        }
        const int pause = WatchedTree::recheckPause;
        const int patience = incomplete ? qMax(0, pause - static_cast<int>(sinceRecheck.elapsed())) : -1;
        poll(waits.data(), waits.size(), idle ? patience : 0);
        if (waits.front().revents != 0) {
            eventfd_t count = 0;
            eventfd_read(m_private->wakeUp.get(), &count);
        }
        for (std::size_t i = 0; scanned && i < m_private->trees.size(); ++i) {
            WatchedTree& tree = *m_private->trees[i];
            if (waits[i + 1].revents != 0)
                tree.readEvents();
            tree.removeDetached();
            if (waits.back().revents != 0)
                tree.checkRoot();
        }
        if (sinceRecheck.hasExpired(pause)) {
            for (const auto& tree : m_private->trees) {
                if (tree->isIncomplete())
                    tree->recheck();
            }
            sinceRecheck.start();
        }
    }
    ORVEL_LOG << "Watcher stop";
    m_private->trees.clear();
}
