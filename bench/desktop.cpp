#include "bench/installation.h"
#include "bench/process.h"
#include "bench/table.h"
#include "bench/topics.h"

#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QStandardPaths>

#include <unistd.h>

#include <memory>
#include <vector>

namespace
{

constexpr int starts = 20;
constexpr int settleTime = 20000; // ms, until memory is looked at
constexpr int calmTime = 125000;  // ms more: for two minutes Qt keeps what the check for updates has opened

/// The tray that the programs come into; it is asked when it saw what.
class TrayHost final
{
public:
    TrayHost()
    {
        bench::launch(m_process, QStringLiteral(ORVEL_BENCH_TRAYHOST), {});
        secondsOf("ready");
    }
    ~TrayHost()
    {
        bench::end(m_process);
    }
    void forget()
    {
        m_process.readAllStandardOutput();
    }
    /// The time of the next such line.
    double secondsOf(const QByteArray& word)
    {
        constexpr int patience = 30000; // ms
        for (;;) {
            while (m_process.canReadLine()) {
                const QByteArrayList parts = m_process.readLine().trimmed().split(' ');
                if (parts.value(0) == word)
                    return parts.value(1).toDouble() / 1e9;
            }
            if (!m_process.waitForReadyRead(patience))
                bench::fail(QStringLiteral("Not seen: ") + QString::fromLatin1(word));
        }
    }

private:
    QProcess m_process;
};

struct Program
{
    QString name;
    QString path;
    QStringList arguments;
    QVector<double> startTimes;
    bench::Cost settled;
    bench::Cost before;
    bench::Cost after;

    double wakeUps(double seconds) const ///< a second
    {
        return static_cast<double>(after.wakeUps - before.wakeUps) / seconds;
    }
};

QString smallestName()
{
    return QStringLiteral("the smallest program with a tray icon");
}

/// A group of its own: there are programs that end all of theirs.
class GroupProcess final : public QProcess
{
protected:
    void setupChildProcess() override
    {
        setsid();
    }
};

void leave(QProcess& process)
{
    constexpr int patience = 5000; // ms
    process.terminate();
    if (!process.waitForFinished(patience))
        bench::end(process);
}

void start(QProcess& process, const Program& program)
{
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    bench::launch(process, program.path, program.arguments);
}

double startTime(TrayHost& host, const Program& program, const QByteArray& word)
{
    constexpr int calm = 300; // ms; what the program does next is not the next one's
    host.forget();
    GroupProcess process;
    const double begin = bench::wallTime();
    start(process, program);
    const double seconds = host.secondsOf(word) - begin;
    bench::pause(calm);
    leave(process);
    return seconds;
}

void measureStarts(TrayHost& host, std::vector<Program>& programs, const QByteArray& word)
{
    for (int i = 0; i < starts; ++i) {
        for (Program& program : programs)
            program.startTimes << startTime(host, program, word);
    }
}

/// All at once: what they cost after a while, and what they do when nothing happens.
void measureIdle(std::vector<Program>& programs, int duration)
{
    std::vector<std::unique_ptr<QProcess>> processes;
    for (const Program& program : programs) {
        processes.push_back(std::make_unique<GroupProcess>());
        start(*processes.back(), program);
    }
    bench::pause(settleTime);
    for (size_t i = 0; i < programs.size(); ++i)
        programs[i].settled = bench::costOf(processes[i]->processId());
    bench::pause(calmTime);
    for (size_t i = 0; i < programs.size(); ++i)
        programs[i].before = bench::costOf(processes[i]->processId());
    bench::pause(duration);
    for (size_t i = 0; i < programs.size(); ++i)
        programs[i].after = bench::costOf(processes[i]->processId());
    for (const auto& process : processes)
        leave(*process);
}

int filesTouchedSince(const QDateTime& time)
{
    int touched = 0;
    QDirIterator files(QDir::homePath(), QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        files.next();
        const QFileInfo info = files.fileInfo();
        touched += std::max(info.lastModified(), info.metadataChangeTime()) > time ? 1 : 0;
    }
    return touched;
}

/// The client as somebody has it who has started it a few times. Signed in, it shows no window.
Program usedClient(TrayHost& host, bool signedIn)
{
    constexpr int firstStarts = 3;
    constexpr int time = 3000; // ms, until the engine has said who is signed in
    bench::installTalker(signedIn ? 1 : 0);
    const Program client{QStringLiteral("Orvel Storage"), QStringLiteral(ORVEL_BENCH_ORVEL), {}, {}, {}, {}, {}};
    for (int i = 0; i < firstStarts; ++i) {
        GroupProcess process;
        start(process, client);
        host.secondsOf("dock");
        bench::pause(time);
        leave(process);
    }
    return client;
}

/// A program for Windows, started by the script that runs those.
Program windowsProgram(const QString& name, const QString& file)
{
    const QString path = qEnvironmentVariable("ORVEL_BENCH_WINDOWS") + QLatin1Char('/') + file;
    return {name, qEnvironmentVariable("ORVEL_BENCH_WINE"), {path}, {}, {}, {}, {}};
}

Program smallestProgram(const QStringList& arguments = {})
{
    return {smallestName(), QStringLiteral(ORVEL_BENCH_SMALLEST), arguments, {}, {}, {}, {}};
}

} // namespace

void bench::start(Table& table)
{
    TrayHost host;
    std::vector<Program> programs = {usedClient(host, true), smallestProgram(),
                                     smallestProgram({QStringLiteral("--window-first")})};
    measureStarts(host, programs, "dock");
    const double ours = median(programs[0].startTimes);
    const QString work = QStringLiteral("start, until the tray icon is set");
    table.within(work, smallestName(), ours, median(programs[1].startTimes), QStringLiteral("s"), 1.25);
    table.shown(work, QStringLiteral("the same, its window shown first"), ours, median(programs[2].startTimes));
}

void bench::startOnWindows(Table& table)
{
    constexpr int firstStarts = 4; // the first one takes the longest, Wine itself starts with it
    TrayHost host;
    qputenv("QT_QPA_PLATFORM", "windows"); // of those that are started
    std::vector<Program> programs = {windowsProgram(QStringLiteral("Orvel Storage"), QStringLiteral("orvel.exe")),
                                     windowsProgram(smallestName(), QStringLiteral("smallest.exe"))};
    for (int i = 0; i < firstStarts; ++i)
        startTime(host, programs[0], "dock");
    measureStarts(host, programs, "dock");
    table.within(QStringLiteral("start, until the tray icon is set"), smallestName(), median(programs[0].startTimes),
                 median(programs[1].startTimes), QStringLiteral("s"), 1.25);
}

void bench::idle(Table& table)
{
    constexpr int idleTime = 120000; // ms
    TrayHost host;
    std::vector<Program> programs = {usedClient(host, true), smallestProgram()};
    const QDateTime idleSince = QDateTime::currentDateTime().addMSecs(settleTime + calmTime);
    measureIdle(programs, idleTime);
    const Program& ours = programs[0];
    const Program& smallest = programs[1];
    const QString reference = smallestName();
    table.within(QStringLiteral("memory (PSS) after 20 s"), reference, ours.settled.pss, smallest.settled.pss,
                 QStringLiteral("MiB"), 1.2);
    table.within(QStringLiteral("wake-ups in 2 minutes idle"), reference,
                 static_cast<double>(ours.after.wakeUps - ours.before.wakeUps),
                 static_cast<double>(smallest.after.wakeUps - smallest.before.wakeUps), QStringLiteral("wake-ups"), 1);
    table.atMost(QStringLiteral("files touched in 2 minutes idle"), reference, filesTouchedSince(idleSince), 0,
                 QStringLiteral("files"), 0);
}

void bench::others(Table& table)
{
    constexpr int idleTime = 60000; // ms
    TrayHost host;
    std::vector<Program> programs = {usedClient(host, false)};
    for (const char* name : {"qbittorrent", "keepassxc", "syncthingtray", "seafile-applet", "owncloud"}) {
        const QString path = QStandardPaths::findExecutable(QLatin1String(name));
        if (!path.isEmpty())
            programs.push_back({QLatin1String(name), path, {}, {}, {}, {}, {}});
    }
    measureStarts(host, programs, "map");
    measureIdle(programs, idleTime);
    const Program& ours = programs.front();
    const double seconds = idleTime / 1000.0;
    for (size_t i = 1; i < programs.size(); ++i) {
        const Program& other = programs[i];
        const QString mebibytes = QStringLiteral("MiB");
        table.within(QStringLiteral("start, until the first window"), other.name, median(ours.startTimes),
                     median(other.startTimes), QStringLiteral("s"), 1);
        table.within(QStringLiteral("memory (PSS) after 20 s"), other.name, ours.settled.pss, other.settled.pss,
                     mebibytes, 1);
        table.within(QStringLiteral("memory (USS) after 20 s"), other.name, ours.settled.uss, other.settled.uss,
                     mebibytes, 1);
        table.within(QStringLiteral("wake-ups, idle"), other.name, ours.wakeUps(seconds), other.wakeUps(seconds),
                     QStringLiteral("a second"), 1);
    }
}
