#pragma once

#include <memory>

class QSharedMemory;

/// Whether this user's client runs already, where the shared memory alone cannot tell: on Linux its key is a
/// file in the temporary directory, which all users share and which may be cleaned under a running client.
class UserLock final
{
public:
    UserLock();
    ~UserLock();
    UserLock(const UserLock&) = delete;
    UserLock& operator=(const UserLock&) = delete;

    /// False when another process of this user has it. It goes with the process.
    bool take();
    void release();

    /// Whether the memory that could not be created is another user's, and so no client of ours.
    static bool isForeign(QSharedMemory& memory);

private:
    struct Private;
    std::unique_ptr<Private> m_private;
};
