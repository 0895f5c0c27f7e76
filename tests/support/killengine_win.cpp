#include "tests/support/killengine.h"

#include <windows.h>

#include <tlhelp32.h>

#include <cwchar>

namespace
{

bool killProcess(DWORD id)
{
    const HANDLE process = OpenProcess(PROCESS_TERMINATE, FALSE, id);
    if (process == nullptr)
        return false;
    const bool killed = TerminateProcess(process, 9) != 0;
    CloseHandle(process);
    return killed;
}

} // namespace

bool killEngineOf(qint64 client)
{
    if (client == 0)
        return false;
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof(entry);
    bool killed = false;
    for (BOOL more = Process32FirstW(snapshot, &entry); more != 0 && !killed; more = Process32NextW(snapshot, &entry))
        // Wine makes its desktop a child of it, too.
        killed = entry.th32ParentProcessID == static_cast<DWORD>(client) && wcscmp(entry.szExeFile, L"erl.exe") == 0 &&
                 killProcess(entry.th32ProcessID);
    CloseHandle(snapshot);
    return killed;
}
