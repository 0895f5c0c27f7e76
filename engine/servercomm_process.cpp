#include "base/deployment.h"
#include "base/log.h"
#include "engine/engineprocess.h"
#include "engine/privatefiles.h"
#include "engine/servercomm.h"
#include "json/asciijson.h"
#include "json/json.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcessEnvironment>
#include <QStandardPaths>
#include <QTimer>
#include <QTimerEvent>

#include <algorithm>
#include <cctype>

namespace
{

constexpr int firstPostDelay = 500;   // ms
constexpr int postRetryDelay = 1000;  // ms
constexpr int shutdownTimeout = 3000; // ms
constexpr int shownOutput = 200;      // bytes

bool isPartOfAWord(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || static_cast<unsigned char>(c) >= 0x80;
}

/// Hides the secret. A short one is also part of words that are none, and is hidden where it stands for itself.
void mask(QByteArray& text, const QByteArray& secret)
{
    constexpr int longEnough = 6;
    const QByteArray stars = QByteArrayLiteral("***");
    if (secret.size() >= longEnough) {
        text.replace(secret, stars);
        return;
    }
    int from = 0;
    while ((from = text.indexOf(secret, from)) >= 0) {
        const int end = from + secret.size();
        const bool isEscaped = from > 1 && text.at(from - 2) == '\\'; // the letter before it is a line feed or its like
        const bool goesOn =
            (from > 0 && !isEscaped && isPartOfAWord(secret.front()) && isPartOfAWord(text.at(from - 1))) ||
            (end < text.size() && isPartOfAWord(secret.back()) && isPartOfAWord(text.at(end)));
        if (!goesOn)
            text.replace(from, secret.size(), stars);
        from += goesOn ? 1 : stars.size();
    }
}

} // namespace

ServerComm::ServerComm(const QString& applicationName, const QString& organizationName, bool autostart)
    : m_process(makeEngineProcess())
    , m_autostart(autostart)
    , m_running(autostart)
{
    m_config.syncfolders = QStringList{applicationName};
    m_config.appname = applicationName;
    m_config.organization = organizationName;
    m_config.synchome = tr(deployment::serverHost);
    m_config.srvip = m_machine().firstAddress();

    m_clock.start();
    connectProcess();
    ORVEL_LOG << "servercomm:"
              << "ServerComm created ";
    openStateDir();
    m_rootDir = QDir::currentPath();
    seedConfig();
    ORVEL_LOG << "servercomm:"
              << "Cfg path " << m_configPath;
    ORVEL_LOG << "servercomm:"
              << "Rootdir " << m_rootDir;
    QDir(QDir::tempPath()).mkdir(applicationName);
    prepareEnvironment();
    readConfig();
    if (m_autostart)
        startServer();
    QTimer::singleShot(firstPostDelay, this, SLOT(configTimeout()));
    ORVEL_LOG << "servercomm:"
              << "Comm initialized\n";
}

ServerComm::~ServerComm()
{
    m_running = false; // this end is wanted: nobody is to be told that the engine died
    m_process->kill();
    m_process->waitForFinished(shutdownTimeout);
}

void ServerComm::connectProcess()
{
    connect(m_process.get(), SIGNAL(started()), this, SLOT(serverStarted()));
    connect(m_process.get(), SIGNAL(readyReadStandardError()), this, SLOT(serverOutput()));
    connect(m_process.get(), SIGNAL(readyReadStandardOutput()), this, SLOT(serverOutput()));
    connect(m_process.get(), SIGNAL(error(QProcess::ProcessError)), this, SLOT(srvError(QProcess::ProcessError)));
    connect(m_process.get(), SIGNAL(finished(int, QProcess::ExitStatus)), this,
            SLOT(srvFinished(int, QProcess::ExitStatus)));
}

void ServerComm::openStateDir()
{
    QDir dir(QStandardPaths::writableLocation(QStandardPaths::DataLocation));
    // A fresh home may lack the parents, too.
    dir.mkpath(QStringLiteral("."));
    m_stateDir = dir.path();
    m_config.statedir = m_stateDir;
    privatefiles::tidy(m_stateDir);
}

void ServerComm::seedConfig()
{
    const QString fileName = QStringLiteral("/config.json");
    m_configPath = m_stateDir + fileName;
    QFile installed(m_rootDir + fileName);
    if (!QFileInfo::exists(m_configPath) && installed.open(QIODevice::ReadOnly))
        privatefiles::write(m_configPath, installed.readAll());
}

void ServerComm::prepareEnvironment()
{
    const QString binDir = QDir(m_rootDir + QStringLiteral("/erlang/erts-9.0/bin")).path();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("ROOTDIR"), QDir(m_rootDir + QStringLiteral("/erlang")).path());
    environment.insert(QStringLiteral("BINDIR"), binDir);
    m_process->setProcessEnvironment(environment);
    m_process->setWorkingDirectory(binDir);
}

void ServerComm::toggleServer(bool on)
{
    ORVEL_LOG << "servercomm:"
              << "Server toggle " << base::text(on);
    if (on) {
        if (!m_running) {
            m_running = true;
            startServer();
        }
    } else if (m_running) {
        ORVEL_LOG << "servercomm:"
                  << "Terminating erlang";
        m_endAsked = m_process->state() != QProcess::NotRunning;
        m_process->kill();
        m_running = false;
    }
}

void ServerComm::startServer()
{
    const QString program = QDir(QStringLiteral("erlang/erts-9.0/bin/erl.exe")).path();
    if (!m_running || m_launchWait.isActive())
        return;
    ORVEL_LOG << "servercomm:"
              << "Running server " << base::text(m_running) << " " << program;
    // A killed engine that is still ending is followed by the next one when it has ended: srvFinished().
    if (m_process->state() != QProcess::NotRunning)
        return;
    m_endAsked = false;
    m_lastOutput.clear();
    m_deaths.launched(m_clock.elapsed());
    // Taken against our own current directory: on Unix the child would look from its working directory.
    m_process->start(QFileInfo(program).absoluteFilePath(),
                     {QStringLiteral("+Bd"), QStringLiteral("-noshell"), QStringLiteral("-eval"),
                      QStringLiteral("begin file:set_cwd(\"../../srv/ebin\"),rtsp:startplain(false) end")},
                     QIODevice::ReadWrite);
}

bool ServerComm::running() const
{
    return m_running;
}

bool ServerComm::hasProcess() const
{
    return m_process->state() != QProcess::NotRunning;
}

bool ServerComm::postConfig()
{
    if (m_process->state() != QProcess::Running) {
        if (m_process->state() == QProcess::NotRunning)
            startServer();
        return false;
    }

    checkLocalAddress();
    if (m_configBytes.isEmpty()) {
        QFile file(m_configPath);
        if (file.open(QIODevice::ReadOnly))
            m_configBytes = file.readAll();
    }
    if (m_checkPortPending) {
        m_checkPortPending = false;
        send({{QStringLiteral("cmd"), QStringLiteral("checkport")}});
    } else if (m_resetUpnpPending) {
        m_resetUpnpPending = false;
        send({{QStringLiteral("cmd"), QStringLiteral("resetupnp")}});
    }
    return sendText(m_configBytes) > 0;
}

const QString& ServerComm::stateDir() const
{
    return m_stateDir;
}

const QString& ServerComm::rootDir() const
{
    return m_rootDir;
}

void ServerComm::serverStarted()
{
    postConfig();
    ORVEL_LOG << "servercomm:"
              << "Server Started!";
}

void ServerComm::configTimeout()
{
    if (!postConfig())
        QTimer::singleShot(postRetryDelay, this, SLOT(configTimeout()));
}

void ServerComm::srvError(QProcess::ProcessError error)
{
    ORVEL_LOG << "servercomm:"
              << "Process start error " << static_cast<int>(error);
    if (error == QProcess::WriteError && m_running)
        endDeafEngine();
}

/// One that does not hear its commands any more is of no use; its end is a death like any other.
void ServerComm::endDeafEngine()
{
    ORVEL_LOG << "servercomm:"
              << "Engine does not read, ending it";
    m_process->kill();
}

void ServerComm::srvFinished(int exitCode, QProcess::ExitStatus exitStatus)
{
    Q_UNUSED(exitStatus)
    ORVEL_LOG << "servercomm:"
              << "srv finished! autostart=" << base::text(m_autostart) << " running=" << base::text(m_running);
    if (!m_running || m_autostart)
        return;
    m_running = false;
    if (!m_endAsked) // else it was switched off and on again before its end
        launchLater(exitCode);
    emit serverDied();
}

/// Lets the launch that follows wait, if the engine has died too often.
void ServerComm::launchLater(int exitCode)
{
    const double wait = static_cast<double>(m_deaths.died(m_clock.elapsed())) * m_launchWaitFactor;
    if (wait < 1)
        return;
    ORVEL_LOG << "servercomm:"
              << "Engine keeps dying, next start in" << qRound64(wait) << "ms, exit code" << exitCode
              << "last output:" << lastWords();
    m_launchWait.start(static_cast<int>(wait), this);
}

void ServerComm::timerEvent(QTimerEvent* event)
{
    if (event->timerId() != m_launchWait.timerId()) {
        QObject::timerEvent(event);
        return;
    }
    m_launchWait.stop();
    startServer();
}

void ServerComm::setLaunchWaitFactor(double factor)
{
    m_launchWaitFactor = factor;
}

void ServerComm::noteOutput(const QByteArray& output)
{
    const auto isBlank = [](char c) {
        return c == ' ' || (c >= '\t' && c <= '\r');
    };
    if (!std::all_of(output.cbegin(), output.cend(), isBlank))
        m_lastOutput = output;
}

/// What the engine said, as it may be logged: without the passwords that it was told and may repeat.
QByteArray ServerComm::masked(QByteArray output) const
{
    constexpr int quotes = 1;
    for (const QString& secret : {m_config.password, m_loginPassword}) {
        if (secret.isEmpty())
            continue;
        const QByteArray quoted = Json::serialize(secret);
        const QByteArray inJson = quoted.mid(quotes, quoted.size() - 2 * quotes);
        const QByteArray readAsLatin1 = QString::fromLatin1(secret.toUtf8()).toUtf8(); // as all that it says
        for (const QByteArray& form : {asciiJson(inJson), inJson, secret.toUtf8(), readAsLatin1})
            mask(output, form);
    }
    return output;
}

/// The beginning of the engine's last line.
QString ServerComm::lastWords() const
{
    const QByteArray output = m_lastOutput.trimmed();
    return QString::fromLatin1(masked(output.mid(output.lastIndexOf('\n') + 1)).left(shownOutput));
}
