#pragma once

#include <QString>
#include <QStringList>

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

inline constexpr ULONG_PTR pending = 0x103;
inline constexpr ULONG_PTR success = 0;
inline constexpr ULONG_PTR overflow = 0x10c;
inline constexpr ULONG_PTR accessDenied = 0xc0000022;
inline constexpr ULONG_PTR cancelled = 0xc0000120;
inline constexpr ULONG_PTR deletePending = 0xc0000056;

/// Takes the place of ReadDirectoryChangesW(): a read ends when the test says so, and how it says. Of several that wait
/// for one root, each change ends the oldest; what comes while none waits is kept for the next one.
class Reader final
{
public:
    void reset()
    {
        const std::lock_guard lock(m_mutex);
        m_roots.clear();
        m_momentsLeft = never;
        m_wasClosedEarly = false;
    }

    /// The number of reads that were asked for of the root with this number.
    int reads(std::size_t root) const
    {
        const std::lock_guard lock(m_mutex);
        return root < m_roots.size() ? m_roots[root].reads : 0;
    }
    /// How many of them wait.
    std::size_t waiting(std::size_t root) const
    {
        const std::lock_guard lock(m_mutex);
        return m_roots[root].waiting.size();
    }
    /// Whether an event or a directory was closed while a read of it waited.
    bool wasClosedEarly() const
    {
        const std::lock_guard lock(m_mutex);
        return m_wasClosedEarly;
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
        endLocked(root, {status, name});
    }
    /// Changes in a root before the watcher has seen any of them.
    void endTogether(std::size_t root, const QStringList& names)
    {
        const std::lock_guard lock(m_mutex);
        for (const QString& name : names)
            endLocked(root, {success, name});
    }
    /// Ends a read of @p root at a moment of the watcher's: before or after its call with that number from now.
    void endAtMoment(int moment, std::size_t root, ULONG_PTR status, const QString& name)
    {
        const std::lock_guard lock(m_mutex);
        m_momentsLeft = moment;
        m_atMoment = {status, name};
        m_rootAtMoment = root;
    }
    /// Whether that moment has come.
    bool hasMomentPassed() const
    {
        const std::lock_guard lock(m_mutex);
        return m_momentsLeft == never;
    }
    /// To be called before and after each of the watcher's calls.
    void passMoment()
    {
        const std::lock_guard lock(m_mutex);
        passMomentLocked();
    }

    bool start(HANDLE directory, void* buffer, OVERLAPPED* overlapped)
    {
        const std::lock_guard lock(m_mutex);
        auto root = find(directory);
        if (root == m_roots.end()) {
            root = m_roots.emplace(m_roots.end());
            root->directory = directory;
        }
        passMomentLocked();
        ++root->reads;
        if (root->isRefused)
            return false;
        ResetEvent(overlapped->hEvent);
        overlapped->Internal = pending;
        root->waiting.push_back({buffer, overlapped});
        if (root->kept) {
            const End end = *root->kept;
            root->kept.reset();
            endLocked(static_cast<std::size_t>(root - m_roots.begin()), end);
        }
        passMomentLocked();
        return true;
    }
    /// The reads that wait do not end at once, but one with each wait that follows.
    void cancel(HANDLE directory)
    {
        const std::lock_guard lock(m_mutex);
        const auto root = find(directory);
        if (root != m_roots.end())
            root->isCancelled = true;
    }
    void endACancelledRead()
    {
        const std::lock_guard lock(m_mutex);
        for (std::size_t number = 0; number < m_roots.size(); ++number) {
            if (m_roots[number].isCancelled && !m_roots[number].waiting.empty())
                return endLocked(number, {cancelled, QStringLiteral("nobody's any more")});
        }
    }
    void close(HANDLE handle)
    {
        const std::lock_guard lock(m_mutex);
        for (const Root& root : m_roots) {
            for (const Waiting& read : root.waiting)
                m_wasClosedEarly = m_wasClosedEarly || handle == root.directory || handle == read.overlapped->hEvent;
        }
    }

private:
    struct Waiting
    {
        void* buffer;
        OVERLAPPED* overlapped;
    };
    struct End
    {
        ULONG_PTR status = success;
        QString name;
    };
    struct Root
    {
        HANDLE directory = nullptr;
        int reads = 0;
        bool isRefused = false;
        bool isCancelled = false;
        std::deque<Waiting> waiting;
        std::optional<End> kept; ///< how the next read ends at once
    };
    static constexpr int never = -1;

    std::vector<Root>::iterator find(HANDLE directory)
    {
        return std::find_if(m_roots.begin(), m_roots.end(),
                            [directory](const Root& known) { return known.directory == directory; });
    }

    void passMomentLocked()
    {
        if (m_momentsLeft != never && m_momentsLeft-- == 0)
            endLocked(m_rootAtMoment, m_atMoment);
    }

    void endLocked(std::size_t number, const End& end)
    {
        Root& root = m_roots[number];
        if (root.waiting.empty()) { // there is room for one
            root.kept = root.kept ? End{overflow, {}} : end;
            return;
        }
        const Waiting read = root.waiting.front();
        root.waiting.pop_front();
        if (!end.name.isEmpty()) {
            auto* entry = static_cast<FILE_NOTIFY_INFORMATION*>(read.buffer);
            entry->Action = FILE_ACTION_MODIFIED;
            entry->FileNameLength = static_cast<DWORD>(end.name.size()) * sizeof(wchar_t);
            std::memcpy(entry->FileName, end.name.utf16(), entry->FileNameLength);
        }
        read.overlapped->Internal = end.status;
        SetEvent(read.overlapped->hEvent);
    }

    mutable std::mutex m_mutex;
    std::vector<Root> m_roots;
    int m_momentsLeft = never;
    End m_atMoment;
    std::size_t m_rootAtMoment = 0;
    bool m_wasClosedEarly = false;
};
