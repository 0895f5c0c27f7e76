#include "shell/pipecmdreader.h"

#include "base/log.h"

#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>
#include <QStringList>

namespace
{

constexpr int dataTimeout = 1000;         // ms
constexpr qint64 maximumMessage = 262144; // bytes; the longest path takes a quarter of it

enum class Owner
{
    Nobody,
    SameUser,
    OtherUser
};

/// Whose the name is. One that nobody answers may still be there on Unix, as the socket that a killed client
/// left behind.
Owner ownerOf(const QString& name)
{
    QLocalSocket socket;
    socket.connectToServer(name);
    if (socket.waitForConnected(dataTimeout))
        return Owner::SameUser;
    switch (socket.error()) {
    case QLocalSocket::ServerNotFoundError:
    case QLocalSocket::ConnectionRefusedError:
        return Owner::Nobody;
    case QLocalSocket::SocketAccessError:
        return Owner::OtherUser;
    default:
        return Owner::SameUser;
    }
}

bool listen(QLocalServer& server, const QString& name)
{
    // Asked first: a restricted server would take the name from the other one.
    const Owner owner = ownerOf(name);
    if (owner == Owner::OtherUser && QDir::isRelativePath(name)) {
        // The directory of the sockets may be everybody's. This one is the user's own.
        return listen(server, QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation) + u'/' + name);
    }
    if (owner != Owner::Nobody)
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
