#include "ui/scalemessage.h"

#include <windows.h>

#ifndef WM_DPICHANGED
#define WM_DPICHANGED 0x02E0
#endif

scalemessage::Change scalemessage::read(const void* message)
{
    const auto* told = static_cast<const MSG*>(message);
    if (told->message != WM_DPICHANGED)
        return {};
    return {reinterpret_cast<WId>(told->hwnd), HIWORD(told->wParam)};
}
