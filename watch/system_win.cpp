#include "watch/system.h"

#include "base/longpath.h"

#include <windows.h>

#include <cstdio>
#include <fcntl.h>
#include <io.h>

const char* nameCodec()
{
    return "UTF-8";
}

void makeOutputBinary()
{
    _setmode(_fileno(stdout), _O_BINARY);
}

QByteArray directoryId(const QString& path)
{
    constexpr DWORD shared = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const HANDLE directory = CreateFileW(base::ofAnyLength(path).c_str(), FILE_READ_ATTRIBUTES, shared, nullptr,
                                         OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (directory == INVALID_HANDLE_VALUE)
        return QByteArray();
    BY_HANDLE_FILE_INFORMATION found = {};
    const bool isDirectory = GetFileInformationByHandle(directory, &found) != FALSE &&
                             (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    CloseHandle(directory);
    if (!isDirectory)
        return QByteArray();
    return QByteArray::number(quint64(found.dwVolumeSerialNumber)) + ':' +
           QByteArray::number((quint64(found.nFileIndexHigh) << 32U) | found.nFileIndexLow);
}
