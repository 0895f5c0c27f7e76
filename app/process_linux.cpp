#include "app/process.h"

#include <pthread.h>
#include <sys/resource.h>

namespace
{

rlimit systemsLimit = {};

/// The engine's cores are its own affair. It is started by a fork that runs this: Qt starts a plain QProcess without
/// one, but not a class derived from it, as the engine's is.
void giveLimitBack()
{
    setrlimit(RLIMIT_CORE, &systemsLimit);
}

} // namespace

void prepareProcess()
{
    if (getrlimit(RLIMIT_CORE, &systemsLimit) != 0)
        return;
    rlimit limit = systemsLimit;
    limit.rlim_cur = 0;
    setrlimit(RLIMIT_CORE, &limit);
    pthread_atfork(nullptr, nullptr, giveLimitBack);
}
