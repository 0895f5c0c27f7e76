#include "engine/privatefiles.h"

#include "base/longpath.h"

#include <windows.h>

#include <string>

bool privatefiles::replace(const QString& path, const QString& newText)
{
    const std::wstring from = base::ofAnyLength(newText);
    const std::wstring to = base::ofAnyLength(path);
    const HANDLE file = CreateFileW(from.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) {
        FlushFileBuffers(file);
        CloseHandle(file);
    }
    return MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING) != 0;
}
