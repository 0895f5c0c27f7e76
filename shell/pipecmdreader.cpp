#include "shell/pipecmdreader.h"

#include "base/log.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QStringList>

namespace
{

constexpr int dataTimeout = 1000;         // ms
constexpr qint64 maximumMessage = 262144; // bytes; the longest path takes a quarter of it

/// Whether somebody living listens there. A name that nobody answers may still be taken on Unix, by the
/// socket that a killed client left behind.
bool isServed(const QString& name)
{
    QLocalSocket socket;
    socket.connectToServer(name);
    return socket.waitForConnected(dataTimeout) || (socket.error() != QLocalSocket::ServerNotFoundError &&
                                                    socket.error() != QLocalSocket::ConnectionRefusedError);
}

bool listen(QLocalServer& server, const QString& name)
{
    if (isServed(name)) // asked first: a restricted server would take the name from the other one
        return false;
    QLocalServer::removeServer(name);
    server.setSocketOptions(QLocalServer::UserAccessOption);
    return server.listen(name);
}

} // namespace

PipeCmdReader::PipeCmdReader()
    : m_server(std::make_unique<QLocalServer>())
{
    if (listen(*m_server, QStringLiteral("kestaextcommands"))) {
        connect(m_server.get(), SIGNAL(newConnection()), this, SLOT(newConnection()));
    } else {
        ORVEL_LOG << "Unable to listen on pipe";
        m_server.reset();
    }
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
    QByteArray data = socket->readAll();
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
