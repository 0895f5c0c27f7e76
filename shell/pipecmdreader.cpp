#include "shell/pipecmdreader.h"

#include "base/log.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QStringList>

namespace
{

constexpr int dataTimeout = 1000; // ms

/// On Unix the socket of a client that was killed stays behind and keeps the name; nobody answers it.
bool answers(const QString& name)
{
    QLocalSocket socket;
    socket.connectToServer(name);
    return socket.waitForConnected(dataTimeout);
}

bool listen(QLocalServer& server, const QString& name)
{
    server.setSocketOptions(QLocalServer::UserAccessOption);
    if (server.listen(name))
        return true;
    if (server.serverError() != QAbstractSocket::AddressInUseError || answers(name))
        return false;
    QLocalServer::removeServer(name);
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
    if (!socket || !socket->waitForReadyRead(dataTimeout))
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
