#include "syncfolder/winfilewatcher_tree.h"

#include "base/log.h"

#include <QDir>
#include <QFile>
#include <QThread>

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

namespace
{

// Names, and what moves a modification time: writes come as IN_MODIFY, those through a memory map only when
// their file is closed (IN_CLOSE_WRITE), a time that is set by hand as IN_ATTRIB. The last also stands for
// changed permissions; nothing tells the two apart without remembering the times of all files.
constexpr quint32 namesAndWrites =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB;
constexpr quint32 watchFlags = namesAndWrites | IN_MOVE_SELF | IN_DELETE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;

constexpr int openForReading = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

// Deeper directories are read after their ancestors have been closed again.
constexpr int maxLevel = 64;
// Each removed watch leaves a notification; far fewer than the queue holds, so that it never overflows.
constexpr int maxRemoved = 1024;
constexpr int maxReported = 4096;
constexpr std::size_t entriesSize = 32768;

enum Action : quint32
{
    Overflow = 0,
    Added = 1,
    Removed = 2,
    Modified = 3,
    OldName = 4,
    NewName = 5
};

Action actionOf(quint32 mask)
{
    if ((mask & IN_CREATE) != 0)
        return Added;
    if ((mask & IN_DELETE) != 0)
        return Removed;
    if ((mask & IN_MOVED_FROM) != 0)
        return OldName;
    if ((mask & IN_MOVED_TO) != 0)
        return NewName;
    return Modified;
}

bool isLimit(int error)
{
    return error == ENOSPC || error == ENOMEM || error == EMFILE || error == ENFILE;
}

bool isDots(const char* name)
{
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

bool stopRequested()
{
    return QThread::currentThread()->isInterruptionRequested();
}

bool isSameFile(const struct statx& one, const struct statx& other)
{
    return one.stx_ino == other.stx_ino && one.stx_dev_major == other.stx_dev_major &&
           one.stx_dev_minor == other.stx_dev_minor;
}

std::string withoutSlash(std::string path)
{
    while (!path.empty() && path.back() == '/')
        path.pop_back();
    return path;
}

/// The system takes no path of PATH_MAX bytes and more, but trees can be deeper.
FileDescriptor openPath(std::string path)
{
    FileDescriptor base(AT_FDCWD);
    while (path.size() >= PATH_MAX) {
        const std::size_t cut = path.rfind('/', PATH_MAX - 1);
        if (cut == std::string::npos || cut == 0)
            return FileDescriptor();
        base = FileDescriptor(openat(base.get(), path.substr(0, cut).c_str(), openForReading));
        if (!base.isValid())
            return base;
        path.erase(0, cut + 1);
    }
    return FileDescriptor(openat(base.get(), path.c_str(), openForReading));
}

} // namespace

std::atomic<int> WatchedTree::recheckPause{60000};

FileDescriptor::FileDescriptor(int descriptor)
    : m_descriptor(descriptor)
{
}

FileDescriptor::FileDescriptor(FileDescriptor&& other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1))
{
}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept
{
    std::swap(m_descriptor, other.m_descriptor);
    return *this;
}

FileDescriptor::~FileDescriptor()
{
    if (isValid())
        close(m_descriptor);
}

WatchedTree::WatchedTree(const QString& root, Report report)
    : m_report(std::move(report))
    , m_rootPath(withoutSlash(QFile::encodeName(root).toStdString()))
    , m_absoluteRoot(withoutSlash(QFile::encodeName(QDir(root).absolutePath()).toStdString()))
{
}

WatchedTree::~WatchedTree() = default;

WatchedTree::Opened WatchedTree::open()
{
    // File systems stamp with this clock, cut to what they can store: 10 ms is the coarsest below 1 s.
    clock_gettime(CLOCK_REALTIME_COARSE, &m_since);
    m_since.tv_nsec -= m_since.tv_nsec % 10000000;

    m_root = openPath(m_absoluteRoot + '/');
    if (!m_root.isValid())
        return Opened::NoDirectory;
    m_queue = FileDescriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!m_queue.isValid()) {
        if (isLimit(errno))
            limitReached(m_rootPath);
        return Opened::NoQueue;
    }
    m_rootWatch = addWatch(m_root.get());
    if (m_rootWatch < 0) {
        if (isLimit(errno))
            limitReached(m_rootPath);
        return Opened::NoDirectory;
    }
    m_directories.emplace(m_rootWatch, Directory());
    m_rootFile = {};
    statx(m_root.get(), "", AT_EMPTY_PATH, STATX_INO, &m_rootFile);
    return Opened::Yes;
}

void WatchedTree::scan()
{
    m_ownCurrentDirectory = unshare(CLONE_FS) == 0;
    readFrom(m_rootWatch, std::move(m_root), Content::Known);
    readLater();
    readUnread();
    m_entries = std::vector<char>(); // seldom needed from now on
    finish();
}

int WatchedTree::queue() const
{
    return m_queue.get();
}

void WatchedTree::readEvents()
{
    alignas(inotify_event) std::array<char, bufferSize> buffer = {};
    const ssize_t size = ::read(m_queue.get(), buffer.data(), buffer.size());
    for (ssize_t at = 0; at < size && !m_overflowed && !m_rootLeft;) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        handle(*event);
    }
    if (m_overflowed)
        rebuild();
    finish();
}

bool WatchedTree::checkRoot()
{
    const FileDescriptor there = openPath(m_absoluteRoot + '/');
    struct statx status = {};
    bool isRebuilt = false;
    if (!there.isValid()) {
        leaveRoot(Removed);
    } else if (m_rootLeft ||
               (statx(there.get(), "", AT_EMPTY_PATH, STATX_INO, &status) == 0 && !isSameFile(status, m_rootFile))) {
        rebuild();
        isRebuilt = true;
    }
    finish();
    return isRebuilt;
}

bool WatchedTree::isIncomplete() const
{
    return m_incomplete || m_rootLeft;
}

void WatchedTree::recheck()
{
    if (checkRoot() || m_rootLeft)
        return;
    if (m_queue.isValid())
        missed();
    else
        rebuild();
    finish();
}

bool WatchedTree::hasDetached() const
{
    return !m_detached.empty();
}

void WatchedTree::removeDetached()
{
    for (int i = 0; i < maxRemoved && !m_detached.empty(); ++i) {
        const int watch = m_detached.back();
        m_detached.pop_back();
        if (!isInTree(watch) && m_directories.erase(watch) != 0)
            inotify_rm_watch(m_queue.get(), watch);
    }
}

/// Notifications were lost or the root is another one: everything known about the tree may be wrong.
void WatchedTree::rebuild()
{
    ORVEL_LOG << "Filename changed " << QString() << " action " << (m_rootLeft ? Added : Overflow);
    missed();
    m_incomplete = false;
    m_rootLeft = false;
    forget();
    const Opened opened = open();
    flush(); // before the scan: it finds what changes while the receiver looks
    if (opened == Opened::Yes) {
        scan();
        return;
    }
    m_root = FileDescriptor();
    m_queue = FileDescriptor();
    m_rootLeft = opened == Opened::NoDirectory;
}

/// Reports the root, once; what happens in it elsewhere is nobody's business any more.
void WatchedTree::leaveRoot(int action)
{
    if (m_rootLeft)
        return;
    ORVEL_LOG << "Filename changed " << QString() << " action " << action;
    missed();
    m_rootLeft = true;
    forget();
}

void WatchedTree::forget()
{
    m_overflowed = false;
    m_directories.clear();
    m_unread.clear();
    m_later.clear();
    m_detached.clear();
    m_lastWatch = 0;
    m_queue = FileDescriptor(); // its watches are free again
}

void WatchedTree::handle(const inotify_event& event)
{
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        m_overflowed = true;
        return;
    }
    if ((event.mask & IN_IGNORED) != 0) { // removed, or its disk is gone
        if (isInTree(event.wd))
            detach(event.wd);
        m_directories.erase(event.wd);
        return;
    }
    if (!isInTree(event.wd))
        return;
    if (event.wd == m_rootWatch)
        handleRootEvent(event.mask);
    else if ((event.mask & IN_MOVE_SELF) != 0)
        checkPlace(event.wd);
    if (event.len != 0 && (event.mask & namesAndWrites) != 0)
        handleEntry(event);
    if ((event.mask & IN_MOVE_SELF) != 0 && !m_unread.empty())
        readUnread();
}

void WatchedTree::handleEntry(const inotify_event& event)
{
    const bool isDirectory = (event.mask & IN_ISDIR) != 0;
    const bool isModification = (event.mask & (IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB)) != 0;
    if (!isDirectory || !isModification) {
        if (m_lastWatch != event.wd) {
            const std::string path = pathOf(event.wd);
            m_lastPath = QFile::decodeName(path.empty() ? "/" : path.c_str());
            m_lastWatch = event.wd;
        }
        ORVEL_LOG << "Filename changed " << relativePath(pathOf(event.wd), event.name) << " action "
                  << actionOf(event.mask);
        m_changed.append(m_lastPath);
    }
    // One whose permissions have changed may have become readable.
    if (isDirectory && (isModification || (event.mask & (IN_CREATE | IN_MOVED_TO)) != 0))
        findChild(event.wd, event.name);
}

void WatchedTree::handleRootEvent(quint32 mask)
{
    if ((mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT)) != 0)
        leaveRoot((mask & IN_MOVE_SELF) != 0 ? OldName : Removed);
}

/// Looks what directory is called @p name now.
void WatchedTree::findChild(int parent, const std::string& name)
{
    const FileDescriptor directory = openDirectory(parent);
    if (!directory.isValid()) {
        m_unread.insert(parent);
        return;
    }
    std::string path = pathOf(parent);
    readChild(directory.get(), parent, name.c_str(), path, Content::New, 0);
    readLater();
}

/// The directory was renamed; a new name within the tree is known by now, unless it has moved on.
void WatchedTree::checkPlace(int watch)
{
    const int parent = m_directories.at(watch).parent;
    const std::string name = m_directories.at(watch).name;
    const FileDescriptor parentDirectory = openDirectory(parent);
    if (!parentDirectory.isValid()) {
        detach(watch);
        m_unread.insert(parent);
        return;
    }
    const FileDescriptor directory(openat(parentDirectory.get(), name.c_str(), openForReading | O_NOFOLLOW));
    const int found = directory.isValid() ? addWatch(directory.get()) : -1;
    if (found == watch)
        return;
    forgetUnknown(found);
    detach(watch);
    if (found >= 0)
        findChild(parent, name);
}

/// A directory that could not be reached has an ancestor that moved and is not known at its new place yet:
/// each move that becomes known is a reason to try again.
void WatchedTree::readUnread()
{
    const std::unordered_set<int> unread = std::exchange(m_unread, {});
    for (const int watch : unread) {
        if (isInTree(watch))
            readFrom(watch, openDirectory(watch), Content::New);
    }
    readLater();
}

void WatchedTree::readFrom(int watch, FileDescriptor directory, Content content)
{
    if (!directory.isValid()) {
        m_unread.insert(watch);
        return;
    }
    std::string path = pathOf(watch);
    read(directory.get(), watch, path, content, 0);
}

void WatchedTree::readLater()
{
    while (!m_later.empty() && !stopRequested()) {
        const auto [watch, content] = m_later.back();
        m_later.pop_back();
        if (isInTree(watch))
            readFrom(watch, openDirectory(watch), content);
    }
}

/// Reads a directory whose watch is there already (or cannot be had: 0), so that each change is either seen
/// here or notified. @p content New: everything in it is a change. Known: what is not older than the watch
/// over the tree. @p path is the directory's, and the same again afterwards.
void WatchedTree::read(int descriptor, int watch, std::string& path, Content content, int level)
{
    constexpr unsigned wanted = STATX_TYPE | STATX_CTIME;
    constexpr int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
    struct statx status = {};
    bool report = false;
    if (content == Content::Known && statx(descriptor, "", flags | AT_EMPTY_PATH, wanted, &status) == 0 &&
        hasChanged(status)) {
        // An entry has come or gone; which one is not known.
        ORVEL_LOG << "Filename changed " << relativePath(path, "") << " action " << Modified;
        report = true;
    }

    m_entries.resize(entriesSize);
    std::string children; // their names, each with its terminating 0
    ssize_t size = 0;
    while (!stopRequested() && (size = getdents64(descriptor, m_entries.data(), m_entries.size())) > 0) {
        for (ssize_t at = 0; at < size;) {
            const auto* entry = reinterpret_cast<const dirent64*>(m_entries.data() + at);
            at += entry->d_reclen;
            const char* const name = entry->d_name;
            if (isDots(name))
                continue;
            bool isDirectory = entry->d_type == DT_DIR;
            const bool askTime = content == Content::Known && !report && !isDirectory;
            if ((askTime || entry->d_type == DT_UNKNOWN) && statx(descriptor, name, flags, wanted, &status) == 0) {
                isDirectory = S_ISDIR(status.stx_mode);
                if (askTime && !isDirectory && hasChanged(status)) {
                    ORVEL_LOG << "Filename changed " << relativePath(path, name) << " action " << Modified;
                    report = true;
                }
            }
            if (content == Content::New) {
                ORVEL_LOG << "Filename changed " << relativePath(path, name) << " action " << Added;
                report = true;
            }
            if (isDirectory)
                children.append(name, std::strlen(name) + 1);
        }
    }
    if (report)
        changed(path);
    for (std::size_t at = 0; at < children.size() && !stopRequested(); at = children.find('\0', at) + 1)
        readChild(descriptor, watch, children.c_str() + at, path, content, level + 1);
}

void WatchedTree::readChild(int parent, int parentWatch, const char* name, std::string& path, Content content,
                            int level)
{
    // Gone, a link, or closed to us: a notification tells when that changes.
    const FileDescriptor directory(openat(parent, name, openForReading | O_NOFOLLOW));
    if (!directory.isValid()) {
        if (isLimit(errno))
            limitReached(path + '/' + name);
        return;
    }
    int watch = 0;
    if (parentWatch != 0) {
        watch = addWatch(directory.get());
        if (watch < 0) {
            if (!isLimit(errno))
                return;
            watch = 0;
            limitReached(path + '/' + name);
        } else if (!isEntry(directory.get(), parent, name)) {
            // Moved away before the watch could tell of it; the notification of its parent does.
            forgetUnknown(watch);
            return;
        } else if (!attach(watch, parentWatch, name)) {
            return;
        }
    }

    if (level < maxLevel) {
        const std::size_t length = path.size();
        path.append(1, '/').append(name);
        read(directory.get(), watch, path, content, level);
        path.resize(length);
    } else if (watch != 0) {
        m_later.emplace_back(watch, content);
    }
}

/// None when the directory is not where it was: a notification about that is waiting.
FileDescriptor WatchedTree::openDirectory(int watch)
{
    FileDescriptor directory = openPath(m_absoluteRoot + pathOf(watch).substr(m_rootPath.size()) + '/');
    if (!directory.isValid())
        return directory;
    const int found = addWatch(directory.get());
    if (found == watch)
        return directory;
    forgetUnknown(found);
    return FileDescriptor();
}

/// Watches the open directory; the watch is the same again for one that is watched already. -1, with errno,
/// when that cannot be.
int WatchedTree::addWatch(int descriptor)
{
    // The call takes nothing but a path. The current directory is by far the shortest.
    if (m_ownCurrentDirectory && fchdir(descriptor) == 0)
        return inotify_add_watch(m_queue.get(), ".", watchFlags);
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    return inotify_add_watch(m_queue.get(), path.c_str(), watchFlags);
}

/// Takes the watch away from a directory that has turned out to be somewhere else, unless it is known there.
void WatchedTree::forgetUnknown(int watch)
{
    if (watch >= 0 && m_directories.count(watch) == 0)
        inotify_rm_watch(m_queue.get(), watch);
}

bool WatchedTree::isInTree(int watch) const
{
    const auto found = m_directories.find(watch);
    return found != m_directories.end() && (found->second.parent != 0 || watch == m_rootWatch);
}

bool WatchedTree::isWithin(int watch, int ancestor) const
{
    while (watch != ancestor && watch != m_rootWatch)
        watch = m_directories.at(watch).parent;
    return watch == ancestor;
}

/// Notes where the directory is. True when its content is still to be read.
bool WatchedTree::attach(int watch, int parent, const std::string& name)
{
    // One directory inside itself: a mount shows it twice, or a notification about a move is still waiting.
    if (isWithin(parent, watch))
        return false;
    const bool isNew = !isInTree(watch);
    const bool isUnread = m_unread.erase(watch) != 0;
    Directory& directory = m_directories[watch];
    if (!isNew) {
        if (directory.parent == parent && directory.name == name)
            return isUnread;
        unlink(directory);
        m_lastWatch = 0;
    }
    Directory& parentDirectory = m_directories.at(parent);
    directory.parent = parent;
    directory.name = name;
    directory.previous = 0;
    directory.next = parentDirectory.firstChild;
    if (directory.next != 0)
        m_directories.at(directory.next).previous = watch;
    parentDirectory.firstChild = watch;
    return isNew || isUnread;
}

void WatchedTree::unlink(Directory& directory)
{
    if (directory.previous != 0)
        m_directories.at(directory.previous).next = directory.next;
    else if (directory.parent != 0)
        m_directories.at(directory.parent).firstChild = directory.next;
    if (directory.next != 0)
        m_directories.at(directory.next).previous = directory.previous;
    directory.parent = directory.previous = directory.next = 0;
}

/// The directory and everything beneath it is no longer in the tree.
void WatchedTree::detach(int watch)
{
    m_lastWatch = 0;
    unlink(m_directories.at(watch));
    std::vector<int> pending(1, watch);
    while (!pending.empty()) {
        const int current = pending.back();
        pending.pop_back();
        m_detached.push_back(current);
        m_unread.erase(current);
        Directory& directory = m_directories.at(current);
        directory.parent = directory.previous = 0;
        const int firstChild = std::exchange(directory.firstChild, 0);
        for (int child = firstChild; child != 0;) {
            pending.push_back(child);
            child = std::exchange(m_directories.at(child).next, 0);
        }
    }
}

std::string WatchedTree::pathOf(int watch) const
{
    std::vector<const std::string*> names;
    while (watch != m_rootWatch) {
        const Directory& directory = m_directories.at(watch);
        names.push_back(&directory.name);
        watch = directory.parent;
    }
    std::string path = m_rootPath;
    for (auto name = names.crbegin(); name != names.crend(); ++name)
        path.append(1, '/').append(**name);
    return path;
}

QString WatchedTree::relativePath(const std::string& path, const char* name) const
{
    std::string relative = path.substr(m_rootPath.size());
    relative.append(1, '/').append(name);
    return QFile::decodeName(withoutSlash(relative).c_str()).mid(1);
}

void WatchedTree::changed(const std::string& path)
{
    m_changed.append(QFile::decodeName(path.empty() ? "/" : path.c_str()));
    if (m_changed.size() >= maxReported)
        flush();
}

/// Reports the root for what is not known to have changed.
void WatchedTree::missed()
{
    m_hasMissed = true; // first: what follows may be the last that one report holds
    changed(m_rootPath);
}

void WatchedTree::flush()
{
    if (m_changed.isEmpty())
        return;
    m_report(m_changed, std::exchange(m_hasMissed, false));
    m_changed.clear();
}

void WatchedTree::limitReached(const std::string& path)
{
    m_incomplete = true;
    if (!std::exchange(m_limitLogged, true))
        ORVEL_LOG << "Watch limit reached, changes will be reported late in " << QFile::decodeName(path.c_str());
}

void WatchedTree::finish()
{
    // A disk with somebody's current directory on it cannot be removed, not even by the receiver of the report.
    if (m_ownCurrentDirectory && chdir("/") != 0)
        m_ownCurrentDirectory = false;
    flush();
}

/// Whether the open directory is the one of that name in the parent.
bool WatchedTree::isEntry(int descriptor, int parent, const char* name)
{
    struct statx own = {};
    struct statx there = {};
    return statx(descriptor, "", AT_EMPTY_PATH, STATX_INO, &own) == 0 &&
           statx(parent, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_INO, &there) == 0 && isSameFile(own, there);
}

bool WatchedTree::hasChanged(const struct statx& entry) const
{
    const statx_timestamp& time = entry.stx_ctime;
    // A file system that stores whole seconds (or every other one) lets a change look older than it is.
    if (time.tv_nsec == 0)
        return time.tv_sec + 1 >= m_since.tv_sec;
    return time.tv_sec > m_since.tv_sec || (time.tv_sec == m_since.tv_sec && time.tv_nsec >= m_since.tv_nsec);
}
