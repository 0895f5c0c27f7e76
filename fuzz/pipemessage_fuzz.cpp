// Any message of the shell extension, through a real socket: a command comes of it exactly when its text has
// two parts.

#include "fuzz/fuzz.h"
#include "shell/pipecmdreader.h"

#include <QCoreApplication>
#include <QLocalSocket>
#include <QStringList>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static PipeCmdReader reader;
    static QStringList heard;
    static const auto connection =
        QObject::connect(&reader, &PipeCmdReader::Command,
                         [](const QString& command, const QString& path) { heard << command << path; });
    Q_UNUSED(connection)
    if (size == 0 || size > 4096) // one write, one read
        return 0;

    QString text; // UTF-16 of this computer up to a zero unit; an odd byte is filled up with a zero
    for (std::size_t i = 0; i < size; i += 2) {
        const ushort unit = static_cast<ushort>(data[i] | (i + 1 < size ? data[i + 1] << 8 : 0));
        if (unit == 0)
            break;
        text += QChar(unit);
    }
    if (!text.isEmpty() && (text.at(0) == QChar::ByteOrderMark || text.at(0) == QChar::ByteOrderSwapped))
        return 0; // a mark is not part of the format

    heard.clear();
    QLocalSocket shell;
    shell.connectToServer(QStringLiteral("kestaextcommands"));
    fuzz::require(shell.state() == QLocalSocket::ConnectedState, "connection");
    shell.write(reinterpret_cast<const char*>(data), static_cast<qint64>(size));
    shell.flush();
    while (shell.state() == QLocalSocket::ConnectedState)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    const QStringList parts = text.split(u'|');
    fuzz::require(heard == (parts.size() == 2 ? parts : QStringList()), "command");
    return 0;
}
