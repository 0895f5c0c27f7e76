#include "bench/process.h"
#include "bench/table.h"
#include "bench/topics.h"
#include "syncfolder/winfilewatcher.h"

#include <QFile>
#include <QSemaphore>
#include <QTemporaryDir>

#include <windows.h>

#include <array>

namespace
{

constexpr int files = 200;

void write(const QTemporaryDir& root, int number)
{
    QFile file(root.filePath(QString::number(number)));
    file.open(QIODevice::WriteOnly);
    file.write("orvel");
}

/// Seconds for that many files, each written once the one before it was reported.
double timeOfWatcher()
{
    constexpr int patience = 10000; // ms
    const QTemporaryDir root;
    QSemaphore reports;
    const double start = bench::wallTime();
    WinFileWatcher watcher({root.path()}, nullptr);
    QObject::connect(&watcher, &WinFileWatcher::pathsChanged, [&reports](QStringList* paths) {
        delete paths;
        reports.release();
    });
    constexpr int interval = 1; // ms; again, should nobody have watched yet
    write(root, 0);
    while (!reports.tryAcquire(1, interval))
        write(root, 0);
    for (int i = 1; i < files; ++i) {
        reports.acquire(reports.available());
        write(root, i);
        if (!reports.tryAcquire(1, patience))
            bench::fail(QStringLiteral("The watcher reports nothing"));
    }
    return bench::wallTime() - start;
}

/// The same with the system's call and nothing else.
double timeOfBareRead()
{
    constexpr DWORD size = 16384;
    constexpr DWORD filter = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME |
                             FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_CREATION;
    const QTemporaryDir root;
    alignas(DWORD) static std::array<char, size> buffer;
    const double start = bench::wallTime();
    const std::wstring path = root.path().toStdWString();
    const HANDLE directory = CreateFileW(path.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                         OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr);
    OVERLAPPED overlapped = {};
    overlapped.hEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    for (int i = 0; i < files; ++i) {
        ReadDirectoryChangesW(directory, buffer.data(), size, TRUE, filter, nullptr, &overlapped, nullptr);
        write(root, i);
        if (WaitForSingleObject(overlapped.hEvent, 10000) != WAIT_OBJECT_0)
            bench::fail(QStringLiteral("The system reports nothing"));
    }
    const double seconds = bench::wallTime() - start;
    CloseHandle(overlapped.hEvent);
    CloseHandle(directory);
    return seconds;
}

} // namespace

void bench::watching(Table& table)
{
    constexpr double seconds = 10;
    const auto figures = medians({timeOfWatcher, timeOfBareRead}, seconds);
    table.shown(QStringLiteral("200 files, each until it is reported"), QStringLiteral("a bare ReadDirectoryChangesW"),
                figures[0], figures[1]);
}
