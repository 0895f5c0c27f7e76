#pragma once

#include <memory>

class QString;

/// Lets one client run for a user.
///
/// It is a shared memory segment, which a user's other programs can see. On Linux that cannot tell everything: the
/// segment's key is cut from a file in the temporary directory, which all users share, which may be cleaned under a
/// running client, and whose number another program's file can resemble. A lock of the user's own stands beside it.
class UserLock final
{
public:
    /// The memory is called @p key.
    explicit UserLock(const QString& key);
    ~UserLock();
    UserLock(const UserLock&) = delete;
    UserLock& operator=(const UserLock&) = delete;

    /// False when a client of this user runs already, and where the memory that would tell cannot be made. A killed
    /// client keeps nobody from taking it.
    bool take();
    void release();

private:
    struct Private;
    std::unique_ptr<Private> m_private;
};
