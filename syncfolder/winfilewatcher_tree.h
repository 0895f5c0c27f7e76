#pragma once

#include <QStringList>

#include <sys/stat.h>

#include <atomic>
#include <ctime>
#include <functional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

struct inotify_event;

/// Owns a file descriptor of the system; -1 is none.
class FileDescriptor final
{
public:
    explicit FileDescriptor(int descriptor = -1);
    FileDescriptor(FileDescriptor&& other) noexcept;
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    ~FileDescriptor();

    bool isValid() const
    {
        return m_descriptor >= 0;
    }
    int get() const
    {
        return m_descriptor;
    }

private:
    int m_descriptor;
};

/// The Linux watch over one root: a queue of notifications of its own, and one watch per directory.
///
/// open() belongs to the thread that makes the object, everything after it to the thread that watches; that
/// one is a QThread, whose requested interruption ends a walk through the tree early, and whose current
/// directory becomes its own and is changed. Directories are recognised by their watch, not by their path,
/// so renames by others while the tree is being read or notifications are waiting do no harm.
class WatchedTree final
{
    Q_DISABLE_COPY_MOVE(WatchedTree)

public:
    enum class Opened
    {
        Yes,
        NoDirectory,
        NoQueue
    };
    /// How long a tree is left alone that cannot be watched as a whole now, in ms; shorter in tests.
    static std::atomic<int> recheckPause;
    /// Bytes of notifications that one readEvents() takes.
    static constexpr std::size_t bufferSize = 16384;
    /// Takes the directories to report, and whether the root is among them for all that may have been missed; never
    /// called with an empty list.
    using Report = std::function<void(const QStringList& directories, bool hasMissed)>;

    WatchedTree(const QString& root, Report report);
    ~WatchedTree();

    /// Opens the root and watches the root alone. From here on nothing is lost.
    Opened open();
    /// Watches what is beneath the root, and reports what has changed since open().
    void scan();
    /// The queue, to be polled; -1 while there is none. Changes when notifications were lost or the root is another.
    int queue() const;
    /// Takes one buffer of notifications and reports it; to be called when the queue has some.
    void readEvents();
    /// To be called when something was mounted or unmounted: reports the root and watches what is in its place, if
    /// that is another one now. Whether it is.
    bool checkRoot();
    /// Whether the system's limits leave a part of the tree without a watch or there is no root, so that recheck() is
    /// due from time to time.
    bool isIncomplete() const;
    /// Reports the root for all that may have been missed, unless there is none; one that is back is watched again.
    void recheck();
    /// Whether watches wait for removeDetached().
    bool hasDetached() const;
    /// Removes some of the watches of directories that have left the tree.
    void removeDetached();

private:
    /// A watched directory; the key of the table is its watch.
    struct Directory
    {
        int parent = 0;     ///< 0: the root, or it has left the tree
        int firstChild = 0; ///< 0: none
        int previous = 0;   ///< among the children of the parent
        int next = 0;
        std::string name; ///< within the parent
    };
    enum class Content
    {
        New,
        Known
    };

    void rebuild();
    void leaveRoot(int action);
    void forget();
    void handle(const inotify_event& event);
    void handleEntry(const inotify_event& event);
    void handleRootEvent(quint32 mask);
    void findChild(int parent, const std::string& name);
    void checkPlace(int watch);
    void readUnread();

    void readFrom(int watch, FileDescriptor directory, Content content);
    void readLater();
    void read(int descriptor, int watch, std::string& path, Content content, int level);
    void readChild(int parent, int parentWatch, const char* name, std::string& path, Content content, int level);
    FileDescriptor openDirectory(int watch);
    int addWatch(int descriptor);
    void forgetUnknown(int watch);
    static bool isEntry(int descriptor, int parent, const char* name);

    bool isInTree(int watch) const;
    bool isWithin(int watch, int ancestor) const;
    bool attach(int watch, int parent, const std::string& name);
    void unlink(Directory& directory);
    void detach(int watch);

    std::string pathOf(int watch) const;
    QString relativePath(const std::string& path, const char* name) const;
    void changed(const std::string& path);
    void missed();
    void flush();
    void finish();
    void limitReached(const std::string& path);
    bool hasChanged(const struct statx& entry) const;

    const Report m_report;
    const std::string m_rootPath; ///< as it is reported, without a slash at its end
    const std::string m_absoluteRoot;
    bool m_ownCurrentDirectory = false; ///< the watching thread has one that is not the program's
    FileDescriptor m_queue;
    FileDescriptor m_root; ///< from open() to scan() only, so that the disk can be removed
    int m_rootWatch = 0;
    struct statx m_rootFile = {}; ///< tells the root from another directory in its place
    timespec m_since = {};        ///< when this watch over the tree began

    std::unordered_map<int, Directory> m_directories;
    std::unordered_set<int> m_unread; ///< directories that could not be reached by their path
    std::vector<std::pair<int, Content>> m_later;
    std::vector<int> m_detached;
    std::vector<char> m_entries; ///< what the system tells of a directory's entries
    QStringList m_changed;
    int m_lastWatch = 0; ///< the directory of m_lastPath; 0 for none
    QString m_lastPath;
    bool m_hasMissed = false; ///< the report in the making says so
    bool m_overflowed = false;
    bool m_incomplete = false; ///< for the system's limits
    bool m_rootLeft = false;   ///< or its place, so that it has no watch
    bool m_limitLogged = false;
};
