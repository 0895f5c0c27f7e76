#pragma once

#include <QString>
#include <QVector>

#include <cstddef>

/// One entry of a Windows change notification.
struct FileNotification
{
    QString name;       ///< relative to the watched directory, separators as the system wrote them
    quint32 action = 0; ///< 1 added, 2 removed, 3 modified, 4 old name, 5 new name
};

/// Takes the FILE_NOTIFY_INFORMATION entries out of the @p size bytes at @p buffer, in their order.
/// The bytes are not trusted: the walk ends at the first entry that does not lie wholly inside the buffer,
/// or whose successor would overlap it. A zeroed buffer holds one entry without a name.
QVector<FileNotification> decodeFileNotifications(const void* buffer, std::size_t size);
