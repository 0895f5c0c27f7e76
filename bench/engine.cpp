#include "bench/installation.h"
#include "bench/process.h"
#include "bench/table.h"
#include "bench/topics.h"
#include "engine/servercomm.h"
#include "ui/dialogcld.h"
#include "json/json.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QSettings>
#include <QTimer>

#include <algorithm>
#include <cmath>

namespace
{

const char networkState[] = "{\"what\":\"networkstate\",\"state\":\"transferring\",\"uid\":1001,\"bps\":2097152,"
                            "\"uploads\":128,\"downloads\":64,\"timerem\":3600}\n";

/// Counts what it hears.
class Listener final : public QObject
{
    Q_OBJECT

public:
    int heard = 0;

public slots:
    void hear()
    {
        ++heard;
    }
};

/// Looks at the clock every few ms; the longest pause between two looks is how long the window did not answer.
class Heart final : public QObject
{
    Q_OBJECT

public:
    Heart()
    {
        connect(&m_timer, SIGNAL(timeout()), this, SLOT(beat()));
        m_timer.setTimerType(Qt::PreciseTimer);
        m_timer.start(interval);
        m_clock.start();
    }
    double longestPause() const ///< ms
    {
        return static_cast<double>(m_longest) / 1e6;
    }

private slots:
    void beat()
    {
        m_longest = std::max(m_longest, m_clock.nsecsElapsed());
        m_clock.restart();
    }

private:
    static constexpr int interval = 5; // ms

    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_longest = 0;
};

/// A reader that does nothing but count.
class BareReader final : public QObject
{
    Q_OBJECT

public:
    explicit BareReader(QProcess* process)
        : m_process(process)
    {
        connect(process, SIGNAL(readyReadStandardError()), this, SLOT(read()));
    }
    int lines = 0;

private slots:
    void read()
    {
        lines += m_process->readAllStandardError().count('\n');
    }

private:
    QProcess* m_process;
};

constexpr int floodLines = 1000000;

struct Flood
{
    double seconds = 0;
    double processorTime = 0;
    int lines = 0;
    double longestPause = 0; ///< ms
    double growth = 0;       ///< MiB of resident memory, from the first thousandth to the last line
};

/// Runs the event loop until all lines are there, or none has come for a while.
Flood receive(const int& lines)
{
    constexpr int silence = 3000; // ms
    bench::waitUntil([&] { return lines > 0; }, "the first line");
    const qint64 self = QCoreApplication::applicationPid();
    const double start = bench::wallTime();
    const double processorStart = bench::processorTime();
    const double memory = bench::costOf(self).rss;
    const Heart heart;
    double last = start;
    int before = 0;
    while (lines < floodLines && bench::wallTime() - last < silence / 1000.0) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        if (std::exchange(before, lines) != lines)
            last = bench::wallTime();
    }
    return {last - start, bench::processorTime() - processorStart, lines, heart.longestPause(),
            bench::costOf(self).rss - memory};
}

Flood floodClient(DialogCld& window)
{
    Listener listener;
    QObject::connect(&window.server(), SIGNAL(netStateChanged()), &listener, SLOT(hear()));
    // A new engine for each flood: the last one stays, silent, until it is killed.
    auto& server = const_cast<ServerComm&>(window.server());
    server.toggleServer(false);
    server.toggleServer(true);
    const Flood flood = receive(listener.heard);
    server.toggleServer(false);
    return flood;
}

Flood floodBareReader()
{
    QProcess process;
    BareReader reader(&process);
    bench::launch(process, QStringLiteral(ORVEL_BENCH_TALKER), {});
    process.write("go\n");
    const Flood flood = receive(reader.lines);
    bench::end(process);
    return flood;
}

double medianOf(const QVector<Flood>& floods, double Flood::*figure)
{
    QVector<double> values;
    for (const Flood& flood : floods)
        values << flood.*figure;
    return bench::median(values);
}

double worstOf(const QVector<Flood>& floods, double Flood::*figure)
{
    double worst = 0;
    for (const Flood& flood : floods)
        worst = std::max(worst, flood.*figure);
    return worst;
}

} // namespace

void bench::engineEvent(Table& table)
{
    constexpr int repetitions = 5000;
    ServerComm server(QStringLiteral("Orvel Storage"), QStringLiteral("Velmora d.d."), false);
    Listener listeners[3]; // as many as the client has
    for (Listener& listener : listeners)
        QObject::connect(&server, SIGNAL(netStateChanged()), &listener, SLOT(hear()));
    const QByteArray line(networkState);
    const QString text = QString::fromLatin1(line).trimmed();
    const auto take = [&](ServerComm& taker) {
        const double start = processorTime();
        for (int i = 0; i < repetitions; ++i)
            taker.takeOutput(line);
        return (processorTime() - start) / repetitions;
    };
    const auto parse = [&] {
        const double start = processorTime();
        for (int i = 0; i < repetitions; ++i)
            Json::parse(text); // and what it gave is destroyed, as after an event
        return (processorTime() - start) / repetitions;
    };
    const auto figures = medians({[&] { return take(server); }, parse}, 3);
    table.within(QStringLiteral("an engine event, from the read to the last listener"),
                 QStringLiteral("Json::parse of the line"), figures[0], figures[1], QStringLiteral("s"), 1.5);

    installTalker(0);
    DialogCld window;
    window.show();
    auto& windowServer = const_cast<ServerComm&>(window.server());
    const auto whole = medians({[&] {
                                   return take(windowServer);
                               }},
                               3);
    table.shown(QStringLiteral("the same with the window's listeners and what they do"),
                QStringLiteral("Json::parse of the line"), whole[0], figures[1]);
}

void bench::flood(Table& table)
{
    constexpr int rounds = 3;
    installTalker(floodLines);
    DialogCld window;
    window.show();
    QVector<Flood> ours;
    QVector<Flood> bare;
    for (int i = 0; i < rounds; ++i) {
        ours << floodClient(window);
        bare << floodBareReader();
    }
    int lost = 0;
    int bareLost = 0;
    for (int i = 0; i < rounds; ++i) {
        lost += floodLines - ours[i].lines;
        bareLost += floodLines - bare[i].lines;
    }
    const QString work = QStringLiteral("a flood of 1,000,000 network states");
    const QString reference = QStringLiteral("a bare QProcess reader");
    table.within(work, reference, medianOf(ours, &Flood::seconds), medianOf(bare, &Flood::seconds), QStringLiteral("s"),
                 3);
    table.shown(work + QStringLiteral(", processor time"), reference, medianOf(ours, &Flood::processorTime),
                medianOf(bare, &Flood::processorTime));
    table.atMost(work + QStringLiteral(", lines lost"), reference, lost, bareLost, QStringLiteral("lines"), 0);
    table.atMost(work + QStringLiteral(", the window's longest pause"), reference, worstOf(ours, &Flood::longestPause),
                 worstOf(bare, &Flood::longestPause), QStringLiteral("ms"), 50);
    table.atMost(work + QStringLiteral(", growth of memory"), reference, worstOf(ours, &Flood::growth),
                 worstOf(bare, &Flood::growth), QStringLiteral("MiB"), 1);
}

#include "engine.moc"
