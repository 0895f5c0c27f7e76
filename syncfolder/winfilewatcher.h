#pragma once

#include <QStringList>
#include <QThread>

#include <memory>

/// Watches directories ("roots"), everything beneath them included, for entries that are created, renamed,
/// removed or written, and tells in which directories that happened.
///
/// Create and destroy it on the thread of its owner; it works on a thread of its own. A root that cannot be
/// opened switches the whole watcher off: one log line names it, the remaining roots are left alone and no
/// thread runs. So do, on Windows, more than 63 roots. Symbolic links beneath a root are not followed. No
/// failure reaches the caller. What was missed (the system dropped notifications) is reported as the root it was missed
/// in. On Linux, a root that the system does not let be watched as a whole is reported every minute, and one that has
/// left its place or whose disk is gone is watched again when something is there, at a mount or within a minute; on
/// Windows, nothing is tried again.
class WinFileWatcher final : public QThread
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(WinFileWatcher)

public:
    /// What pathsChanged() does not tell. Called on the watcher's thread.
    class Observer
    {
        Q_DISABLE_COPY_MOVE(Observer)

    public:
        Observer() = default;
        virtual ~Observer() = default;
        /// Every root is watched as a whole now, as far as the system lets it; once.
        virtual void watching() = 0;
        /// The report that follows names the root because changes may have been missed, or it is gone.
        virtual void missed() = 0;
    };

    /// Opens all of @p paths (full paths) and starts watching, unless the list is empty. Changes made from
    /// here on are reported; the first report waits until somebody is connected to pathsChanged(). @p observer, which
    /// may be null, outlives the thread.
    WinFileWatcher(const QStringList& paths, QObject* parent, Observer* observer = nullptr);
    /// Ends the thread; waits for that up to 5 s. A thread that takes longer would end the program: see Release.
    ~WinFileWatcher() override;

    /// Deletes a watcher; for owners' pointers. One whose thread does not end within 5 s, because the disk that it
    /// looks at does not answer, reports nothing any more and is deleted once it ends.
    struct Release
    {
        void operator()(WinFileWatcher* watcher) const;
    };

signals:
    /// The directories that contain the changed entries, full paths that begin with the root as it was
    /// given, repetitions included. Emitted on the watcher's thread; the one receiver deletes @p paths.
    void pathsChanged(QStringList* paths);

protected:
    void run() override;
    void connectNotify(const QMetaMethod& signal) override;

private:
    void askToStop();
    /// Whether the thread has ended.
    bool stop();

    struct Private;
    const std::unique_ptr<Private> m_private;
};
