#include "tests/syncfolder/watch.h"

#include <QTemporaryDir>

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <mutex>
#include <optional>
#include <vector>

namespace
{

constexpr ULONG_PTR pending = 0x103;
constexpr ULONG_PTR success = 0;
constexpr ULONG_PTR overflow = 0x10c;
constexpr ULONG_PTR accessDenied = 0xc0000022;
constexpr ULONG_PTR deletePending = 0xc0000056;

/// Takes the place of ReadDirectoryChangesW(): a read ends when the test says so, and how it says.
class Reader final
{
public:
    static constexpr int never = std::numeric_limits<int>::max();

    void reset()
    {
        const std::lock_guard lock(m_mutex);
        m_roots.clear();
        m_duringStart.reset();
    }

    /// The number of reads that were asked for of the root with this number.
    int reads(std::size_t root) const
    {
        const std::lock_guard lock(m_mutex);
        return root < m_roots.size() ? m_roots[root].reads : 0;
    }
    /// From now on no read of this root can be started.
    void refuse(std::size_t root)
    {
        const std::lock_guard lock(m_mutex);
        m_roots[root].isRefused = true;
    }
    /// Ends the oldest read of a root.
    void end(std::size_t root, ULONG_PTR status, const QString& name = {})
    {
        const std::lock_guard lock(m_mutex);
        endLocked(root, status, name);
    }
    /// Ends a read of @p root while the next one of @p starting is being started, once, before what that
    /// does to its event.
    void endDuringStart(std::size_t starting, std::size_t root, const QString& name)
    {
        const std::lock_guard lock(m_mutex);
        m_duringStart = DuringStart{starting, root, name};
    }

    bool start(HANDLE directory, void* buffer, OVERLAPPED* overlapped)
    {
        const std::lock_guard lock(m_mutex);
        auto root = std::find_if(m_roots.begin(), m_roots.end(),
                                 [directory](const Root& known) { return known.directory == directory; });
        if (root == m_roots.end()) {
            m_roots.push_back({directory});
            root = m_roots.end() - 1;
        }
        ++root->reads;
        if (root->isRefused)
            return false;
        root->buffer = buffer;
        root->overlapped = overlapped;
        if (m_duringStart && m_duringStart->starting == static_cast<std::size_t>(root - m_roots.begin())) {
            const DuringStart read = *m_duringStart;
            m_duringStart.reset();
            endLocked(read.ending, success, read.name);
        }
        ResetEvent(overlapped->hEvent);
        overlapped->Internal = pending;
        return true;
    }

private:
    struct Root
    {
        HANDLE directory = nullptr;
        int reads = 0;
        bool isRefused = false;
        void* buffer = nullptr;
        OVERLAPPED* overlapped = nullptr;
    };

    struct DuringStart
    {
        std::size_t starting;
        std::size_t ending;
        QString name;
    };

    void endLocked(std::size_t number, ULONG_PTR status, const QString& name)
    {
        const Root& root = m_roots[number];
        if (!name.isEmpty()) {
            auto* entry = static_cast<FILE_NOTIFY_INFORMATION*>(root.buffer);
            entry->Action = FILE_ACTION_MODIFIED;
            entry->FileNameLength = static_cast<DWORD>(name.size()) * sizeof(wchar_t);
            std::memcpy(entry->FileName, name.utf16(), entry->FileNameLength);
        }
        root.overlapped->Internal = status;
        SetEvent(root.overlapped->hEvent);
    }

    mutable std::mutex m_mutex;
    std::vector<Root> m_roots;
    std::optional<DuringStart> m_duringStart;
};

Reader& reader()
{
    static Reader theReader;
    return theReader;
}

/// What the watcher asked the system for, and what the system is to refuse.
struct Calls
{
    // The last read
    std::atomic<DWORD> size = 0;
    std::atomic<BOOL> subtree = FALSE;
    std::atomic<DWORD> filter = 0;
    // The last directory that was opened
    DWORD access = 0;
    DWORD share = 0;
    DWORD disposition = 0;
    DWORD flags = 0;

    int eventsUntilFailure = never;
    std::atomic<int> failingWaits = 0; ///< of those for all roots

    static constexpr int never = -1;
    static constexpr DWORD handlesOfAWait = 3; ///< the stop and two roots
};

Calls& calls()
{
    static Calls theCalls;
    return theCalls;
}

template<typename Function>
Function systems(Function, const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), name)));
}

BOOL WINAPI readDirectoryChanges(HANDLE directory, void* buffer, DWORD size, BOOL subtree, DWORD filter, DWORD*,
                                 OVERLAPPED* overlapped, LPOVERLAPPED_COMPLETION_ROUTINE)
{
    calls().size = size;
    calls().subtree = subtree;
    calls().filter = filter;
    return reader().start(directory, buffer, overlapped) ? TRUE : FALSE;
}

HANDLE WINAPI createFile(const wchar_t* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                         DWORD disposition, DWORD flags, HANDLE likeness)
{
    calls().access = access;
    calls().share = share;
    calls().disposition = disposition;
    calls().flags = flags;
    static const auto create = systems(&createFile, "CreateFileW");
    return create(path, access, share, security, disposition, flags, likeness);
}

HANDLE WINAPI createEvent(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL signalled, const wchar_t* name)
{
    if (calls().eventsUntilFailure != Calls::never && calls().eventsUntilFailure-- == 0)
        return nullptr;
    static const auto create = systems(&createEvent, "CreateEventW");
    return create(security, manual, signalled, name);
}

DWORD WINAPI waitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL all, DWORD timeout)
{
    if (count == Calls::handlesOfAWait && calls().failingWaits > 0) {
        --calls().failingWaits;
        return WAIT_FAILED;
    }
    static const auto wait = systems(&waitForMultipleObjects, "WaitForMultipleObjects");
    return wait(count, handles, all, timeout);
}

} // namespace

// The linker takes these for the system's.
extern "C" {
decltype(&ReadDirectoryChangesW) __imp_ReadDirectoryChangesW = readDirectoryChanges;
decltype(&CreateFileW) __imp_CreateFileW = createFile;
decltype(&CreateEventW) __imp_CreateEventW = createEvent;
decltype(&WaitForMultipleObjects) __imp_WaitForMultipleObjects = waitForMultipleObjects;
}

/// What the watcher makes of reads that end in every way that the system has.
class WinFileWatcherWinTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_directory;
    QStringList m_roots;
    std::unique_ptr<Watch> m_watch;

protected:
    void setUp() override;
    void tearDown() override;

private slots:
    void everyRootIsReadByTheTimeTheWatcherIsThere();
    void everyRootIsReadAgainInEveryPass();
    void readThatEndsWithoutBytesReportsTheRoot_data();
    void readThatEndsWithoutBytesReportsTheRoot();
    void rootThatCannotBeReadAnyMoreIsSilent();
    void changeBetweenTheReportsOfAnotherRootIsReported();
    void changeDuringTheStartOfAReadIsReported();
    void moreRootsThanTheSystemWaitsForSwitchTheWatcherOff();
    void directoryIsOpenedSoThatNobodyIsKeptOut();
    void namesAndWritesInTheWholeTreeAreAskedFor();
    void eventThatCannotBeMadeSwitchesTheWholeWatcherOff();
    void waitThatFailsIsWaitedAnewWithNothingReported();
};

void WinFileWatcherWinTest::setUp()
{
    reader().reset();
    m_directory = std::make_unique<QTemporaryDir>();
    QVERIFY(m_directory->isValid());
    m_roots.clear();
    for (const char* name : {"first", "second"}) {
        m_roots << m_directory->filePath(QLatin1String(name));
        QVERIFY(QDir().mkpath(m_roots.last()));
    }
    m_watch = std::make_unique<Watch>(m_roots);
    m_watch->connect();
}

void WinFileWatcherWinTest::tearDown()
{
    m_watch.reset();
    m_directory.reset();
}

void WinFileWatcherWinTest::everyRootIsReadByTheTimeTheWatcherIsThere()
{
    // No change is lost that is made right after.
    for (int start = 0; start < 100; ++start) {
        reader().reset();
        const Watch watch(m_roots);
        QCOMPARE(reader().reads(0), 1);
        QCOMPARE(reader().reads(1), 1);
    }
}

void WinFileWatcherWinTest::everyRootIsReadAgainInEveryPass()
{
    for (int pass = 1; pass <= 20; ++pass) {
        QCOMPARE(reader().reads(0), pass);
        QCOMPARE(reader().reads(1), pass);
        reader().end(1, success, QStringLiteral("file"));
        EVENTUALLY(reader().reads(1) == pass + 1);
    }
    EVENTUALLY(m_watch->reported().size() == 20);
}

void WinFileWatcherWinTest::readThatEndsWithoutBytesReportsTheRoot_data()
{
    QTest::addColumn<qulonglong>("status");
    QTest::newRow("success") << qulonglong(success);
    QTest::newRow("overflow") << qulonglong(overflow);
    QTest::newRow("access denied") << qulonglong(accessDenied);
    QTest::newRow("the root is gone") << qulonglong(deletePending);
}

void WinFileWatcherWinTest::readThatEndsWithoutBytesReportsTheRoot()
{
    QFETCH(qulonglong, status);
    reader().end(1, status);
    EVENTUALLY(!m_watch->reported().isEmpty());
    QCOMPARE(m_watch->reported(), QStringList(m_roots.at(1)));
    EVENTUALLY(reader().reads(1) == 2);
    m_watch->stop();
    QCOMPARE(reader().reads(0), 2);
    QCOMPARE(reader().reads(1), 2);
}

void WinFileWatcherWinTest::rootThatCannotBeReadAnyMoreIsSilent()
{
    reader().refuse(0);
    reader().end(0, accessDenied);
    EVENTUALLY(reader().reads(1) == 2);
    for (int pass = 2; pass <= 5; ++pass) {
        reader().end(1, success, QStringLiteral("file"));
        EVENTUALLY(reader().reads(1) == pass + 1);
    }
    m_watch->stop();
    QCOMPARE(reader().reads(0), 6); // one for each report, and no spinning
    QCOMPARE(m_watch->reported().count(m_roots.at(0)), 1);
    QCOMPARE(m_watch->reported().count(m_roots.at(1)), 4);
}

void WinFileWatcherWinTest::changeBetweenTheReportsOfAnotherRootIsReported()
{
    reader().endDuringStart(0, 1, QStringLiteral("file"));
    reader().end(0, success, QStringLiteral("file"));
    EVENTUALLY(m_watch->hasReported(m_roots.at(0)));
    EVENTUALLY(m_watch->hasReported(m_roots.at(1)));
}

void WinFileWatcherWinTest::changeDuringTheStartOfAReadIsReported()
{
    // An earlier read of the same root is still under way, and takes it.
    reader().endDuringStart(1, 1, QStringLiteral("file"));
    reader().end(0, success, QStringLiteral("file"));
    EVENTUALLY(m_watch->hasReported(m_roots.at(0)));
    EVENTUALLY(m_watch->hasReported(m_roots.at(1)));
}

void WinFileWatcherWinTest::moreRootsThanTheSystemWaitsForSwitchTheWatcherOff()
{
    QStringList roots;
    for (int i = 0; i < MAXIMUM_WAIT_OBJECTS; ++i) {
        roots << m_directory->filePath(QString::number(i));
        QVERIFY(QDir().mkpath(roots.last()));
    }
    Watch off(roots);
    off.connect();
    QVERIFY(!off.watcher().isRunning());
    QCOMPARE(log().last(), QStringLiteral("Unable to watch more than  63  paths"));
    off.stop();

    Watch on(roots.mid(1));
    QVERIFY(on.watcher().isRunning());
}

void WinFileWatcherWinTest::directoryIsOpenedSoThatNobodyIsKeptOut()
{
    QCOMPARE(calls().access, DWORD(1));         // to list it
    QCOMPARE(calls().share, DWORD(7));          // reading, writing, deleting
    QCOMPARE(calls().disposition, DWORD(3));    // only if it is there
    QCOMPARE(calls().flags, DWORD(0x42000000)); // a directory, overlapped
}

void WinFileWatcherWinTest::namesAndWritesInTheWholeTreeAreAskedFor()
{
    QCOMPARE(calls().size.load(), DWORD(16384));
    QCOMPARE(calls().subtree.load(), TRUE);
    QCOMPARE(calls().filter.load(), DWORD(0x53)); // names of files and directories, last write, creation
}

void WinFileWatcherWinTest::eventThatCannotBeMadeSwitchesTheWholeWatcherOff()
{
    constexpr int beforeTheRoots = 3;
    calls().eventsUntilFailure = beforeTheRoots + 1; // that of the second root
    clearLog();
    Watch off(m_roots);
    calls().eventsUntilFailure = Calls::never;
    off.connect();
    QCOMPARE(log(), (QStringList{QStringLiteral("Win file watcher paths:  ") + m_roots.join(u' '),
                                 QStringLiteral("Create event for file failed  ") + m_roots.at(1)}));
    QVERIFY(!off.watcher().isRunning());
    QVERIFY(!off.watcher().isFinished());
}

void WinFileWatcherWinTest::waitThatFailsIsWaitedAnewWithNothingReported()
{
    calls().failingWaits = 3;
    reader().end(0, success, QStringLiteral("file"));
    EVENTUALLY(reader().reads(1) == 5); // the first, one after the report, one after each failure
    EVENTUALLY(m_watch->hasReported(m_roots.at(0)));
    reader().end(1, success, QStringLiteral("file"));
    EVENTUALLY(m_watch->hasReported(m_roots.at(1)));
    QCOMPARE(m_watch->reported(), m_roots);
}

QTEST_GUILESS_MAIN(WinFileWatcherWinTest)
#include "winfilewatcher_win_test.moc"
