#include "app/userlock.h"

#include <QCryptographicHash>
#include <QSharedMemory>
#include <QStandardPaths>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

/// A socket in the abstract name space: it needs no file, and the system frees it with its process.
struct UserLock::Private final
{
    int socket = -1;
};

UserLock::UserLock()
    : m_private(std::make_unique<Private>())
{
}

UserLock::~UserLock()
{
    release();
}

void UserLock::release()
{
    if (m_private->socket >= 0)
        close(m_private->socket);
    m_private->socket = -1;
}

bool UserLock::take()
{
    // The place of the data tells one user's client from another's.
    const QString data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    const QByteArray name = "orvel-" + QByteArray::number(getuid()) + '-' +
                            QCryptographicHash::hash(data.toUtf8(), QCryptographicHash::Sha1).toHex();
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path + 1, name.constData(), static_cast<std::size_t>(name.size()));
    m_private->socket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1) + static_cast<socklen_t>(name.size());
    return bind(m_private->socket, reinterpret_cast<const sockaddr*>(&address), size) == 0 || errno != EADDRINUSE;
}

bool UserLock::isForeign(QSharedMemory& memory)
{
    return !memory.attach(QSharedMemory::ReadOnly) && memory.error() == QSharedMemory::PermissionDenied;
}
