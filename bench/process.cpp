#include "bench/process.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTimer>

#include <cstdio>
#include <cstdlib>

namespace bench
{

namespace
{

/// The number behind the word at a line's start.
qint64 field(const QString& path, const QByteArray& word)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArrayList lines = file.readAll().split('\n');
    for (const QByteArray& line : lines) {
        if (line.startsWith(word))
            return line.mid(word.size()).simplified().split(' ').value(0).toLongLong();
    }
    return 0;
}

} // namespace

Cost costOf(qint64 processId)
{
    constexpr double kibibytes = 1024;
    const QString directory = QStringLiteral("/proc/%1/").arg(processId);
    const QString memory = directory + QStringLiteral("smaps_rollup");
    Cost cost;
    cost.pss = static_cast<double>(field(memory, "Pss:")) / kibibytes;
    cost.uss = static_cast<double>(field(memory, "Private_Clean:") + field(memory, "Private_Dirty:")) / kibibytes;
    cost.rss = static_cast<double>(field(memory, "Rss:")) / kibibytes;
    const QDir tasks(directory + QStringLiteral("task"));
    const QStringList threads = tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& thread : threads)
        cost.wakeUps += field(tasks.filePath(thread) + QStringLiteral("/status"), "voluntary_ctxt_switches:");
    return cost;
}

void waitUntil(const std::function<bool()>& condition, const char* what, int patience)
{
    QElapsedTimer clock;
    clock.start();
    while (!condition()) {
        if (clock.hasExpired(patience))
            fail(QStringLiteral("In vain: ") + QLatin1String(what));
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 10);
    }
}

void pause(int duration)
{
    QEventLoop loop;
    QTimer::singleShot(duration, &loop, SLOT(quit()));
    loop.exec();
}

void launch(QProcess& process, const QString& program, const QStringList& arguments)
{
    process.start(program, arguments);
    if (!process.waitForStarted())
        fail(QStringLiteral("Cannot start ") + program);
}

void end(QProcess& process)
{
    process.kill();
    process.waitForFinished();
}

void fail(const QString& reason)
{
    std::fprintf(stderr, "%s\n", qPrintable(reason));
    std::exit(1);
}

} // namespace bench
