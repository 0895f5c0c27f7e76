#include "app/userlock.h"

#include <QSharedMemory>

struct UserLock::Private final
{
    QSharedMemory memory; // the session's own, which goes with its last process
};

UserLock::UserLock(const QString& key)
    : m_private(std::make_unique<Private>())
{
    m_private->memory.setKey(key);
}

UserLock::~UserLock() = default;

bool UserLock::take()
{
    return m_private->memory.create(1, QSharedMemory::ReadWrite);
}

void UserLock::release()
{
    m_private->memory.detach();
}
