#include "app/userlock.h"

#include <QCryptographicHash>
#include <QFile>
#include <QSharedMemory>
#include <QStandardPaths>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

struct UserLock::Private final
{
    bool takeSocket();
    bool takeMemory();
    bool createMemory();
    void releaseAbandoned();

    QSharedMemory memory;
    int socket = -1; ///< in the abstract name space: it needs no file, and the system frees it with its process
};

UserLock::UserLock(const QString& key)
    : m_private(std::make_unique<Private>())
{
    m_private->memory.setKey(key);
}

UserLock::~UserLock()
{
    release();
}

bool UserLock::take()
{
    return m_private->takeSocket() && m_private->takeMemory();
}

void UserLock::release()
{
    m_private->memory.detach();
    if (m_private->socket >= 0)
        close(m_private->socket);
    m_private->socket = -1;
}

bool UserLock::Private::takeSocket()
{
    // The place of the data tells one user's client from another's.
    const QString data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    const QByteArray name = "orvel-" + QByteArray::number(getuid()) + '-' +
                            QCryptographicHash::hash(data.toUtf8(), QCryptographicHash::Sha1).toHex();
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path + 1, name.constData(), static_cast<std::size_t>(name.size()));
    socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1) + static_cast<socklen_t>(name.size());
    return bind(socket, reinterpret_cast<const sockaddr*>(&address), size) == 0 || errno != EADDRINUSE;
}

bool UserLock::Private::takeMemory()
{
    releaseAbandoned();
    const QString keyFile = memory.nativeKey();
    const bool hadKeyFile = QFile::exists(keyFile);
    if (createMemory())
        return true;
    // The file that was made for it can share its number with one that a killed program left.
    releaseAbandoned();
    if (createMemory())
        return true;
    if (!memory.attach(QSharedMemory::ReadOnly))
        return memory.error() == QSharedMemory::PermissionDenied; // another user's
    memory.detach();
    if (hadKeyFile)
        return false;
    QFile::remove(keyFile); // another program's; the next start is not to take it for a client's
    return true;
}

bool UserLock::Private::createMemory()
{
    return memory.create(1, QSharedMemory::ReadWrite);
}

/// Segments outlive their process. Whoever lets go of one last removes it; that of a living client stays.
void UserLock::Private::releaseAbandoned()
{
    if (memory.attach(QSharedMemory::ReadOnly))
        memory.detach();
}
