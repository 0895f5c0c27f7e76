#include "app/process.h"

#include <sys/resource.h>

void prepareProcess()
{
    rlimit limit = {};
    getrlimit(RLIMIT_CORE, &limit);
    limit.rlim_cur = 0;
    setrlimit(RLIMIT_CORE, &limit);
}
