#include "syncfolder/winfilewatcher.h"

#include "tests/syncfolder/watch.h"

#include <QDir>
#include <QElapsedTimer>
#include <QMetaMethod>
#include <QPointer>
#include <QSemaphore>
#include <QTemporaryDir>

#include <atomic>
#include <memory>
#include <vector>

namespace
{

QString text(const char* utf8)
{
    return QString::fromUtf8(utf8);
}

QString entryLine(const QString& name, int action)
{
    return text("Filename changed  %1  action  %2").arg(QDir::toNativeSeparators(name)).arg(action);
}

#ifdef Q_OS_WIN
constexpr bool followsMovedTrees = false; // Wine does not; Windows does
#else
constexpr bool followsMovedTrees = true;
#endif

constexpr int moves = 100;

} // namespace

class WinFileWatcherTest final : public Test
{
    Q_OBJECT

    /// All stay until the end: Wine takes a new directory for a removed one that had the same inode.
    std::vector<std::unique_ptr<QTemporaryDir>> m_directories;
    QString m_root;    ///< the watched one
    QString m_outside; ///< a directory beside it
    QString m_markers; ///< in the root, for Watch::catchUp()

protected:
    void setUp() override;

    QString inDirectory(const char* name) const
    {
        return m_directories.back()->filePath(text(name));
    }

private slots:
    void onlySignalIsPathsChanged();
    void emptyListStartsNoThread();
    void pathThatDoesNotExistSwitchesTheWholeWatcherOff();
    void startIsLogged();
    void fileWrittenThreeLevelsDownReportsItsDirectory();
    void subdirectoryCreatedInTheRootReportsTheRoot();
    void renameReportsTheDirectoryForBothNames();
    void fileWrittenAgainIsReported();
    void removedFileIsReported();
    void removedDirectoryIsReported();
    void everyRootIsWatched();
    void directoriesMadeAtOnceAreReportedDownToTheFile();
    void renamedDirectoryIsWatchedUnderItsNewName();
    void directoryMovedWithinTheRootIsWatchedInItsNewPlace();
    void movedInTreeIsWatched();
    void entriesOfAMovedInTreeAreLoggedAsAddedOnce();
    void movedOutTreeIsNoLongerReported();
    void treeMovedOutAndInAgainIsWatched();
    void namesInAnyScriptAreReported();
    void burstOfFilesIsReported();
    void destructionWhileWaitingStopsSoon();
    void watcherThatHangsIsLeftToItself();
};

void WinFileWatcherTest::setUp()
{
    m_directories.push_back(std::make_unique<QTemporaryDir>());
    QVERIFY(m_directories.back()->isValid());
    m_root = inDirectory("root");
    m_outside = inDirectory("outside");
    QVERIFY(QDir().mkpath(m_root));
    m_markers = m_root + text("/markers");
    QVERIFY(QDir().mkpath(m_markers));
    QVERIFY(QDir().mkpath(m_outside));
}

void WinFileWatcherTest::onlySignalIsPathsChanged()
{
    const QMetaObject& meta = WinFileWatcher::staticMetaObject;
    QCOMPARE(meta.methodCount() - meta.methodOffset(), 1);
    QCOMPARE(meta.method(meta.methodOffset()).methodSignature(), QByteArray("pathsChanged(QStringList*)"));
    QCOMPARE(meta.method(meta.methodOffset()).methodType(), QMetaMethod::Signal);
}

void WinFileWatcherTest::emptyListStartsNoThread()
{
    Watch watch({});
    watch.connect();
    QVERIFY(!watch.watcher().isRunning());
    QVERIFY(!watch.watcher().isFinished());
    watch.stop();
    QCOMPARE(log(), QStringList(text("Win file watcher paths:  ")));
}

void WinFileWatcherTest::pathThatDoesNotExistSwitchesTheWholeWatcherOff()
{
    const QString missing = inDirectory("missing");
    Watch off({m_root, missing, m_outside});
    off.connect();
    QCOMPARE(log(),
             QStringList({text("Win file watcher paths:  ") + m_root + text(" ") + missing + text(" ") + m_outside,
                          text("Unable CreateFile failed for path  ") + missing}));
    QVERIFY(!off.watcher().isRunning());
    QVERIFY(!off.watcher().isFinished());

    // Once another watcher has seen the change, this one would have, too.
    Watch on({m_root});
    on.connect();
    QVERIFY(on.catchUp(m_markers));
    off.stop();
    QCOMPARE(off.reported(), QStringList());
}

void WinFileWatcherTest::startIsLogged()
{
    Watch watch({m_root, m_outside});
    QVERIFY(watch.watcher().isRunning());
    QCOMPARE(log(),
             QStringList({text("Win file watcher paths:  ") + m_root + text(" ") + m_outside, text("size 16384")}));
}

void WinFileWatcherTest::fileWrittenThreeLevelsDownReportsItsDirectory()
{
    const QString deep = m_root + text("/a/b/c");
    QVERIFY(QDir().mkpath(deep));
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(deep));
    watch.forget();

    writeFile(deep + text("/file"), "content");
    EVENTUALLY(watch.hasReported(deep));
    EVENTUALLY(log().contains(entryLine(text("a/b/c/file"), 1)));
}

void WinFileWatcherTest::subdirectoryCreatedInTheRootReportsTheRoot()
{
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    watch.forget();

    QVERIFY(QDir(m_root).mkdir(text("new")));
    EVENTUALLY(watch.hasReported(m_root));
    EVENTUALLY(log().contains(entryLine(text("new"), 1)));
}

void WinFileWatcherTest::renameReportsTheDirectoryForBothNames()
{
    const QString directory = m_root + text("/a");
    QVERIFY(QDir().mkpath(directory));
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(directory));
    writeFile(directory + text("/old"), "content");
    QVERIFY(watch.catchUp(directory));
    watch.forget();

    QVERIFY(QFile::rename(directory + text("/old"), directory + text("/new")));
    EVENTUALLY(watch.reported().count(directory) >= 2);
    EVENTUALLY(log().contains(entryLine(text("a/old"), 4)));
    EVENTUALLY(log().contains(entryLine(text("a/new"), 5)));
}

void WinFileWatcherTest::fileWrittenAgainIsReported()
{
    const QString directory = m_root + text("/a");
    QVERIFY(QDir().mkpath(directory));
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(directory));
    writeFile(directory + text("/file"), "content");
    QVERIFY(watch.catchUp(directory));
    watch.forget();

    const auto reported = [&] {
        QFile file(directory + text("/file"));
        return file.open(QIODevice::ReadWrite) && file.write("CONTENT") == 7 && // as long as before
               file.flush() && watch.hasReported(directory);
    };
    QVERIFY(QTest::qWaitFor(reported, deadline()));
    EVENTUALLY(log().contains(entryLine(text("a/file"), 3)));
}

void WinFileWatcherTest::removedFileIsReported()
{
    const QString directory = m_root + text("/a");
    QVERIFY(QDir().mkpath(directory));
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(directory));
    writeFile(directory + text("/file"), "content");
    QVERIFY(watch.catchUp(directory));
    watch.forget();

    QVERIFY(QFile::remove(directory + text("/file")));
    EVENTUALLY(watch.hasReported(directory));
    EVENTUALLY(log().contains(entryLine(text("a/file"), 2)));
}

void WinFileWatcherTest::removedDirectoryIsReported()
{
    QVERIFY(QDir().mkpath(m_root + text("/a/b/c")));
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    QVERIFY(watch.catchUp(m_root + text("/a/b/c")));
    watch.forget();

    QVERIFY(QDir(m_root + text("/a")).removeRecursively());
    EVENTUALLY(watch.hasReported(m_root));
    EVENTUALLY(watch.hasReported(m_root + text("/a")));
    EVENTUALLY(watch.hasReported(m_root + text("/a/b")));
    EVENTUALLY(watch.hasReported(m_root + text("/a/b/c")));

    QVERIFY(QDir().mkpath(m_root + text("/a/b"))); // the same names again
    QVERIFY(watch.catchUp(m_root + text("/a/b")));
    watch.forget();
    writeFile(m_root + text("/a/b/file"), "content");
    EVENTUALLY(watch.hasReported(m_root + text("/a/b")));
}

void WinFileWatcherTest::everyRootIsWatched()
{
    const QString third = inDirectory("third");
    QVERIFY(QDir().mkpath(third));
    Watch watch({m_root, m_outside, third});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    QVERIFY(watch.catchUp(m_outside));
    QVERIFY(watch.catchUp(third));
}

void WinFileWatcherTest::directoriesMadeAtOnceAreReportedDownToTheFile()
{
    if (!followsMovedTrees)
        QSKIP("Wine knows a moved directory by its old name, and sees nothing in one that comes with its content");
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    for (int i = 0; i < moves; ++i) {
        const QString top = m_root + text("/top") + QString::number(i);
        writeFile(top + text("/a/b/c/file"), "content");
        EVENTUALLY(watch.hasReported(m_root));
        EVENTUALLY(watch.hasReported(top + text("/a/b/c")));
        watch.forget();
    }
}

void WinFileWatcherTest::renamedDirectoryIsWatchedUnderItsNewName()
{
    if (!followsMovedTrees)
        QSKIP("Wine knows a moved directory by its old name, and sees nothing in one that comes with its content");
    QVERIFY(QDir().mkpath(m_root + text("/tree0/a/b")));
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    for (int i = 0; i < moves; ++i) {
        const QString before = m_root + text("/tree") + QString::number(i);
        const QString after = m_root + text("/tree") + QString::number(i + 1);
        QVERIFY(QDir().rename(before, after));
        const bool isKnown = i % 2 == 0; // else it is still to be found out when the file is written
        QVERIFY(!isKnown || watch.catchUp(m_markers));
        watch.forget();
        writeFile(after + text("/a/b/file"), "content");
        EVENTUALLY(watch.hasReported(after + text("/a/b")));
        QVERIFY(!isKnown || !watch.hasReported(before + text("/a/b")));
    }
}

void WinFileWatcherTest::directoryMovedWithinTheRootIsWatchedInItsNewPlace()
{
    if (!followsMovedTrees)
        QSKIP("Wine knows a moved directory by its old name, and sees nothing in one that comes with its content");
    QVERIFY(QDir().mkpath(m_root + text("/place0/tree/a/b")));
    QVERIFY(QDir().mkpath(m_root + text("/place1/deeper")));
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    const QStringList places{m_root + text("/place0/tree"), m_root + text("/place1/deeper/tree")};
    for (int i = 0; i < moves; ++i) {
        const QString& before = places[i % 2];
        const QString& after = places[1 - i % 2];
        QVERIFY(QDir().rename(before, after));
        const bool isKnown = i % 4 < 2;
        QVERIFY(!isKnown || watch.catchUp(m_markers));
        watch.forget();
        writeFile(after + text("/a/b/file"), QByteArray::number(i));
        EVENTUALLY(watch.hasReported(after + text("/a/b")));
        QVERIFY(!isKnown || !watch.hasReported(before + text("/a/b")));
    }
}

void WinFileWatcherTest::movedInTreeIsWatched()
{
    if (!followsMovedTrees)
        QSKIP("Wine knows a moved directory by its old name, and sees nothing in one that comes with its content");
    for (int i = 0; i < moves; ++i)
        writeFile(m_outside + text("/tree") + QString::number(i) + text("/a/b/file"), "content");
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    for (int i = 0; i < moves; ++i) {
        const QString name = text("/tree") + QString::number(i);
        watch.forget();
        QVERIFY(QDir().rename(m_outside + name, m_root + name));
        if (i % 2 == 0) {
            EVENTUALLY(watch.hasReported(m_root));
            QVERIFY(watch.catchUp(m_markers));
            watch.forget();
        }
        writeFile(m_root + name + text("/a/b/file"), "content again");
        EVENTUALLY(watch.hasReported(m_root + name + text("/a/b")));
    }
}

void WinFileWatcherTest::entriesOfAMovedInTreeAreLoggedAsAddedOnce()
{
    if (!followsMovedTrees)
        QSKIP("Wine sees nothing in a directory that comes with its content");
    for (const char* name : {"/tree/one", "/tree/two"})
        writeFile(m_outside + text(name), "content");
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    clearLog();
    QVERIFY(QDir().rename(m_outside + text("/tree"), m_root + text("/tree")));
    EVENTUALLY(watch.hasReported(m_root + text("/tree")));
    QStringList lines = log().filter(text("Filename changed  tree/"));
    lines.sort();
    QCOMPARE(lines, QStringList({entryLine(text("tree/one"), 1), entryLine(text("tree/two"), 1)}));
}

void WinFileWatcherTest::movedOutTreeIsNoLongerReported()
{
    if (!followsMovedTrees)
        QSKIP("Wine knows a moved directory by its old name, and sees nothing in one that comes with its content");
    for (int i = 0; i < moves; ++i)
        writeFile(m_root + text("/tree") + QString::number(i) + text("/a/b/file"), "content");
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    for (int i = 0; i < moves; ++i) {
        const QString name = text("/tree") + QString::number(i);
        watch.forget();
        QVERIFY(QDir().rename(m_root + name, m_outside + name));
        EVENTUALLY(watch.hasReported(m_root));
        QVERIFY(watch.catchUp(m_markers));
        watch.forget();
        writeFile(m_outside + name + text("/a/b/file"), "content again");
        writeFile(m_outside + name + text("/new"), "content");
        QVERIFY(watch.catchUp(m_markers));
        for (const QString& directory : watch.reported())
            QVERIFY2(directory.startsWith(m_markers) || directory == m_root, qPrintable(directory));
    }
}

void WinFileWatcherTest::treeMovedOutAndInAgainIsWatched()
{
    if (!followsMovedTrees)
        QSKIP("Wine knows a moved directory by its old name, and sees nothing in one that comes with its content");
    QVERIFY(QDir().mkpath(m_root + text("/tree0/a/b")));
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    for (int i = 0; i < moves; ++i) {
        const QString out = m_outside + text("/tree");
        const QString in = m_root + text("/tree") + QString::number(i + 1);
        QVERIFY(QDir().rename(m_root + text("/tree") + QString::number(i), out));
        if (i % 2 == 0)
            QVERIFY(watch.catchUp(m_markers));
        QVERIFY(QDir().rename(out, in));
        if (i % 3 == 0)
            QVERIFY(watch.catchUp(m_markers));
        writeFile(in + text("/a/b/file"), "content");
        EVENTUALLY(watch.hasReported(in + text("/a/b")));
    }
}

void WinFileWatcherTest::namesInAnyScriptAreReported()
{
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    QString directory = m_root;
    const QStringList names{text("\u00dcbersicht"),
                            text("\u65e5\u672c\u8a9e"),
                            text("\u0440\u0443\u0441 \u0441\u043a\u0438\u0439"),
                            text("\U0001f4c1 \U0001f600"),
                            text("\u0627\u0644\u0639\u0631\u0628\u064a\u0629"),
                            text("e\u0301 'x' &")};
    for (int i = 0; i < 4; ++i) {
        for (const QString& name : names)
            directory += text("/") + name;
    }
    QVERIFY(QDir().mkpath(directory));
    QVERIFY(watch.catchUp(directory));
    watch.forget();
    writeFile(directory + text("/\u6587\u4ef6"), "content");
    EVENTUALLY(watch.hasReported(directory));
    QVERIFY(watch.catchUp(m_markers));
    watch.forget();
    writeFile(directory + text("/\u6587\u4ef6"), "content again");
    EVENTUALLY(watch.hasReported(directory));
}

void WinFileWatcherTest::burstOfFilesIsReported()
{
    const QString busy = m_root + text("/busy");
    QVERIFY(QDir().mkpath(busy));
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    QVERIFY(watch.catchUp(busy));
    watch.forget();
    for (int i = 0; i < 3000; ++i)
        writeFile(busy + text("/") + QString::number(i), "x");
    EVENTUALLY(watch.hasReported(busy) || watch.hasReported(m_root));

    QVERIFY(watch.catchUp(m_markers));
    watch.forget();
    writeFile(busy + text("/last"), "x");
    EVENTUALLY(watch.hasReported(busy));
}

void WinFileWatcherTest::destructionWhileWaitingStopsSoon()
{
    Watch watch({m_root});
    watch.connect();
    QVERIFY(watch.catchUp(m_markers));
    clearLog();
    QElapsedTimer time;
    time.start();
    watch.stop();
    QVERIFY(time.elapsed() < 5000);
    QCOMPARE(log().last(), text("Watcher stop"));
    QCOMPARE(log().count(text("Watcher stop")), 1);
}

void WinFileWatcherTest::watcherThatHangsIsLeftToItself()
{
    // A receiver that does not return holds the thread as a disk does that does not answer. Both roots have changed
    // by then, and the second is not reported any more.
    QSemaphore held;
    QSemaphore answer;
    std::atomic<int> reports = 0;
    QObject receiver;
    std::unique_ptr<WinFileWatcher, WinFileWatcher::Release> watcher(new WinFileWatcher({m_root, m_outside}, nullptr));
    const QPointer<WinFileWatcher> hanging(watcher.get());
    writeFile(m_root + text("/file"), "x");
    writeFile(m_outside + text("/file"), "x");
    QObject::connect(
        watcher.get(), &WinFileWatcher::pathsChanged, &receiver,
        [&](QStringList* paths) {
            delete paths;
            ++reports;
            held.release();
            answer.acquire();
        },
        Qt::DirectConnection);
    QVERIFY(held.tryAcquire(1, deadline()));

    QElapsedTimer time;
    time.start();
    watcher.reset();
    QVERIFY(time.elapsed() >= 5000 && time.elapsed() < 8000);
    QVERIFY(hanging);
    QCOMPARE(log().count(text("Watcher does not end")), 1);

    answer.release(100);
    EVENTUALLY(!hanging);
    QCOMPARE(log().last(), text("Watcher stop"));
    QCOMPARE(reports, 1);
}

QTEST_GUILESS_MAIN(WinFileWatcherTest)
#include "winfilewatcher_test.moc"
