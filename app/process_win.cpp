#include "app/process.h"

#include <windows.h>

#include <shobjidl.h>

namespace
{

/// The installer writes the same one into the Start menu's shortcut.
constexpr wchar_t applicationId[] = L"Velmora.OrvelStorage";

} // namespace

void prepareProcess()
{
    SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_APPLICATION_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
    SetDllDirectoryW(L"");
    SetCurrentProcessExplicitAppUserModelID(applicationId);
}
