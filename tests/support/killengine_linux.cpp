#include "tests/support/killengine.h"
#include "tests/support/test.h"

#include <QDir>

#include <csignal>

bool killEngineOf(qint64 client)
{
    if (client == 0)
        return false;
    const QStringList processes = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString& child : processes) {
        // The name in parentheses may hold anything; the state and the parent follow it.
        const QByteArray stat = readFile(QStringLiteral("/proc/") + child + QStringLiteral("/stat"));
        if (!stat.isEmpty() && stat.mid(stat.lastIndexOf(')') + 2).split(' ').value(1).toLongLong() == client)
            return kill(child.toInt(), SIGKILL) == 0;
    }
    return false;
}
