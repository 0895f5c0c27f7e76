#include "tests/support/privileges.h"

std::unique_ptr<Unprivileged> dropPrivileges()
{
    // The permissions that Qt sets here are those of a file's attributes, which bind nobody for certain.
    return nullptr;
}
