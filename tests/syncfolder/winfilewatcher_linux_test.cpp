#include "syncfolder/winfilewatcher.h"

#include "syncfolder/winfilewatcher_tree.h"
#include "tests/support/privileges.h"
#include "tests/syncfolder/watch.h"

#include <QDir>
#include <QDirIterator>
#include <QRandomGenerator>
#include <QSemaphore>
#include <QTemporaryDir>

#include <fcntl.h>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <functional>

namespace
{

/// What the system calls below do besides their work; set while no watcher runs.
struct System
{
    /// Called on the watcher's thread with the name of a directory before it is watched. An error that is
    /// not 0 is what the call fails with.
    std::function<int(const QByteArray& name)> watchBegins;
    std::atomic<int> refusedQueues = 0; ///< how many queues more cannot be had
    bool refusesOwnCurrentDirectory = false;

    void reset()
    {
        watchBegins = {};
        refusedQueues = 0;
        refusesOwnCurrentDirectory = false;
    }
};
System theSystem;

} // namespace

// The program's own definitions come before those of the C library.

extern "C" int inotify_add_watch(int queue, const char* path, uint32_t mask) noexcept
{
    if (theSystem.watchBegins) {
        std::array<char, PATH_MAX> real = {};
        if (realpath(path, real.data()) == nullptr && errno != ENOENT) // it may be gone by now
            qFatal("cannot resolve %s", path);
        const QByteArray whole(real.data());
        if (const int error = theSystem.watchBegins(whole.mid(whole.lastIndexOf('/') + 1))) {
            errno = error;
            return -1;
        }
    }
    return static_cast<int>(syscall(SYS_inotify_add_watch, queue, path, mask));
}

extern "C" int inotify_init1(int flags) noexcept
{
    if (theSystem.refusedQueues > 0) {
        --theSystem.refusedQueues;
        errno = EMFILE;
        return -1;
    }
    return static_cast<int>(syscall(SYS_inotify_init1, flags));
}

extern "C" int unshare(int flags) noexcept
{
    if (theSystem.refusesOwnCurrentDirectory) {
        errno = EPERM;
        return -1;
    }
    return static_cast<int>(syscall(SYS_unshare, flags));
}

namespace
{

QString text(const char* utf8)
{
    return QString::fromUtf8(utf8);
}

/// Holds the watcher's thread where it watches the directory of that name for the first time.
class Gate
{
public:
    explicit Gate(const QByteArray& name)
    {
        theSystem.watchBegins = [this, name](const QByteArray& each) {
            if (each == name && !m_reached.exchange(true))
                m_opened.acquire();
            return 0;
        };
    }
    bool isReached() const
    {
        return m_reached;
    }
    void open()
    {
        m_opened.release();
    }

private:
    std::atomic<bool> m_reached{false};
    QSemaphore m_opened;
};

/// Holds the watcher's thread in its first report.
class Blocker
{
public:
    explicit Blocker(WinFileWatcher& watcher)
    {
        QObject::connect(
            &watcher, &WinFileWatcher::pathsChanged, &watcher,
            [this] {
                if (!m_reached.exchange(true))
                    m_opened.acquire();
            },
            Qt::DirectConnection);
    }
    bool isReached() const
    {
        return m_reached;
    }
    void open()
    {
        m_opened.release();
    }

private:
    std::atomic<bool> m_reached{false};
    QSemaphore m_opened;
};

/// A row for each seed; more of them when the environment asks for it.
void addSeeds(quint32 usual)
{
    QTest::addColumn<quint32>("seed");
    const quint32 last = qMax(usual, qEnvironmentVariable("ORVEL_TEST_SEEDS").toUInt());
    for (quint32 seed = 1; seed <= last; ++seed)
        QTest::newRow(qPrintable(QString::number(seed))) << seed;
}

QByteArrayList linesOf(const QString& path)
{
    return readFile(path).split('\n');
}

/// The number of directories that this process watches.
int watchCount()
{
    int count = 0;
    const QStringList descriptors = QDir(text("/proc/self/fdinfo")).entryList(QDir::Files);
    for (const QString& descriptor : descriptors) {
        const QByteArrayList lines = linesOf(text("/proc/self/fdinfo/") + descriptor);
        for (const QByteArray& line : lines)
            count += line.startsWith("inotify ") ? 1 : 0;
    }
    return count;
}

QStringList threads()
{
    return QDir(text("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
}

/// The processor time of a thread so far, in ticks of the system, a hundredth of a second each.
int ticksOf(const QString& thread)
{
    const QByteArray status = readFile(text("/proc/self/task/") + thread + text("/stat"));
    const QByteArrayList fields = status.mid(status.lastIndexOf(')') + 2).split(' ');
    return fields.value(11).toInt() + fields.value(12).toInt();
}

/// Whether the thread does next to nothing while nothing happens.
bool restsNow(const QString& thread)
{
    constexpr int moment = 300; // ms; thirty ticks for one that spins
    constexpr int atMost = 3;
    const int before = ticksOf(thread);
    (void)QTest::qWaitFor([] { return false; }, moment);
    return ticksOf(thread) - before <= atMost;
}

QStringList directoriesIn(const QString& root)
{
    QStringList found;
    QDirIterator each(root, QDir::Dirs | QDir::Hidden | QDir::NoSymLinks | QDir::NoDotAndDotDot,
                      QDirIterator::Subdirectories);
    while (each.hasNext())
        found << each.next();
    return found;
}

int maxQueuedEvents()
{
    return readFile(text("/proc/sys/fs/inotify/max_queued_events")).trimmed().toInt();
}

} // namespace

class WinFileWatcherLinuxTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_directory;
    QString m_root;
    QString m_outside;
    QString m_markers;
    const int m_usualRecheckPause = WatchedTree::recheckPause;

    QString inRoot(const char* path) const
    {
        return m_root + QLatin1Char('/') + text(path);
    }
    bool becomesQuiet() const;

protected:
    void setUp() override;
    void tearDown() override;

private slots:
    void oneThreadWatchesAllRoots();
    void quietTreeIsNotReportedAtTheStart();
    void changesBeforeTheFirstConnectionAreReported();
    void changesWhileTheTreeIsReadAreReported();
    void renamesWhileTheTreeIsReadAreFollowed();
    void directoryMovedAwayBeforeItIsKnownIsFollowed();
    void directoryMovedOutWhileItIsTakenUpIsNotReported();
    void directoryReplacedByALinkIsNotFollowed();
    void fileUnderARootIsNoRoot();
    void linksAreNotFollowed();
    void rootMayBeALink();
    void lostNotificationsReportTheRoot();
    void directoriesMadeWhileNotificationsWereLostAreWatched();
    void nothingStaysUnreportedAfterManyChangesThatNobodyRead_data();
    void nothingStaysUnreportedAfterManyChangesThatNobodyRead();
    void watchLimitIsLoggedOnceAndTheRestIsWatched();
    void partThatCannotBeWatchedIsReportedWithItsRootFromTimeToTime();
    void queueThatCannotBeHadAfterALossIsAskedForAgain();
    void watchLimitForTheRootSwitchesTheWatcherOff();
    void stopEndsTheReadingOfTheTree();
    void stopBeforeAnybodyIsConnected();
    void removedRootIsReportedAndTheThreadSleeps();
    void renamedRootIsReportedAndTheThreadSleeps();
    void rootThatComesBackIsReportedAndWatchedAgain();
    void diskThatIsUnmountedIsReportedAndWatchedAgainWhenItIsBack_data();
    void diskThatIsUnmountedIsReportedAndWatchedAgainWhenItIsBack();
    void diskThatIsTakenAwayWhileItIsUsedIsReportedAndWatchedAgain();
    void watchesOfAMovedOutTreeAreRemoved();
    void swappedDirectoriesAreWatchedUnderTheirNewNames();
    void unreadableDirectoryIsWatchedOnceItIsReadable();
    void modificationTimeSetByHandIsReported();
    void mappedWriteIsReportedWhenTheFileIsClosed();
    void pathsLongerThanTheSystemTakesAreWatched();
    void currentDirectoryOfTheProgramStays();
    void watcherWorksWithoutACurrentDirectoryOfItsOwn();
    void randomOperationsLeaveEveryDirectoryWatched_data();
    void randomOperationsLeaveEveryDirectoryWatched();
};

void WinFileWatcherLinuxTest::setUp()
{
    theSystem.reset();
    m_directory = std::make_unique<QTemporaryDir>();
    QVERIFY(m_directory->isValid());
    m_root = m_directory->filePath(text("root"));
    m_outside = m_directory->filePath(text("outside"));
    m_markers = inRoot("markers");
    QVERIFY(QDir().mkpath(m_markers));
    QVERIFY(QDir().mkpath(m_outside));
}

void WinFileWatcherLinuxTest::tearDown()
{
    theSystem.reset();
    WatchedTree::recheckPause = m_usualRecheckPause;
    m_directory.reset();
}

/// Waits until what was made so far is older than anything made from here on, as file times tell it.
bool WinFileWatcherLinuxTest::becomesQuiet() const
{
    struct stat now = {};
    writeFile(m_directory->filePath(text("now")), "now");
    stat(QFile::encodeName(m_directory->filePath(text("now"))).constData(), &now);
    return QTest::qWaitFor(
        [&] {
            timespec clock = {};
            clock_gettime(CLOCK_REALTIME_COARSE, &clock);
            const qint64 seconds = clock.tv_sec - now.st_ctim.tv_sec;
            return seconds * 1000000000 + clock.tv_nsec - now.st_ctim.tv_nsec > 20000000;
        },
        deadline());
}

void WinFileWatcherLinuxTest::oneThreadWatchesAllRoots()
{
    const int before = threads().size();
    Watch watch({m_root, m_outside, m_markers});
    watch.connect();
    QVERIFY(watch.catchUp(m_outside));
    QCOMPARE(threads().size(), before + 1);
}

void WinFileWatcherLinuxTest::quietTreeIsNotReportedAtTheStart()
{
    writeFile(inRoot("a/b/c/file"), "content");
    writeFile(inRoot("file"), "content");
    QVERIFY(QDir().mkpath(inRoot("a/empty")));
    QVERIFY(becomesQuiet());

    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    for (const QString& directory : watch.reported())
        QVERIFY2(directory.startsWith(m_markers), qPrintable(directory));
}

void WinFileWatcherLinuxTest::changesBeforeTheFirstConnectionAreReported()
{
    for (const char* directory : {"written", "removed", "renamed/deep", "moved/from", "to", "quiet"})
        writeFile(inRoot(directory) + text("/file"), "content");
    QVERIFY(becomesQuiet());

    Watch watch({m_root});
    writeFile(inRoot("written/file"), "new content");
    QVERIFY(QFile::remove(inRoot("removed/file")));
    QVERIFY(QDir().rename(inRoot("renamed"), inRoot("renamed 2")));
    QVERIFY(QDir().rename(inRoot("moved/from"), inRoot("to/from")));
    writeFile(inRoot("made/a/b/file"), "content");
    watch.connect();

    for (const char* directory : {"written", "removed", "moved", "to", "made", "made/a", "made/a/b"})
        EVENTUALLY(watch.hasReported(inRoot(directory)));
    EVENTUALLY(watch.hasReported(m_root));
    QVERIFY(!watch.hasReported(inRoot("quiet")));

    watch.forget();
    writeFile(inRoot("renamed 2/deep/file"), "new content");
    writeFile(inRoot("to/from/file"), "new content");
    EVENTUALLY(watch.hasReported(inRoot("renamed 2/deep")));
    EVENTUALLY(watch.hasReported(inRoot("to/from")));
}

void WinFileWatcherLinuxTest::changesWhileTheTreeIsReadAreReported()
{
    for (const char* directory : {"one/a", "two/a", "gate/a"})
        writeFile(inRoot(directory) + text("/file"), "content");
    QVERIFY(becomesQuiet());

    Gate gate("gate");
    Watch watch({m_root});
    watch.connect();
    EVENTUALLY(gate.isReached()); // the other two may have been read already, or not
    for (const char* directory : {"one", "two", "gate"}) {
        writeFile(inRoot(directory) + text("/a/file"), "new content");
        writeFile(inRoot(directory) + text("/new/a/file"), "content");
    }
    gate.open();
    for (const char* directory : {"one", "two", "gate"}) {
        EVENTUALLY(watch.hasReported(inRoot(directory)));
        EVENTUALLY(watch.hasReported(inRoot(directory) + text("/a")));
        EVENTUALLY(watch.hasReported(inRoot(directory) + text("/new/a")));
    }
}

void WinFileWatcherLinuxTest::renamesWhileTheTreeIsReadAreFollowed()
{
    for (const char* directory : {"one/a/deep", "two/a/deep", "gate/a/deep"})
        QVERIFY(QDir().mkpath(inRoot(directory)));
    Gate gate("gate");
    Watch watch({m_root});
    watch.connect();
    EVENTUALLY(gate.isReached());
    QVERIFY(QDir().rename(inRoot("one/a"), inRoot("gate/b")));
    QVERIFY(QDir().rename(inRoot("gate/a"), inRoot("two/c")));
    QVERIFY(QDir().rename(inRoot("two/a"), inRoot("one/d")));
    QVERIFY(QDir().rename(inRoot("gate"), inRoot("three")));
    gate.open();
    QVERIFY(watch.catchUp(m_markers));
    watch.forget();
    for (const char* directory : {"three/b/deep", "two/c/deep", "one/d/deep"}) {
        writeFile(inRoot(directory) + text("/file"), "content");
        EVENTUALLY(watch.hasReported(inRoot(directory)));
    }
}

void WinFileWatcherLinuxTest::directoryMovedAwayBeforeItIsKnownIsFollowed()
{
    QVERIFY(QDir().mkpath(inRoot("a/b")));
    QVERIFY(becomesQuiet());
    Watch watch({m_root});
    Blocker blocker(watch.watcher());
    watch.connect();
    writeFile(inRoot("a/file"), "content");
    EVENTUALLY(blocker.isReached());
    // The notification of the new directories names them under a path that is no longer theirs, or worse:
    // is that of others.
    QVERIFY(QDir().mkpath(inRoot("a/b/new/deep")));
    QVERIFY(QDir().rename(inRoot("a"), inRoot("c")));
    QVERIFY(QDir().mkpath(inRoot("a/b/new/deep")));
    blocker.open();
    QVERIFY(watch.catchUp(m_markers));
    watch.forget();
    for (const char* directory : {"a/b/new/deep", "c/b/new/deep"}) {
        writeFile(inRoot(directory) + text("/file"), "content");
        EVENTUALLY(watch.hasReported(inRoot(directory)));
    }
    EVENTUALLY(watchCount() == directoriesIn(m_root).size() + 1);
}

void WinFileWatcherLinuxTest::directoryMovedOutWhileItIsTakenUpIsNotReported()
{
    const QString gone = m_outside + text("/leaving");
    QVERIFY(QDir().mkpath(inRoot("a/leaving/deep")));
    theSystem.watchBegins = [&](const QByteArray& name) {
        if (name == "leaving") // opened already, and now out of sight
            QDir().rename(inRoot("a/leaving"), gone);
        return 0;
    };
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    QVERIFY(QFile::exists(gone));
    watch.forget();
    writeFile(gone + text("/deep/file"), "content");
    QVERIFY(watch.catchUp(m_markers));
    for (const QString& directory : watch.reported())
        QVERIFY2(directory.startsWith(m_markers), qPrintable(directory));
    EVENTUALLY(watchCount() == directoriesIn(m_root).size() + 1);
}

void WinFileWatcherLinuxTest::directoryReplacedByALinkIsNotFollowed()
{
    QVERIFY(QDir().mkpath(m_outside + text("/deep")));
    QVERIFY(QDir().mkpath(inRoot("a/one")));
    QVERIFY(QDir().mkpath(inRoot("a/two")));
    int taken = 0;
    theSystem.watchBegins = [&](const QByteArray& name) {
        // Both names have been read when the first of them is taken up.
        if ((name == "one" || name == "two") && taken++ == 0) {
            const QString other = name == "one" ? inRoot("a/two") : inRoot("a/one");
            QDir().rmdir(other);
            QFile::link(m_outside, other);
        }
        return 0;
    };
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    EVENTUALLY(watchCount() == directoriesIn(m_root).size() + 1);
    watch.stop();
    QCOMPARE(taken, 1);
}

void WinFileWatcherLinuxTest::fileUnderARootIsNoRoot()
{
    writeFile(inRoot("file"), "content");
    Watch watch({inRoot("file")});
    QVERIFY(!watch.watcher().isRunning());
    QVERIFY(log().contains(text("Unable CreateFile failed for path  ") + inRoot("file")));
    QCOMPARE(watchCount(), 0);
}

void WinFileWatcherLinuxTest::linksAreNotFollowed()
{
    QVERIFY(QDir().mkpath(inRoot("a/b")));
    QVERIFY(QFile::link(m_root, inRoot("a/b/loop")));
    QVERIFY(QFile::link(m_outside, inRoot("a/outside")));
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    QVERIFY(QFile::link(m_root, inRoot("a/loop"))); // while it is watched
    QVERIFY(watch.catchUp(m_markers));
    watch.forget();
    writeFile(m_outside + text("/file"), "content");
    QVERIFY(watch.catchUp(m_markers));
    QVERIFY(!watch.hasReported(inRoot("a/outside")));
    EVENTUALLY(watchCount() == directoriesIn(m_root).size() + 1);
}

void WinFileWatcherLinuxTest::rootMayBeALink()
{
    QVERIFY(QDir().mkpath(inRoot("a")));
    const QString link = m_outside + text("/link");
    QVERIFY(QFile::link(m_root, link));
    Watch watch({link});
    watch.connect();
    QVERIFY(watch.catchUp(link + text("/markers")));
    writeFile(inRoot("a/file"), "content");
    EVENTUALLY(watch.hasReported(link + text("/a")));
}

void WinFileWatcherLinuxTest::lostNotificationsReportTheRoot()
{
    QVERIFY(QDir().mkpath(inRoot("busy")));
    QVERIFY(becomesQuiet());
    Watch watch({m_outside, m_root});
    Blocker blocker(watch.watcher());
    watch.connect();
    writeFile(inRoot("busy/first"), "content");
    EVENTUALLY(blocker.isReached());
    QVERIFY(watch.reported().isEmpty());
    const int files = maxQueuedEvents() / 2 + 1000; // each is created and closed
    for (int i = 0; i < files; ++i)
        writeFile(inRoot("busy/") + QString::number(i), {});
    blocker.open();
    EVENTUALLY(watch.hasReported(m_root));
    QVERIFY(!watch.hasReported(m_outside));
    QVERIFY(log().contains(text("Filename changed    action  0")));
}

void WinFileWatcherLinuxTest::directoriesMadeWhileNotificationsWereLostAreWatched()
{
    QVERIFY(QDir().mkpath(inRoot("old/name")));
    QVERIFY(becomesQuiet());
    Watch watch({m_root});
    Blocker blocker(watch.watcher());
    watch.connect();
    writeFile(inRoot("file"), "content");
    EVENTUALLY(blocker.isReached());
    for (int i = 0; i < maxQueuedEvents() + 1000; ++i) // two each
        QVERIFY(QFile::rename(inRoot("file") + (i == 0 ? QString() : QString::number(i)),
                              inRoot("file") + QString::number(i + 1)));
    QVERIFY(QDir().mkpath(inRoot("new/a/b")));
    QVERIFY(QDir().rename(inRoot("old"), inRoot("renamed")));
    blocker.open();
    QVERIFY(watch.catchUp(m_markers));
    QVERIFY(watch.hasReported(m_root));
    watch.forget();
    for (const char* directory : {"new/a/b", "renamed/name"}) {
        writeFile(inRoot(directory) + text("/file"), "content");
        EVENTUALLY(watch.hasReported(inRoot(directory)));
    }
    EVENTUALLY(watchCount() == directoriesIn(m_root).size() + 1);
}

void WinFileWatcherLinuxTest::nothingStaysUnreportedAfterManyChangesThatNobodyRead_data()
{
    addSeeds(2);
}

void WinFileWatcherLinuxTest::nothingStaysUnreportedAfterManyChangesThatNobodyRead()
{
    QFETCH(quint32, seed);
    QRandomGenerator random(seed);
    const auto anyDirectory = [&] {
        QByteArray path = QFile::encodeName(inRoot("tree"));
        for (int depth = random.bounded(3); depth >= 0; --depth)
            path += "/d" + QByteArray::number(random.bounded(5));
        return path;
    };
    for (int i = 0; i < 50; ++i)
        QDir().mkpath(QFile::decodeName(anyDirectory()));
    const QByteArray busy = QFile::encodeName(inRoot("tree/busy"));
    QCOMPARE(mkdir(busy.constData(), 0700), 0);
    QVERIFY(becomesQuiet());
    Watch watch({m_root, m_outside});
    Blocker blocker(watch.watcher());
    watch.connect();
    writeFile(inRoot("tree/first"), "content");
    EVENTUALLY(blocker.isReached());

    const int changes = qMax(maxQueuedEvents() + 4000, qEnvironmentVariableIntValue("ORVEL_TEST_CHANGES"));
    for (int i = 0; i < changes;) {
        const QByteArray directory = anyDirectory();
        switch (random.bounded(400)) {
        case 0:
            i += mkdir(directory.constData(), 0700) == 0 ? 1 : 0;
            break;
        case 1:
            i += rename(directory.constData(), anyDirectory().constData()) == 0 ? 1 : 0;
            break;
        default: {
            // What is made meanwhile is not watched yet; every other change is one that is notified.
            const QByteArray file = (random.bounded(2) == 0 ? busy : directory) + QByteArrayLiteral("/f") +
                                    QByteArray::number(random.bounded(20));
            const FileDescriptor descriptor(open(file.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
            i += descriptor.isValid() && write(descriptor.get(), "x", 1) == 1 ? 1 : 0;
            break;
        }
        }
    }
    blocker.open();
    EVENTUALLY(watch.hasReported(m_root));
    QVERIFY(!watch.hasReported(m_outside));
    QVERIFY(watch.catchUp(m_markers));
    watch.forget();

    const QStringList directories = directoriesIn(inRoot("tree"));
    for (const QString& directory : directories)
        writeFile(directory + text("/last"), "content");
    for (const QString& directory : directories)
        EVENTUALLY(watch.hasReported(directory));
}

void WinFileWatcherLinuxTest::watchLimitIsLoggedOnceAndTheRestIsWatched()
{
    for (const char* directory : {"a/full 1/deep", "a/full 2", "b/c"})
        writeFile(inRoot(directory) + text("/file"), "content");
    QVERIFY(becomesQuiet());
    theSystem.watchBegins = [](const QByteArray& name) {
        return name.startsWith("full") ? ENOSPC : 0;
    };

    Watch watch({m_root});
    writeFile(inRoot("a/full 1/deep/file"), "new content"); // what has changed by now is seen all the same
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    QVERIFY(watch.hasReported(inRoot("a/full 1/deep")));
    QVERIFY(!watch.hasReported(inRoot("a/full 2")));
    watch.forget();

    writeFile(inRoot("a/file"), "content");
    writeFile(inRoot("b/c/file"), "new content");
    QVERIFY(QDir().rename(inRoot("a/full 2"), inRoot("b/full 2")));
    EVENTUALLY(watch.hasReported(inRoot("a")));
    EVENTUALLY(watch.hasReported(inRoot("b")));
    EVENTUALLY(watch.hasReported(inRoot("b/c")));

    writeFile(m_outside + text("/full 3/deep/file"), "content");
    QVERIFY(QDir().rename(m_outside + text("/full 3"), inRoot("full 3")));
    EVENTUALLY(watch.hasReported(inRoot("full 3/deep"))); // seen this once

    QCOMPARE(log().filter(text("Watch limit reached")).size(), 1);
}

void WinFileWatcherLinuxTest::partThatCannotBeWatchedIsReportedWithItsRootFromTimeToTime()
{
    writeFile(inRoot("a/full/file"), "content");
    QVERIFY(becomesQuiet());
    theSystem.watchBegins = [](const QByteArray& name) {
        return name == "full" ? ENOSPC : 0;
    };
    WatchedTree::recheckPause = 20;
    Watch watch({m_root, m_outside});
    watch.connect();
    for (int time = 0; time < 3; ++time) {
        watch.forget();
        writeFile(inRoot("a/full/file"), QByteArray::number(time));
        EVENTUALLY(watch.hasReported(m_root));
    }
    QVERIFY(!watch.hasReported(m_outside)); // of which nothing was missed
}

void WinFileWatcherLinuxTest::queueThatCannotBeHadAfterALossIsAskedForAgain()
{
    QVERIFY(QDir().mkpath(inRoot("a/b")));
    WatchedTree::recheckPause = 20;
    Watch watch({m_root});
    Blocker blocker(watch.watcher());
    watch.connect();
    writeFile(inRoot("file"), "content");
    EVENTUALLY(blocker.isReached());
    theSystem.refusedQueues = 3;
    for (int i = 0; i < maxQueuedEvents() + 1000; ++i) // two each
        QVERIFY(QFile::rename(inRoot("file") + (i == 0 ? QString() : QString::number(i)),
                              inRoot("file") + QString::number(i + 1)));
    blocker.open();
    EVENTUALLY_EQUAL(theSystem.refusedQueues, 0);
    QVERIFY(watch.catchUp(m_markers));
    QVERIFY(watch.hasReported(m_root));
    writeFile(inRoot("a/b/file"), "content");
    EVENTUALLY(watch.hasReported(inRoot("a/b")));
    QCOMPARE(log().filter(text("Watch limit reached")).size(), 1);
}

void WinFileWatcherLinuxTest::watchLimitForTheRootSwitchesTheWatcherOff()
{
    theSystem.watchBegins = [](const QByteArray&) {
        return ENOSPC;
    };
    Watch watch({m_root});
    QVERIFY(!watch.watcher().isRunning());
    QCOMPARE(log().filter(text("Watch limit reached")).size(), 1);
    QCOMPARE(log().last(), text("Unable CreateFile failed for path  ") + m_root);
}

void WinFileWatcherLinuxTest::stopEndsTheReadingOfTheTree()
{
    for (int i = 0; i < 1000; ++i)
        QVERIFY(QDir().mkpath(inRoot("a/") + QString::number(i)));
    std::atomic<int> begun{0};
    theSystem.watchBegins = [&begun](const QByteArray&) {
        if (++begun == 100) {
            while (!QThread::currentThread()->isInterruptionRequested())
                sched_yield();
        }
        return 0;
    };
    Watch watch({m_root});
    watch.connect();
    EVENTUALLY(begun == 100);
    watch.stop();
    QVERIFY(begun <= 101);
    QCOMPARE(log().last(), text("Watcher stop"));
}

void WinFileWatcherLinuxTest::stopBeforeAnybodyIsConnected()
{
    Watch watch({m_root});
    writeFile(inRoot("file"), "content");
    watch.stop();
    QCOMPARE(log().last(), text("Watcher stop"));
}

void WinFileWatcherLinuxTest::removedRootIsReportedAndTheThreadSleeps()
{
    writeFile(inRoot("a/b/file"), "content");
    const QStringList before = threads();
    Watch watch({m_root, m_outside});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    const QStringList all = threads();
    const auto own = std::find_if(all.cbegin(), all.cend(), [&](const QString& id) { return !before.contains(id); });
    QVERIFY(own != all.cend());
    watch.forget();

    QVERIFY(QDir(m_root).removeRecursively());
    EVENTUALLY(watch.hasReported(m_root));
    QVERIFY(QDir().mkpath(inRoot("a")));
    QVERIFY(watch.catchUp(m_outside)); // the other root is still watched
    QVERIFY(restsNow(*own));
}

void WinFileWatcherLinuxTest::renamedRootIsReportedAndTheThreadSleeps()
{
    const QStringList before = threads();
    Watch watch({m_root, m_outside});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    const QStringList all = threads();
    const auto own = std::find_if(all.cbegin(), all.cend(), [&](const QString& id) { return !before.contains(id); });
    QVERIFY(own != all.cend());
    watch.forget();

    const QString renamed = m_directory->filePath(text("renamed"));
    QVERIFY(QDir().rename(m_root, renamed));
    EVENTUALLY(watch.hasReported(m_root));
    watch.forget();
    QVERIFY(QDir().mkpath(inRoot("a"))); // another directory with the root's path
    QVERIFY(QDir().mkpath(renamed + text("/a/b")));
    writeFile(renamed + text("/markers/file"), "content");
    QVERIFY(watch.catchUp(m_outside));
    QCOMPARE(watch.reported().filter(m_root), QStringList());
    QVERIFY(restsNow(*own));
}

void WinFileWatcherLinuxTest::rootThatComesBackIsReportedAndWatchedAgain()
{
    WatchedTree::recheckPause = 20;
    Watch watch({m_root, m_outside});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    const QString away = m_directory->filePath(text("away"));
    for (const bool isSame : {true, false}) {
        watch.forget();
        QVERIFY(QDir().rename(m_root, away));
        EVENTUALLY(watch.hasReported(m_root));
        QVERIFY(watch.catchUp(m_outside));
        watch.forget();
        QVERIFY(isSame ? QDir().rename(away, m_root) : QDir().mkpath(inRoot("new")));
        EVENTUALLY(watch.hasReported(m_root));
        QVERIFY(watch.catchUp(isSame ? m_markers : inRoot("new")));
    }
}

void WinFileWatcherLinuxTest::diskThatIsUnmountedIsReportedAndWatchedAgainWhenItIsBack_data()
{
    QTest::addColumn<QString>("beneath");
    QTest::newRow("the root is on it") << text("/root");
    QTest::newRow("the root is its mount point") << QString();
}

void WinFileWatcherLinuxTest::diskThatIsUnmountedIsReportedAndWatchedAgainWhenItIsBack()
{
    QFETCH(QString, beneath);
    const QString disk = m_directory->filePath(text("disk"));
    const QString root = disk + beneath;
    QVERIFY(QDir().mkpath(disk));
    // Mounts of this test are nobody else's.
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        QSKIP("this user may not mount");
    const QByteArray mountPoint = QFile::encodeName(disk);
    const auto unmount = [&] {
        return umount2(mountPoint.constData(), 0) == 0; // not while the watcher reads
    };
    QCOMPARE(mount("none", mountPoint.constData(), "tmpfs", 0, nullptr), 0);
    writeFile(root + text("/a/b/file"), "content");
    const QStringList before = threads();
    Watch watch({root, m_outside});
    watch.connect();
    QVERIFY(watch.catchUp(root + text("/a/b")));
    const QStringList all = threads();
    const auto own = std::find_if(all.cbegin(), all.cend(), [&](const QString& id) { return !before.contains(id); });
    QVERIFY(own != all.cend());
    watch.forget();

    QVERIFY(QTest::qWaitFor(unmount, deadline())); // the watcher keeps nothing open on it
    EVENTUALLY(watch.hasReported(root));
    QVERIFY(watch.catchUp(m_outside)); // the other root is still watched
    watch.forget();
    QVERIFY(restsNow(*own));
    QCOMPARE(watch.reported().filter(disk), QStringList());

    WatchedTree::recheckPause = 20; // for a root that comes after the mount
    QCOMPARE(mount("none", mountPoint.constData(), "tmpfs", 0, nullptr), 0);
    QVERIFY(QDir().mkpath(root + text("/a")));
    EVENTUALLY(watch.hasReported(root));
    QVERIFY(watch.catchUp(root + text("/a")));
    QVERIFY(QTest::qWaitFor(unmount, deadline()));
}

void WinFileWatcherLinuxTest::diskThatIsTakenAwayWhileItIsUsedIsReportedAndWatchedAgain()
{
    const QString disk = m_directory->filePath(text("disk"));
    const QString content = m_directory->filePath(text("content"));
    QVERIFY(QDir().mkpath(disk) && QDir().mkpath(content + text("/root/a")));
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        QSKIP("this user may not mount");
    const QByteArray mountPoint = QFile::encodeName(disk);
    const auto plugIn = [&] {
        return mount(QFile::encodeName(content).constData(), mountPoint.constData(), nullptr, MS_BIND, nullptr) == 0;
    };
    QVERIFY(plugIn());
    const QString root = disk + text("/root");
    Watch watch({root, m_outside});
    watch.connect();
    QVERIFY(watch.catchUp(root + text("/a")));
    for (int time = 0; time < 3; ++time) {
        watch.forget();
        QCOMPARE(umount2(mountPoint.constData(), MNT_DETACH), 0); // of which no directory is notified
        EVENTUALLY(watch.hasReported(root));
        QVERIFY(watch.catchUp(m_outside));
        watch.forget();
        QVERIFY(plugIn());
        EVENTUALLY(watch.hasReported(root));
        QVERIFY(watch.catchUp(root + text("/a")));
    }
    QCOMPARE(umount2(mountPoint.constData(), MNT_DETACH), 0);
}

void WinFileWatcherLinuxTest::watchesOfAMovedOutTreeAreRemoved()
{
    for (int i = 0; i < 3000; ++i)
        QVERIFY(QDir().mkpath(inRoot("tree/a/") + QString::number(i)));
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    QVERIFY(watchCount() > 3000);
    watch.forget();
    clearLog();
    QVERIFY(QDir().rename(inRoot("tree"), m_outside + text("/tree")));
    EVENTUALLY(watchCount() == directoriesIn(m_root).size() + 1);
    QVERIFY(watch.catchUp(m_markers));
    QVERIFY(!log().contains(text("Filename changed    action  0"))); // the removal itself has lost nothing
}

void WinFileWatcherLinuxTest::swappedDirectoriesAreWatchedUnderTheirNewNames()
{
    QVERIFY(QDir().mkpath(inRoot("one/first/deep")));
    QVERIFY(QDir().mkpath(inRoot("two/second/deep")));
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    const QByteArray one = QFile::encodeName(inRoot("one"));
    const QByteArray two = QFile::encodeName(inRoot("two/second"));
    for (int i = 0; i < 100; ++i) {
        QCOMPARE(renameat2(AT_FDCWD, one.constData(), AT_FDCWD, two.constData(), RENAME_EXCHANGE), 0);
        if (i % 3 == 0)
            QVERIFY(watch.catchUp(m_markers)); // else the swap is still to be found out
        watch.forget();
        const bool isSwapped = i % 2 == 0;
        for (const char* directory :
             {isSwapped ? "one/deep" : "one/first/deep", isSwapped ? "two/second/first/deep" : "two/second/deep"}) {
            writeFile(inRoot(directory) + text("/file"), QByteArray::number(i));
            EVENTUALLY(watch.hasReported(inRoot(directory)));
        }
    }
    EVENTUALLY(watchCount() == directoriesIn(m_root).size() + 1);
}

void WinFileWatcherLinuxTest::unreadableDirectoryIsWatchedOnceItIsReadable()
{
    const QString closed = inRoot("closed");
    writeFile(closed + text("/deep/file"), "content");
    QVERIFY(QFile::setPermissions(closed, {}));
    const std::unique_ptr<Unprivileged> unprivileged = dropPrivileges();
    if (!unprivileged)
        QSKIP("permissions do not bind this user");
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    QVERIFY(QFile::setPermissions(closed, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    EVENTUALLY(watch.hasReported(closed + text("/deep")));
    watch.forget();
    writeFile(closed + text("/deep/file"), "new content");
    EVENTUALLY(watch.hasReported(closed + text("/deep")));
}

void WinFileWatcherLinuxTest::modificationTimeSetByHandIsReported()
{
    writeFile(inRoot("a/file"), "content");
    QVERIFY(becomesQuiet());
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    QVERIFY(!watch.hasReported(inRoot("a")));
    const timespec times[2] = {{1000000000, 0}, {1000000000, 0}};
    QCOMPARE(utimensat(AT_FDCWD, QFile::encodeName(inRoot("a/file")).constData(), times, 0), 0);
    EVENTUALLY(watch.hasReported(inRoot("a")));
}

void WinFileWatcherLinuxTest::mappedWriteIsReportedWhenTheFileIsClosed()
{
    writeFile(inRoot("a/file"), "content");
    QVERIFY(becomesQuiet());
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    QFile file(inRoot("a/file"));
    QVERIFY(file.open(QIODevice::ReadWrite));
    uchar* const mapped = file.map(0, 7);
    QVERIFY(mapped != nullptr);
    mapped[0] = 'C';
    QVERIFY(file.unmap(mapped));
    QVERIFY(watch.catchUp(m_markers));
    QVERIFY(!watch.hasReported(inRoot("a")));
    file.close();
    EVENTUALLY(watch.hasReported(inRoot("a")));
}

void WinFileWatcherLinuxTest::pathsLongerThanTheSystemTakesAreWatched()
{
    const QByteArray name(100, 'n');
    const int before = open(QFile::encodeName(m_root).constData(), O_RDONLY | O_DIRECTORY);
    QVERIFY(before >= 0);
    int descriptor = before;
    QString path = m_root;
    const auto descend = [&] {
        if (mkdirat(descriptor, name.constData(), 0700) != 0)
            return false;
        const int next = openat(descriptor, name.constData(), O_RDONLY | O_DIRECTORY);
        close(descriptor);
        descriptor = next;
        path += QLatin1Char('/') + QFile::decodeName(name);
        return next >= 0;
    };
    for (int i = 0; i < 150; ++i)
        QVERIFY(descend());
    QVERIFY(becomesQuiet());

    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    QVERIFY(!watch.hasReported(path));
    for (int i = 0; i < 70; ++i)
        QVERIFY(descend());
    QVERIFY(watch.catchUp(m_markers));
    watch.forget();
    close(openat(descriptor, "file", O_CREAT | O_WRONLY, 0600));
    EVENTUALLY(watch.hasReported(path));

    // What the test's own directory cannot remove by its path.
    for (int i = 0; i < 220; ++i) {
        const int parent = openat(descriptor, "..", O_RDONLY | O_DIRECTORY);
        unlinkat(descriptor, "file", 0);
        close(descriptor);
        QCOMPARE(unlinkat(parent, name.constData(), AT_REMOVEDIR), 0);
        descriptor = parent;
    }
    close(descriptor);
}

void WinFileWatcherLinuxTest::currentDirectoryOfTheProgramStays()
{
    const QString before = QDir::currentPath();
    QVERIFY(QDir().mkpath(inRoot("a/b/c")));
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    QCOMPARE(QDir::currentPath(), before);
}

void WinFileWatcherLinuxTest::watcherWorksWithoutACurrentDirectoryOfItsOwn()
{
    theSystem.refusesOwnCurrentDirectory = true;
    const QString before = QDir::currentPath();
    QVERIFY(QDir().mkpath(inRoot("a/b")));
    QVERIFY(QFile::link(m_root, inRoot("a/link")));
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    writeFile(inRoot("a/b/file"), "content");
    writeFile(inRoot("new/deep/file"), "content");
    EVENTUALLY(watch.hasReported(inRoot("a/b")));
    EVENTUALLY(watch.hasReported(inRoot("new/deep")));
    EVENTUALLY(watchCount() == directoriesIn(m_root).size() + 1);
    QCOMPARE(QDir::currentPath(), before);
}

void WinFileWatcherLinuxTest::randomOperationsLeaveEveryDirectoryWatched_data()
{
    addSeeds(20);
}

void WinFileWatcherLinuxTest::randomOperationsLeaveEveryDirectoryWatched()
{
    QFETCH(quint32, seed);
    QRandomGenerator random(seed);
    const QString tree = inRoot("tree");
    const auto anyName = [&] {
        return QString(QLatin1Char('a')) + QString::number(random.bounded(4));
    };
    const auto anyIn = [&](const QString& where) {
        QString path = where;
        for (int depth = random.bounded(5); depth >= 0; --depth)
            path += QLatin1Char('/') + anyName();
        return path;
    };
    for (int i = 0; i < 30; ++i)
        QDir().mkpath(anyIn(tree));

    // Every other time both sides dawdle now and then, as they do on a computer with more to do.
    const bool dawdle = seed % 2 == 0;
    QRandomGenerator watchersRandom(seed);
    if (dawdle) {
        theSystem.watchBegins = [&watchersRandom](const QByteArray&) {
            if (watchersRandom.bounded(4) == 0)
                QThread::usleep(watchersRandom.bounded(300));
            return 0;
        };
    }
    Watch watch({m_root});
    watch.connect(); // the tree is read while the operations go on
    for (int i = 0; i < 2000; ++i) {
        if (dawdle && random.bounded(8) == 0)
            QThread::usleep(random.bounded(300));
        const QString from = anyIn(random.bounded(5) == 0 ? m_outside : tree);
        const QString to = anyIn(random.bounded(5) == 0 ? m_outside : tree);
        const QByteArray fromName = QFile::encodeName(from);
        const QByteArray toName = QFile::encodeName(to);
        switch (random.bounded(6)) {
        case 0:
            QDir().mkpath(to);
            break;
        case 1:
            rmdir(toName.constData());
            break;
        case 2:
            renameat2(AT_FDCWD, fromName.constData(), AT_FDCWD, toName.constData(), RENAME_EXCHANGE);
            break;
        default:
            rename(fromName.constData(), toName.constData());
            break;
        }
    }
    QVERIFY(watch.catchUp(m_markers));
    watch.forget();

    const QStringList inside = directoriesIn(tree);
    for (const QString& directory : inside)
        writeFile(directory + text("/file"), "content");
    for (const QString& directory : directoriesIn(m_outside))
        writeFile(directory + text("/file"), "content");
    for (const QString& directory : inside)
        EVENTUALLY(watch.hasReported(directory));
    QVERIFY(watch.catchUp(m_markers));
    const QStringList reported = watch.reported();
    for (const QString& directory : reported)
        QVERIFY2(inside.contains(directory) || directory.startsWith(m_markers), qPrintable(directory));
    EVENTUALLY(watchCount() == directoriesIn(m_root).size() + 1);
}

QTEST_GUILESS_MAIN(WinFileWatcherLinuxTest)
#include "winfilewatcher_linux_test.moc"
