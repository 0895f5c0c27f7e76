#include "app/userlock.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QSharedMemory>
#include <QStandardPaths>

#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace
{

constexpr int lockSize = 1;
constexpr qint64 longestStart = 60; ///< in s, from the key file to the memory

} // namespace

struct UserLock::Private final
{
    bool takeSocket();
    bool takeMemory();
    bool releaseAbandoned();
    bool isClients() const;
    bool look(shmid_ds& segment) const;

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
    QFile keyFile(memory.nativeKey());
    const bool isKeyFileNew = keyFile.open(QIODevice::WriteOnly | QIODevice::NewOnly);
    keyFile.close();
    while (!memory.create(lockSize, QSharedMemory::ReadWrite)) {
        if (memory.error() != QSharedMemory::AlreadyExists)
            return memory.error() == QSharedMemory::PermissionDenied; // another user's
        // The key of a new file can be that of memory that a killed client left.
        if (releaseAbandoned())
            continue;
        if (!isKeyFileNew && isClients())
            return false;
        keyFile.remove(); // the next start is not to take it for a running client's
        return true;
    }
    return true;
}

/// Segments outlive their process; whoever lets go of one last removes it. Does nothing to those in use, and to what
/// is none of a client's.
bool UserLock::Private::releaseAbandoned()
{
    shmid_ds segment = {};
    return look(segment) && segment.shm_segsz == lockSize && segment.shm_nattch == 0 &&
           memory.attach(QSharedMemory::ReadOnly) && memory.detach();
}

/// Whether a running client has the memory: it is of a lock's size, or else came with the key file.
bool UserLock::Private::isClients() const
{
    shmid_ds segment = {};
    if (!look(segment) || segment.shm_nattch == 0)
        return false;
    const qint64 age = segment.shm_ctime - QFileInfo(memory.nativeKey()).lastModified().toSecsSinceEpoch();
    return segment.shm_segsz == lockSize || (age >= 0 && age < longestStart);
}

/// The segment under the key that Qt cuts from the key file; false where there is none, and for another user's.
bool UserLock::Private::look(shmid_ds& segment) const
{
    const key_t key = ftok(QFile::encodeName(memory.nativeKey()).constData(), 'Q');
    const int id = key == -1 ? -1 : shmget(key, 0, 0);
    return id >= 0 && shmctl(id, IPC_STAT, &segment) == 0;
}
