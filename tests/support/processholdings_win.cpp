#include "tests/support/processholdings.h"

#include <windows.h>

#include <psapi.h>
#include <tlhelp32.h>

namespace
{

int ownThreads()
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    int count = 0;
    for (BOOL more = Thread32First(snapshot, &entry); more != 0; more = Thread32Next(snapshot, &entry))
        count += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
    CloseHandle(snapshot);
    return count;
}

} // namespace

ProcessHoldings ownHoldings()
{
    DWORD handles = 0;
    GetProcessHandleCount(GetCurrentProcess(), &handles);
    PROCESS_MEMORY_COUNTERS counters = {};
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters));
    ProcessHoldings now;
    now.handles = static_cast<int>(handles);
    now.threads = ownThreads();
    now.resident = static_cast<qint64>(counters.WorkingSetSize);
    return now;
}
