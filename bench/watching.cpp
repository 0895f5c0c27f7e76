#include "bench/process.h"
#include "bench/table.h"
#include "bench/topics.h"
#include "engine/servercomm.h"
#include "syncfolder/syncfolder.h"
#include "json/json.h"

#include <QDir>
#include <QFile>
#include <QSet>
#include <QSettings>
#include <QThread>

#include <algorithm>
#include <cmath>

namespace
{

constexpr quint64 account = 1001;

/// 100,000 directories on three levels, and the paths of the lowest.
QStringList makeTree(const QString& root)
{
    constexpr int first = 10;
    constexpr int second = 100;
    constexpr int third = 99;
    QStringList lowest;
    for (int i = 0; i < first * second; ++i) {
        const QString middle = QStringLiteral("%1/leto %2/mesec %3").arg(root).arg(i / second).arg(i % second);
        QDir().mkpath(middle);
        for (int j = 0; j < third; ++j) {
            lowest << middle + QStringLiteral("/izlet %1").arg(j);
            QDir().mkdir(lowest.last());
        }
    }
    return lowest;
}

struct Watch
{
    double seconds = 0;
    double memory = 0; ///< MiB, PSS
};

/// From the start of a program until it says that it watches.
Watch watchWith(const QString& program, const QStringList& arguments, const QByteArray& word)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    const double start = bench::wallTime();
    bench::launch(process, program, arguments);
    QByteArray said;
    while (!said.contains(word)) {
        if (!process.waitForReadyRead())
            bench::fail(program + QStringLiteral(" does not watch: ") + QString::fromLocal8Bit(said));
        said += process.readAll();
    }
    const Watch watch = {bench::wallTime() - start, bench::costOf(process.processId()).pss};
    bench::end(process);
    return watch;
}

/// Collects the reports, with their times.
class Reader final : public QObject
{
    Q_OBJECT

public:
    QVector<double> times;
    QSet<QString> directories;

public slots:
    void take(QStringList& paths)
    {
        times << bench::wallTime();
        for (const QString& path : qAsConst(paths))
            directories << path;
    }
};

/// Writes ten files into each directory.
class Writer final : public QThread
{
public:
    explicit Writer(QStringList directories)
        : m_directories(std::move(directories))
    {
    }
    double lastWrite = 0;

protected:
    void run() override
    {
        constexpr int files = 10;
        for (int i = 0; i < files; ++i) {
            for (const QString& directory : qAsConst(m_directories)) {
                QFile file(directory + QStringLiteral("/slika %1").arg(i));
                file.open(QIODevice::WriteOnly);
                file.write("orvel");
            }
        }
        lastWrite = bench::wallTime();
    }

private:
    const QStringList m_directories;
};

int mostInASecond(const QVector<double>& times)
{
    constexpr double second = 0.95; // a timer may be a little early
    int most = 0;
    for (const double start : times) {
        const auto isWithin = [start](double time) {
            return time >= start && time < start + second;
        };
        most = std::max(most, static_cast<int>(std::count_if(times.begin(), times.end(), isWithin)));
    }
    return most;
}

void writeAndListen(bench::Table& table, const QString& root, const QStringList& lowest)
{
    constexpr int written = 2000;
    constexpr int quiet = 4000; // ms, longer than any report waits
    ServerComm server(QStringLiteral("Orvel Storage"), QStringLiteral("Velmora d.d."), false);
    const QFileInfo rootInfo(root);
    QFile roots(server.stateDir() + QStringLiteral("/%1.json").arg(account));
    roots.open(QIODevice::WriteOnly);
    roots.write(Json::serialize(QVariantList{
        QVariantMap{{QStringLiteral("path"), rootInfo.path()}, {QStringLiteral("name"), rootInfo.fileName()}}}));
    roots.close();
    QSettings().setValue(QStringLiteral("lastuid"), account);
    SyncFolder folder(&server, nullptr);
    Reader reader;
    QObject::connect(&folder, SIGNAL(pathsChanged(QStringList&)), &reader, SLOT(take(QStringList&)));
    QMetaObject::invokeMethod(&folder, "rootsChanged");
    QFile(root + QStringLiteral("/.ready")).open(QIODevice::WriteOnly);
    bench::waitUntil([&] { return !reader.times.isEmpty(); }, "the watcher");
    bench::pause(quiet);
    reader.times.clear();
    reader.directories.clear();

    QStringList chosen;
    for (int i = 0; i < written; ++i)
        chosen << lowest.at(i * (lowest.size() / written));
    Writer writer(chosen);
    writer.start();
    bench::waitUntil([&] { return writer.isFinished(); }, "the writer");
    bench::pause(quiet);

    const QSet<QString> expected(chosen.cbegin(), chosen.cend());
    const QString work = QStringLiteral("20,000 files into 2,000 of 100,000 directories: ");
    const QString reference = QStringLiteral("the directories written");
    table.atMost(work + QStringLiteral("directories not reported"), reference,
                 (QSet<QString>(expected) - reader.directories).size(), written, QStringLiteral("directories"), 0);
    table.atMost(work + QStringLiteral("others reported"), reference, (reader.directories - expected).size(), written,
                 QStringLiteral("directories"), 0);
    table.atMost(work + QStringLiteral("reports in the busiest second"), reference, mostInASecond(reader.times),
                 written, QStringLiteral("reports"), 1);
    table.atMost(work + QStringLiteral("from the last write to the last report"), reference,
                 reader.times.isEmpty() ? INFINITY : reader.times.last() - writer.lastWrite, written,
                 QStringLiteral("s"), 1.2);
}

} // namespace

void bench::watching(Table& table)
{
    constexpr int rounds = 5;
    const QString root = QDir::tempPath() + QStringLiteral("/tree");
    const QStringList lowest = makeTree(root);
    QVector<double> seconds;
    QVector<double> otherSeconds;
    QVector<double> memory;
    QVector<double> otherMemory;
    for (int i = 0; i < rounds; ++i) {
        const Watch ours = watchWith(QStringLiteral(ORVEL_BENCH_WATCH), {root}, "ready");
        const Watch other = watchWith(QStringLiteral("inotifywait"), {QStringLiteral("-m"), QStringLiteral("-r"), root},
                                      "Watches established");
        seconds << ours.seconds;
        memory << ours.memory;
        otherSeconds << other.seconds;
        otherMemory << other.memory;
    }
    const QString reference = QStringLiteral("inotifywait -r");
    table.within(QStringLiteral("watching 100,000 directories, until ready"), reference, median(seconds),
                 median(otherSeconds), QStringLiteral("s"), 1);
    table.within(QStringLiteral("watching 100,000 directories, memory (PSS)"), reference, median(memory),
                 median(otherMemory), QStringLiteral("MiB"), 1);
    writeAndListen(table, root, lowest);
    QDir(root).removeRecursively();
}

#include "watching.moc"
