#include "syncfolder/winfilewatcher.h"

#include "base/log.h"
#include "syncfolder/filenotify.h"

#include <QDir>
#include <QFileInfo>
#include <QMetaMethod>

#include <windows.h>

#include <array>
#include <utility>
#include <vector>

namespace
{

constexpr DWORD bufferSize = 16384;
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

/// What the thread works on while the next read is under way already.
struct Change
{
    OVERLAPPED overlapped = {};
    alignas(DWORD) std::array<char, bufferSize> buffer;
    QString path; ///< with slashes
    QDir directory;
};

/// A watched root. It stays where it is: the system writes into it.
struct ChangeRecord
{
    Q_DISABLE_COPY_MOVE(ChangeRecord)

    ChangeRecord() = default;
    ~ChangeRecord()
    {
        event.close();
        if (directoryHandle.isValid())
            CancelIo(directoryHandle.get());
        directoryHandle.close();
    }

    void read()
    {
        constexpr DWORD namesAndWrites = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME |
                                         FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_CREATION;
        change.buffer.fill(0);
        change.overlapped = {};
        change.overlapped.hEvent = event.get();
        // A failure means that this root is silent from now on.
        ReadDirectoryChangesW(directoryHandle.get(), change.buffer.data(), bufferSize, TRUE, namesAndWrites, nullptr,
                              &change.overlapped, nullptr);
        // An earlier read that took a change since the buffer was zeroed: the start has reset its event.
        if (reinterpret_cast<const FILE_NOTIFY_INFORMATION*>(change.buffer.data())->Action != 0)
            SetEvent(event.get());
    }
    /// Whether a read has ended that was not waited for. To ask is to have waited for it.
    bool takeEnd() const
    {
        return WaitForSingleObject(event.get(), 0) == WAIT_OBJECT_0;
    }

    Change change;
    Handle directoryHandle;
    Handle event;
};

/// The directories that contain the changed entries. After an overflow or a failed read the buffer is
/// still zeroed, one entry without a name: that is the root itself.
std::unique_ptr<QStringList> changedDirectories(const Change& change)
{
    auto directories = std::make_unique<QStringList>();
    const QVector<FileNotification> entries = decodeFileNotifications(change.buffer.data(), change.buffer.size());
    for (const FileNotification& entry : entries) {
        ORVEL_LOG << "Filename changed " << entry.name << " action " << entry.action;
        const QFileInfo info(change.path + QDir::separator() + entry.name);
        directories->append(info.isDir() ? info.path() : info.dir().path());
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
};

WinFileWatcher::WinFileWatcher(const QStringList& paths, QObject* parent)
    : QThread(parent)
    , m_private(std::make_unique<Private>())
{
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
        record->change.path = QDir::fromNativeSeparators(path);
        record->change.directory = QDir(record->change.path);
        record->directoryHandle =
            Handle(CreateFileW(reinterpret_cast<const wchar_t*>(path.utf16()), FILE_LIST_DIRECTORY,
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
    const auto report = [this](const ChangeRecord& record) {
        Change snapshot = record.change;
        DWORD bytes = 0;
        GetOverlappedResult(record.directoryHandle.get(), &snapshot.overlapped, &bytes, FALSE);
        std::unique_ptr<QStringList> directories = changedDirectories(snapshot);
        // Until somebody is connected a report would be lost.
        const std::array<HANDLE, 2> ready = {m_private->stop.get(), m_private->connected.get()};
        if (WaitForMultipleObjects(2, ready.data(), FALSE, INFINITE) != WAIT_OBJECT_0)
            emit pathsChanged(directories.release());
    };

    std::vector<HANDLE> handles;
    while (true) {
        handles.assign(1, m_private->stop.get());
        // Also those whose earlier read is still pending: deliberate, every pass arms every record.
        for (const auto& record : m_private->records) {
            handles.push_back(record->event.get());
            if (record->takeEnd()) // while another one was reported; the next read would wipe it away
                report(*record);
            record->read();
        }
        SetEvent(m_private->armed.get());
        const DWORD count = static_cast<DWORD>(handles.size());
        const DWORD result = WaitForMultipleObjects(count, handles.data(), FALSE, INFINITE);
        if (result == WAIT_OBJECT_0) {
            ORVEL_LOG << "Watcher stop";
            m_private->records.clear();
            return;
        }
        if (result < WAIT_OBJECT_0 + count) // else the wait failed
            report(*m_private->records[result - WAIT_OBJECT_0 - 1]);
    }
}
