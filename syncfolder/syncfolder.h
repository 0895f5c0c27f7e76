#pragma once

#include "syncfolder/winfilewatcher.h"

#include <QBasicTimer>
#include <QDeadlineTimer>
#include <QDir>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QSettings>
#include <QStringList>
#include <QVariantList>

#include <functional>
#include <memory>

class PickHomepath;
class ServerComm;

/// Knows where the account's sync folders ("roots") lie on disk.
///
/// It reads the roots file that the engine keeps per account, starts the engine when the last account's
/// roots are still there, watches them and reports changed directories in batches of a second, and carries
/// out the user's answer when the sync folder has gone missing. It never synchronises files itself.
/// GUI thread only. Failures to read, write, rename or remove are not reported to the caller.
class SyncFolder final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(SyncFolder)

public:
    /// Checks the last account's roots and switches the engine on when they are there. @p server is not
    /// owned and must outlive this object. Application and organisation names must be set.
    SyncFolder(ServerComm* server, QObject* parent);
    ~SyncFolder() override;

    /// To be called each time the user turns to the application: asks for a missing sync folder.
    void AppActivated();
    /// Whether every root of the account can be entered; remembers the last of them as rootPath().
    bool validRootPaths(quint64 uid);
    /// The elements of the current account's roots file; empty when there is none or it is no JSON array.
    QVariantList readRoots() const;
    /// Remembers the engine's cache directory inside @p root, if it has one.
    void findCacheDir(const QDir& root);
    /// Told the reason, in the user's language.
    using MoveFailed = std::function<void(const QString& reason)>;
    /// Moves the sync folder to @p newPath (its full new path, which must not exist). The engine may have files open
    /// below, so it is switched off and its end waited for, up to 3 s, with the event loop running; it is switched on
    /// again in any case. @p failed is called if the folder could not be moved, while this object lives.
    void moveRoot(const QString& newPath, MoveFailed failed = {});

    /// Full path of the last root that passed the check at start; empty until then.
    const QString& rootPath() const;
    /// Id of the account whose roots are loaded; 0 for none.
    quint64 uid() const;

protected:
    void timerEvent(QTimerEvent* event) override;

signals:
    // Both pass a list that ends with the call: connect them directly.
    void pathsChanged(QStringList& paths);
    void rootsChanged(QList<QDir>& roots);

private slots:
    void RootPicked(QString path);
    void RootDeleted();
    void extPathsChanged(QStringList* paths);
    void reportTimeout();
    void rootsChanged();
    void loginChanged();
    void pickHomeclosed(int result);
    void macEventChecker();
    void macEventChecker1();

private:
    QString rootsFile() const;
    void destroyWatcher();
    void finishMove();

    /// The move that waits for the engine's end.
    struct Move
    {
        QBasicTimer look;
        QDeadlineTimer deadline;
        QString path;
        QString newPath;
        MoveFailed failed;
    };

    ServerComm* m_server;
    QSettings m_settings; ///< kept open: to open them takes longer than all that a report does
    QString m_rootPath;
    QPointer<PickHomepath> m_picker;
    bool m_rootValid = true;
    quint64 m_uid = 0;
    QStringList m_pendingPaths;
    QSet<QString> m_pendingSet; ///< the same paths, to find one without a walk
    bool m_reportArmed = false;
    bool m_reportAgain = false;
    qint64 m_lastChangeTime; ///< ms since the epoch
    QDir m_cacheDir;
    Move m_move;
    std::unique_ptr<WinFileWatcher, WinFileWatcher::Release> m_watcher;
};
