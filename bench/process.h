#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

#include <functional>

namespace bench
{

/// What a process has cost so far; its children are not in it.
struct Cost
{
    double pss = 0;     ///< MiB, shared memory divided among those who share it
    double uss = 0;     ///< MiB of its own
    double rss = 0;     ///< MiB
    qint64 wakeUps = 0; ///< how often its threads went to sleep of their own accord
};
Cost costOf(qint64 processId);

/// Runs the event loop until the condition is true; ends the program when that takes too long.
void waitUntil(const std::function<bool()>& condition, const char* what, int patience = 60000);
/// Runs the event loop for so many ms.
void pause(int duration);

/// Starts a program, or ends this one.
void launch(QProcess& process, const QString& program, const QStringList& arguments);
/// Kills it and waits for its end.
void end(QProcess& process);

[[noreturn]] void fail(const QString& reason);

} // namespace bench
