#include "engine/privatefiles.h"

#include <QDir>
#include <QFileInfo>

#include <windows.h>

#include <string>

namespace
{

/// The path as the system takes it however long it is.
std::wstring ofAnyLength(const QString& path)
{
    const QString native = QDir::toNativeSeparators(QFileInfo(path).absoluteFilePath());
    const QString share = QStringLiteral("\\\\");
    return (native.startsWith(share) ? QStringLiteral("\\\\?\\UNC") + native.mid(1)
                                     : QStringLiteral("\\\\?\\") + native)
        .toStdWString();
}

} // namespace

bool privatefiles::replace(const QString& path, const QString& newText)
{
    const std::wstring from = ofAnyLength(newText);
    const std::wstring to = ofAnyLength(path);
    const HANDLE file = CreateFileW(from.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) {
        FlushFileBuffers(file);
        CloseHandle(file);
    }
    return MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING) != 0;
}
