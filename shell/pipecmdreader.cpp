#include "shell/pipecmdreader.h"

#include "base/log.h"
#include "shell/pipeserver.h"

#include <QLocalSocket>
#include <QStringList>

namespace
{

constexpr int dataTimeout = 1000;         // ms
constexpr qint64 maximumMessage = 262144; // bytes; the longest path takes a quarter of it

} // namespace

PipeCmdReader::PipeCmdReader()
    : m_server(std::make_unique<PipeServer>(QStringLiteral("kestaextcommands")))
{
    if (m_server->isListening())
        connect(m_server.get(), SIGNAL(newConnection()), this, SLOT(newConnection()));
    else
        m_server.reset();
}

PipeCmdReader::~PipeCmdReader() = default;

void PipeCmdReader::newConnection()
{
    ORVEL_LOG << "Localserver new connection";
    const std::unique_ptr<QLocalSocket> socket(m_server->nextPendingConnection());
    if (!socket)
        return;
    socket->setReadBufferSize(maximumMessage); // the sender is not to be trusted with our memory
    if (!socket->waitForReadyRead(dataTimeout))
        return;

    constexpr int terminatorSize = 5;
    QByteArray data = socket->read(maximumMessage);
    data.append(terminatorSize, '\0'); // ends the text, also one with an odd number of bytes
    ORVEL_LOG << "Received " << data.size() << " bytes";
    const QString text = QString::fromUtf16(reinterpret_cast<const ushort*>(data.constData()));
    const QStringList parts = text.split(QLatin1Char('|'));
    if (parts.size() != 2) {
        ORVEL_LOG << "Invalid command received " << text;
        return;
    }
    ORVEL_LOG << "Received command " << text;
    emit Command(parts.at(0), parts.at(1));
}
