#include "tests/support/endclient.h"

#include <QProcess>

#include <windows.h>

#include <vector>

namespace
{

struct Windows
{
    DWORD process;
    std::vector<HWND> found;
};

BOOL CALLBACK take(HWND window, LPARAM parameter)
{
    auto* windows = reinterpret_cast<Windows*>(parameter);
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);
    if (process == windows->process)
        windows->found.push_back(window);
    return TRUE;
}

bool tell(HWND window, UINT message, WPARAM parameter, DWORD_PTR& answer)
{
    constexpr UINT patience = 5000; // ms, the system's; then it ends the program by force
    return SendMessageTimeoutW(window, message, parameter, static_cast<LPARAM>(ENDSESSION_LOGOFF), SMTO_NORMAL,
                               patience, &answer) != 0 ||
           IsWindow(window) == 0; // gone with the client
}

} // namespace

void askToEnd(QProcess& client)
{
    Q_UNUSED(client) // the message reaches every window there is
    PostMessageW(HWND_BROADCAST, RegisterWindowMessageW(L"OrvelStorage.End"), 0, 0);
}

bool endSession(QProcess& client, bool ends)
{
    Windows windows = {static_cast<DWORD>(client.processId()), {}};
    EnumWindows(take, reinterpret_cast<LPARAM>(&windows));
    DWORD_PTR answer = 0;
    for (const HWND window : windows.found) {
        if (!tell(window, WM_QUERYENDSESSION, 0, answer) || answer == 0)
            return false;
    }
    for (const HWND window : windows.found) {
        if (!tell(window, WM_ENDSESSION, ends ? TRUE : FALSE, answer))
            return false;
    }
    return !windows.found.empty();
}
