#include "tests/support/endclient.h"

#include <QtGlobal>

#include <windows.h>

void askToEnd(QProcess& client)
{
    Q_UNUSED(client) // the message reaches every window there is
    PostMessageW(HWND_BROADCAST, RegisterWindowMessageW(L"OrvelStorage.End"), 0, 0);
}
