#include "bench/installation.h"

#include "bench/process.h"

#include <QDir>
#include <QFile>

void bench::installTalker(int lines)
{
    const QString root = QDir::tempPath() + QStringLiteral("/installation");
    const QString program = root + QStringLiteral("/erlang/erts-9.0/bin/erl.exe");
    QDir().mkpath(root + QStringLiteral("/erlang/erts-9.0/bin"));
    QDir().mkpath(root + QStringLiteral("/srv/ebin"));
    QFile::remove(program);
    if (!QFile::copy(QStringLiteral(ORVEL_BENCH_TALKER), program))
        fail(QStringLiteral("Cannot lay out ") + program);
    QDir::setCurrent(root);
    qputenv("ORVEL_BENCH_LINES", QByteArray::number(lines));
}
