#pragma once

#include <QDir>
#include <QFileInfo>
#include <QString>

#include <string>

namespace base
{

/// The path as the functions of Windows take it however long it is.
inline std::wstring ofAnyLength(const QString& path)
{
    const QString native = QDir::toNativeSeparators(QFileInfo(path).absoluteFilePath());
    const QString share = QStringLiteral("\\\\");
    if (native.startsWith(QLatin1String("\\\\?\\")))
        return native.toStdWString();
    return (native.startsWith(share) ? QStringLiteral("\\\\?\\UNC") + native.mid(1)
                                     : QStringLiteral("\\\\?\\") + native)
        .toStdWString();
}

} // namespace base
