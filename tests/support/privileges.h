#pragma once

#include <memory>

/// While it lives, file permissions bind this process, also when it runs as root.
class Unprivileged
{
public:
    virtual ~Unprivileged() = default;
};

/// Gives up the right to read and write everywhere until the result is destroyed. Null when this user
/// has more rights than permissions grant and cannot give them up.
std::unique_ptr<Unprivileged> dropPrivileges();
