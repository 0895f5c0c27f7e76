#include "syncfolder/winfilewatcher.h"

#include "base/log.h"
#include "base/longpath.h"
#include "syncfolder/filenotify.h"

#include <QDir>
#include <QFileInfo>
#include <QMetaMethod>

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace
{

constexpr DWORD bufferSize = 16384;
constexpr std::size_t mostReads = 16;               // that wait for one root
constexpr DWORD startTimeout = 5000;                // ms
constexpr int mostPaths = MAXIMUM_WAIT_OBJECTS - 1; // one waits for the stop

/// Owns a kernel object; null is none.
class Handle final
{
public:
    explicit Handle(HANDLE handle = nullptr)
        : m_handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle)
    {
    }
    Handle(Handle&& other) noexcept
        : m_handle(std::exchange(other.m_handle, nullptr))
    {
    }
    Handle& operator=(Handle&& other) noexcept
    {
        std::swap(m_handle, other.m_handle);
        return *this;
    }
    ~Handle()
    {
        close();
    }

    void close()
    {
        if (m_handle != nullptr)
            CloseHandle(std::exchange(m_handle, nullptr));
    }
    bool isValid() const
    {
        return m_handle != nullptr;
    }
    HANDLE get() const
    {
        return m_handle;
    }

private:
    HANDLE m_handle;
};

/// A read of a root. It stays where it is until it has ended: the system writes into it.
struct Read
{
    OVERLAPPED overlapped = {};
    alignas(DWORD) std::array<char, bufferSize> buffer = {};
};

/// A watched root.
struct ChangeRecord
{
    Q_DISABLE_COPY_MOVE(ChangeRecord)

    ChangeRecord() = default;
    ~ChangeRecord()
    {
        if (reads.empty())
            return;
        CancelIo(directoryHandle.get());
        // Until then the system writes into them and sets the event.
        while (!std::all_of(reads.begin(), reads.end(), [this](const auto& read) { return hasEnded(*read); }))
            WaitForSingleObject(event.get(), INFINITE);
    }

    /// Starts one more read, besides those that wait already. Each change ends one of them.
    void arm()
    {
        constexpr DWORD namesAndWrites = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME |
                                         FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_CREATION;
        if (reads.size() == mostReads)
            return;
        auto read = std::make_unique<Read>();
        read->overlapped.hEvent = event.get();
        // One that fails never ends: a root of which all do is silent from now on.
        if (ReadDirectoryChangesW(directoryHandle.get(), read->buffer.data(), bufferSize, TRUE, namesAndWrites, nullptr,
                                  &read->overlapped, nullptr))
            reads.push_back(std::move(read));
    }
    bool hasEndedRead() const
    {
        return std::any_of(reads.begin(), reads.end(), [this](const auto& read) { return hasEnded(*read); });
    }
    /// The oldest read that has ended; null for none.
    std::unique_ptr<Read> takeEndedRead()
    {
        const auto ended =
            std::find_if(reads.begin(), reads.end(), [this](const auto& read) { return hasEnded(*read); });
        if (ended == reads.end())
            return nullptr;
        std::unique_ptr<Read> taken = std::move(*ended);
        reads.erase(ended);
        return taken;
    }

    QString path; ///< with slashes
    Handle directoryHandle;
    Handle event; ///< of all reads: that one has ended, unless the start of another came after it
    std::vector<std::unique_ptr<Read>> reads; ///< the oldest first

private:
    bool hasEnded(Read& read) const
    {
        DWORD bytes = 0;
        return GetOverlappedResult(directoryHandle.get(), &read.overlapped, &bytes, FALSE) != FALSE ||
               GetLastError() != ERROR_IO_INCOMPLETE;
    }
};

/// The directories that contain the changed entries. After an overflow or a failed read the buffer is
/// still zeroed, one entry without a name: that is the root itself.
std::unique_ptr<QStringList> changedDirectories(const QString& root, const Read& read, bool& hasMissed)
{
    auto directories = std::make_unique<QStringList>();
    const QVector<FileNotification> entries = decodeFileNotifications(read.buffer.data(), read.buffer.size());
    for (const FileNotification& entry : entries) {
        ORVEL_LOG << "Filename changed " << entry.name << " action " << entry.action;
        hasMissed = hasMissed || entry.name.isEmpty();
        // Taken from the text. To ask for the entry is to ask what a shortcut leads to, and maybe to wait for that.
        directories->append(QFileInfo(root + QDir::separator() + entry.name).path());
    }
    return directories;
}

} // namespace

struct WinFileWatcher::Private
{
    Handle stop;
    Handle connected;
    Handle armed; ///< every record, for the first time
    std::vector<std::unique_ptr<ChangeRecord>> records;
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
    if (paths.size() > mostPaths) {
        ORVEL_LOG << "Unable to watch more than " << mostPaths << " paths";
        return;
    }
    m_private->stop = Handle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    m_private->connected = Handle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    m_private->armed = Handle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    for (const QString& path : paths) {
        auto record = std::make_unique<ChangeRecord>();
        record->path = QDir::fromNativeSeparators(path);
        record->directoryHandle =
            Handle(CreateFileW(base::ofAnyLength(path).c_str(), FILE_LIST_DIRECTORY,
                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                               FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr));
        if (!record->directoryHandle.isValid()) {
            ORVEL_LOG << "Unable CreateFile failed for path " << path;
            m_private->records.clear();
            return;
        }
        record->event = Handle(CreateEventW(nullptr, FALSE, FALSE, nullptr));
        if (!record->event.isValid()) {
            ORVEL_LOG << "Create event for file failed " << path;
            m_private->records.clear();
            return;
        }
        m_private->records.push_back(std::move(record));
    }
    ORVEL_LOG << "size" << bufferSize;
    start(InheritPriority);
    // The system collects changes from the first read on; what comes before it would be missed.
    WaitForSingleObject(m_private->armed.get(), startTimeout);
}

WinFileWatcher::~WinFileWatcher()
{
    stop();
}

void WinFileWatcher::askToStop()
{
    if (m_private->stop.isValid())
        SetEvent(m_private->stop.get());
}

void WinFileWatcher::connectNotify(const QMetaMethod& signal)
{
    if (signal == QMetaMethod::fromSignal(&WinFileWatcher::pathsChanged) && m_private->connected.isValid())
        SetEvent(m_private->connected.get());
}

void WinFileWatcher::run()
{
    const auto report = [this](ChangeRecord& record) {
        while (const std::unique_ptr<Read> read = record.takeEndedRead()) {
            bool hasMissed = false;
            std::unique_ptr<QStringList> directories = changedDirectories(record.path, *read, hasMissed);
            // Until somebody is connected a report would be lost.
            const std::array<HANDLE, 2> ready = {m_private->stop.get(), m_private->connected.get()};
            if (WaitForMultipleObjects(2, ready.data(), FALSE, INFINITE) == WAIT_OBJECT_0)
                return;
            if (hasMissed && m_private->observer != nullptr)
                m_private->observer->missed();
            emit pathsChanged(directories.release());
        }
    };

    bool isWatching = false;
    std::vector<HANDLE> handles;
    while (true) {
        handles.assign(1, m_private->stop.get());
        // Also those whose earlier read is still pending: deliberate, every pass arms every record.
        for (const auto& record : m_private->records) {
            handles.push_back(record->event.get());
            record->arm();
        }
        SetEvent(m_private->armed.get());
        if (!std::exchange(isWatching, true) && m_private->observer != nullptr)
            m_private->observer->watching();
        // The start of a read takes back what the end of an earlier one has told, so the reads are asked themselves.
        const bool isDue = std::any_of(m_private->records.begin(), m_private->records.end(),
                                       [](const auto& record) { return record->hasEndedRead(); });
        const DWORD count = static_cast<DWORD>(handles.size());
        const DWORD result = WaitForMultipleObjects(count, handles.data(), FALSE, isDue ? 0 : INFINITE);
        if (result == WAIT_OBJECT_0) {
            ORVEL_LOG << "Watcher stop";
            m_private->records.clear();
            return;
        }
        if (result == WAIT_FAILED)
            continue;
        for (const auto& record : m_private->records)
            report(*record);
    }
}
