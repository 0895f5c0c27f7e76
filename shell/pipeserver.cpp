#include "shell/pipeserver.h"

#include "base/log.h"

#include <QDir>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QLocalSocket>
#include <QStandardPaths>

namespace
{

constexpr int connectTimeout = 1000; // ms

#ifdef Q_OS_WIN
constexpr bool pipesAreFiles = false;
#else
constexpr bool pipesAreFiles = true;
#endif

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
    if (socket.waitForConnected(connectTimeout))
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

bool listenOn(QLocalServer& server, const QString& name)
{
    // Asked first: a restricted server would take the name from the other one.
    const Owner owner = ownerOf(name);
    if (owner == Owner::OtherUser && pipesAreFiles && QDir::isRelativePath(name)) {
        // The directory of the sockets may be everybody's. This one is the user's own.
        return listenOn(server, QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation) + u'/' + name);
    }
    if (owner != Owner::Nobody)
        return false;
    QLocalServer::removeServer(name);
    server.setSocketOptions(QLocalServer::UserAccessOption);
    return server.listen(name);
}

} // namespace

PipeServer::PipeServer(const QString& name)
    : m_name(name)
{
    start();
}

PipeServer::~PipeServer() = default;

void PipeServer::start()
{
    if (!listenOn(*this, m_name)) {
        ORVEL_LOG << "Unable to listen on pipe";
        return;
    }
    if (!pipesAreFiles) // then nobody can remove one
        return;
    if (!m_socketFile) {
        m_socketFile = std::make_unique<QFileSystemWatcher>();
        connect(m_socketFile.get(), SIGNAL(fileChanged(QString)), this, SLOT(socketChanged(QString)));
    }
    if (!m_socketFile->addPath(fullServerName()))
        ORVEL_LOG << "Unable to watch pipe";
}

void PipeServer::socketChanged(const QString& path)
{
    if (QFileInfo::exists(path))
        return;
    ORVEL_LOG << "Pipe was removed";
    m_socketFile->removePath(path);
    close();
    start();
}
