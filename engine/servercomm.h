#pragma once

#include "engine/engineconfig.h"
#include "engine/enginedeaths.h"
#include "engine/enginestate.h"

#include <QBasicTimer>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QProcess>
#include <QVariantMap>

#include <functional>
#include <memory>

/// The client's only link to the sync engine, a program of its own that runs as a child process.
///
/// It starts and stops the engine, reads its messages (one JSON object a line on its standard error),
/// writes commands to its standard input, and owns its configuration file. GUI thread only. Nothing is
/// thrown; failures are logged, and results of file writes are not reported.
///
/// An engine that dies again and again is launched less and less often (EngineDeaths). One that no longer reads
/// is killed when too much waits for it, and counts as one that died.
///
/// Built once, with no parent; destruction kills the engine and waits up to 3 s for its end.
class ServerComm final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ServerComm)

public:
    /// The current directory must be the installation directory: the engine's files and the template of
    /// its configuration are found from it. The data directory is resolved here, from the application
    /// names as they are now. With @p autostart the engine is started at once.
    ServerComm(const QString& applicationName, const QString& organizationName, bool autostart);
    ~ServerComm() override;

    /// Switches sync on (starts the engine) or off (kills it without waiting for its end).
    void toggleServer(bool on);
    /// Launches the engine, but only while it is wanted, no earlier one is still ending and none has to wait.
    void startServer();
    /// Hands the configuration to the running engine; true when it was written. Starts an engine that is
    /// wanted but not running, and returns false then.
    bool postConfig();
    /// Whether the engine is wanted (not whether its process runs).
    bool running() const;
    /// Whether an engine's process is there, also one that is switched off and has not ended yet.
    bool hasProcess() const;
    /// Has the facts of another computer told than of this one, for tests.
    void setMachine(std::function<Machine()> machine);
    /// Stretches (or, with 0, drops) the waits of launches after repeated deaths, for tests.
    void setLaunchWaitFactor(double factor);

    // Commands. Each is written at once; one that is given while the engine does not run is lost.
    void logout();
    void setSyncEnabled(bool val);
    void pathQuery(const QString& path, const QString& what);
    /// @p msgid comes back in shareFolderResult().
    void shareFolder(const QString& username, const QString& path, int msgid);
    /// @p cid picks one of the accounts of @p username; empty leaves the choice to the engine.
    void login(const QString& username, const QString& password, const QString& cid);
    void login(const QString& username, const QString& password);
    /// Asks the engine to test its port, or to renew its port forwarding, with the next configuration post.
    void requestPortCheck();
    void requestUpnpReset();

    // Configuration
    void readConfig();
    void saveConfig(bool post);
    void saveConfig();
    /// Where the sync folder lies: its parent directory and its own name. Not saved by itself.
    void setHome(const QString& homepath, const QString& homefolder);
    const EngineConfig& config() const;
    /// Full path of "config.json".
    const QString& configPath() const;

    /// What one read of the engine's messages does: each whole line in it is a message, and what is none is
    /// skipped. The engine's own process needs no help; it is public for tests.
    void takeOutput(const QByteArray& raw);

    /// The engine's state directory, absolute.
    const QString& stateDir() const;
    /// The installation directory, absolute.
    const QString& rootDir() const;
    const EngineState& state() const;

signals:
    void logText(QString str);
    void stateChanged();
    void netStateChanged();
    void rootsChanged();
    void shareFolderResult(int msgid, bool success, int msg);
    void serverDied();
    void spaceUsedChanged();
    void pathQueryResult(QString what, QList<quint64> ids);
    void racunIds(QStringList ids);

public slots:
    void observedPathsChanged(QStringList& paths);

protected:
    void timerEvent(QTimerEvent* event) override;

private slots:
    void serverStarted();
    void serverOutput();
    void configTimeout();
    void srvError(QProcess::ProcessError error);
    void srvFinished(int exitCode, QProcess::ExitStatus exitStatus);

private:
    void connectProcess();
    void openStateDir();
    void seedConfig();
    void prepareEnvironment();
    void checkLocalAddress();
    void noteOutput(const QByteArray& output);
    QByteArray masked(QByteArray output) const;
    QString lastWords() const;
    void endDeafEngine();
    void launchLater(int exitCode);
    void handleMessage(const QVariantMap& message);
    void send(const QVariantMap& command);
    qint64 sendText(const QByteArray& json);

    std::unique_ptr<QProcess> m_process;
    bool m_autostart = false;
    bool m_running = false;
    bool m_endAsked = false; ///< of the process that runs: its end is no death
    EngineDeaths m_deaths;
    QElapsedTimer m_clock; ///< of m_deaths
    QBasicTimer m_launchWait;
    double m_launchWaitFactor = 1;
    QByteArray m_lastOutput; ///< the last read with more than blanks
    QString m_loginPassword; ///< the last one sent; only to keep it out of the log, as masked() does
    QString m_rootDir;
    QString m_stateDir;
    QString m_configPath;
    QByteArray m_configBytes;
    std::function<Machine()> m_machine = Machine::current;
    bool m_checkPortPending = false;
    bool m_resetUpnpPending = false;
    EngineConfig m_config;
    EngineState m_state;
};
