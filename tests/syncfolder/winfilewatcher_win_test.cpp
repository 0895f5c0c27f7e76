#include "tests/syncfolder/reader_win.h"
#include "tests/syncfolder/watch.h"

#include <QTemporaryDir>

#include <windows.h>

#include <atomic>
#include <cstring>
#include <cwchar>

namespace
{

constexpr int mostReads = 16;

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
    if (std::wcslen(path) >= MAX_PATH && std::wcsncmp(path, L"\\\\?\\", 4) != 0) { // Wine has no such limit
        SetLastError(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
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
    reader().passMoment();
    static const auto wait = systems(&waitForMultipleObjects, "WaitForMultipleObjects");
    const DWORD result = wait(count, handles, all, timeout);
    reader().passMoment();
    return result;
}

DWORD WINAPI waitForSingleObject(HANDLE handle, DWORD timeout)
{
    reader().endACancelledRead();
    reader().passMoment();
    static const auto wait = systems(&waitForSingleObject, "WaitForSingleObject");
    const DWORD result = wait(handle, timeout);
    reader().passMoment();
    return result;
}

BOOL WINAPI getOverlappedResult(HANDLE directory, OVERLAPPED* overlapped, DWORD* bytes, BOOL wait)
{
    reader().passMoment();
    static const auto get = systems(&getOverlappedResult, "GetOverlappedResult");
    return get(directory, overlapped, bytes, wait);
}

BOOL WINAPI cancelIo(HANDLE directory)
{
    reader().cancel(directory);
    return TRUE;
}

BOOL WINAPI closeHandle(HANDLE handle)
{
    reader().close(handle);
    static const auto close = systems(&closeHandle, "CloseHandle");
    return close(handle);
}

} // namespace

// The linker takes these for the system's.
extern "C" {
decltype(&ReadDirectoryChangesW) __imp_ReadDirectoryChangesW = readDirectoryChanges;
decltype(&CreateFileW) __imp_CreateFileW = createFile;
decltype(&CreateEventW) __imp_CreateEventW = createEvent;
decltype(&WaitForMultipleObjects) __imp_WaitForMultipleObjects = waitForMultipleObjects;
decltype(&WaitForSingleObject) __imp_WaitForSingleObject = waitForSingleObject;
decltype(&GetOverlappedResult) __imp_GetOverlappedResult = getOverlappedResult;
decltype(&CancelIo) __imp_CancelIo = cancelIo;
decltype(&CloseHandle) __imp_CloseHandle = closeHandle;
}

namespace
{

/// A function that Qt's core takes from another library, replaced as long as this lives.
class ImportOfQt final
{
    Q_DISABLE_COPY_MOVE(ImportOfQt)

public:
    template<typename Function>
    ImportOfQt(const char* name, Function replacement)
        : m_place(find(name))
        , m_original(*m_place)
    {
        put(reinterpret_cast<ULONG_PTR>(replacement));
    }
    ~ImportOfQt()
    {
        put(m_original);
    }

private:
    static ULONG_PTR* find(const char* name)
    {
        auto* image = reinterpret_cast<char*>(GetModuleHandleW(L"Qt5Core.dll"));
        const auto* headers =
            reinterpret_cast<IMAGE_NT_HEADERS*>(image + reinterpret_cast<IMAGE_DOS_HEADER*>(image)->e_lfanew);
        const DWORD imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
        for (auto* library = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(image + imports); library->Name != 0;
             ++library) {
            const auto* names = reinterpret_cast<IMAGE_THUNK_DATA*>(image + library->OriginalFirstThunk);
            auto* places = reinterpret_cast<IMAGE_THUNK_DATA*>(image + library->FirstThunk);
            for (; names->u1.AddressOfData != 0; ++names, ++places) {
                const auto* entry = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(image + names->u1.AddressOfData);
                if (!IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal) &&
                    std::strcmp(reinterpret_cast<const char*>(entry->Name), name) == 0)
                    return &places->u1.Function;
            }
        }
        qFatal("Qt does not use %s", name);
    }
    void put(ULONG_PTR function)
    {
        DWORD protection = 0;
        VirtualProtect(m_place, sizeof *m_place, PAGE_READWRITE, &protection);
        *m_place = function;
        VirtualProtect(m_place, sizeof *m_place, protection, &protection);
    }

    ULONG_PTR* m_place;
    ULONG_PTR m_original;
};

std::atomic<int> askedShortcuts = 0;

HRESULT WINAPI countShortcuts(const GUID*, void*, DWORD, const GUID*, void**)
{
    ++askedShortcuts;
    return E_FAIL;
}

} // namespace

/// What the watcher makes of reads that end in every way that the system has.
class WinFileWatcherWinTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_directory;
    QStringList m_roots;
    std::unique_ptr<Watch> m_watch;

    void letReadsWait();

protected:
    void setUp() override;
    void tearDown() override;

private slots:
    void everyRootIsReadByTheTimeTheWatcherIsThere();
    void everyRootIsReadAgainInEveryPass();
    void readsThatWaitAreLimitedUntilOneEnds();
    void changesThatEndSeveralWaitingReadsAreAllReported();
    void changesWhileNoReadWaitsReportTheRoot();
    void readThatEndsWithoutBytesReportsTheRoot_data();
    void readThatEndsWithoutBytesReportsTheRoot();
    void rootThatCannotBeReadAnyMoreIsSilent();
    void changeAtAnyMomentOfAPassIsReported_data();
    void changeAtAnyMomentOfAPassIsReported();
    void nothingOfAReadIsFreedBeforeItHasEnded();
    void changedShortcutIsNotAskedWhereItLeads();
    void moreRootsThanTheSystemWaitsForSwitchTheWatcherOff();
    void directoryIsOpenedSoThatNobodyIsKeptOut();
    void rootOfAnyLengthIsOpened();
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
    m_watch.reset();
    for (int start = 0; start < 100; ++start) {
        reader().reset();
        const Watch watch(m_roots);
        QCOMPARE(reader().reads(0), 1);
        QCOMPARE(reader().reads(1), 1);
    }
}

void WinFileWatcherWinTest::everyRootIsReadAgainInEveryPass()
{
    for (int pass = 1; pass <= mostReads; ++pass) {
        QCOMPARE(reader().reads(0), pass);
        QCOMPARE(reader().reads(1), pass);
        reader().end(1, success, QStringLiteral("file"));
        EVENTUALLY(reader().reads(1) == pass + 1);
    }
    EVENTUALLY(m_watch->reported().size() == mostReads);
}

/// Lets the first root have all the reads that may wait for it; each report of the second starts one.
void WinFileWatcherWinTest::letReadsWait()
{
    for (int pass = 1; pass <= mostReads; ++pass) {
        reader().end(1, success, QStringLiteral("file"));
        EVENTUALLY(reader().reads(1) == pass + 1);
    }
    EVENTUALLY(m_watch->reported().size() == mostReads);
    m_watch->forget();
}

void WinFileWatcherWinTest::readsThatWaitAreLimitedUntilOneEnds()
{
    letReadsWait();
    QCOMPARE(reader().waiting(0), std::size_t(mostReads));
    reader().end(1, success, QStringLiteral("file"));
    EVENTUALLY(reader().reads(1) == mostReads + 2);
    QCOMPARE(reader().reads(0), mostReads);
    reader().end(0, success, QStringLiteral("file"));
    EVENTUALLY(reader().reads(0) == mostReads + 1);
    QCOMPARE(reader().waiting(0), std::size_t(mostReads));
}

void WinFileWatcherWinTest::changesThatEndSeveralWaitingReadsAreAllReported()
{
    letReadsWait();
    QStringList names;
    QStringList directories;
    for (int i = 0; i < mostReads; ++i) {
        directories << m_roots.at(0) + u'/' + QString::number(i);
        names << QString::number(i) + QStringLiteral("\\file");
    }
    reader().endTogether(0, names);
    EVENTUALLY(m_watch->reported().size() == mostReads);
    QCOMPARE(m_watch->reported(), directories);
}

void WinFileWatcherWinTest::changesWhileNoReadWaitsReportTheRoot()
{
    QStringList names;
    for (int i = 0; i < 5; ++i)
        names << QString::number(i) + QStringLiteral("\\file");
    reader().endTogether(0, names); // one read waits, and one change is kept
    EVENTUALLY(m_watch->hasReported(m_roots.at(0)));
    EVENTUALLY(m_watch->hasReported(m_roots.at(0) + QStringLiteral("/0")));
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

void WinFileWatcherWinTest::changeAtAnyMomentOfAPassIsReported_data()
{
    constexpr int moments = 24; // of two passes
    QTest::addColumn<int>("moment");
    QTest::addColumn<qulonglong>("status");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("reported");
    for (int moment = 0; moment < moments; ++moment) {
        const QByteArray number = QByteArray::number(moment);
        QTest::newRow(("change " + number).constData())
            << moment << qulonglong(success) << QStringLiteral("directory\\file") << QStringLiteral("/directory");
        QTest::newRow(("overflow " + number).constData()) << moment << qulonglong(overflow) << QString() << QString();
    }
}

void WinFileWatcherWinTest::changeAtAnyMomentOfAPassIsReported()
{
    QFETCH(int, moment);
    QFETCH(qulonglong, status);
    QFETCH(QString, name);
    QFETCH(QString, reported);
    reader().endAtMoment(moment, 1, status, name);
    reader().end(0, success, QStringLiteral("file"));
    EVENTUALLY(m_watch->hasReported(m_roots.at(0)));
    while (!reader().hasMomentPassed()) {
        const int passes = reader().reads(0);
        reader().end(0, success, QStringLiteral("file"));
        EVENTUALLY(reader().reads(0) > passes);
    }
    EVENTUALLY(m_watch->hasReported(m_roots.at(1) + reported));
}

void WinFileWatcherWinTest::nothingOfAReadIsFreedBeforeItHasEnded()
{
    letReadsWait();
    m_watch->stop();
    QCOMPARE(reader().waiting(0), std::size_t(0));
    QCOMPARE(reader().waiting(1), std::size_t(0));
    QVERIFY(!reader().wasClosedEarly());
}

void WinFileWatcherWinTest::changedShortcutIsNotAskedWhereItLeads()
{
    const QString shortcut = m_roots.at(1) + QStringLiteral("/shortcut.lnk");
    QVERIFY(QFile::link(m_roots.at(0), shortcut));
    const ImportOfQt countedCalls("CoCreateInstance", &countShortcuts);
    askedShortcuts = 0;
    (void)QFileInfo(shortcut).isDir();
    QVERIFY(askedShortcuts > 0);
    askedShortcuts = 0;
    reader().end(1, success, QStringLiteral("shortcut.lnk"));
    EVENTUALLY(m_watch->hasReported(m_roots.at(1)));
    QCOMPARE(askedShortcuts.load(), 0);
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

void WinFileWatcherWinTest::rootOfAnyLengthIsOpened()
{
    m_watch.reset();
    reader().reset();
    QString root = m_roots.at(0);
    while (root.size() <= 2 * MAX_PATH)
        root += QStringLiteral("/a directory of many letters");
    QVERIFY(QDir().mkpath(root));
    m_watch = std::make_unique<Watch>(QStringList{root, QDir::toNativeSeparators(root) + u'\\'});
    m_watch->connect();
    QVERIFY(m_watch->watcher().isRunning());
    reader().end(0, success, QStringLiteral("directory\\file"));
    EVENTUALLY(m_watch->hasReported(root + QStringLiteral("/directory")));
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
