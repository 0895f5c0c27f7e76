#include "syncfolder/filenotify.h"

#include <QtEndian>

namespace
{

// NextEntryOffset, Action and FileNameLength, 32 bits each; the name follows at once.
constexpr std::size_t headerSize = 12;

QString decodeName(const uchar* bytes, std::size_t units)
{
    QString name(static_cast<int>(units), Qt::Uninitialized);
    for (QChar& unit : name) {
        unit = QChar(qFromLittleEndian<ushort>(bytes));
        bytes += sizeof(ushort);
    }
    return name;
}

} // namespace

QVector<FileNotification> decodeFileNotifications(const void* buffer, std::size_t size)
{
    QVector<FileNotification> found;
    const uchar* entry = static_cast<const uchar*>(buffer);
    while (size >= headerSize) {
        const std::size_t next = qFromLittleEndian<quint32>(entry);
        const quint32 action = qFromLittleEndian<quint32>(entry + 4);
        const std::size_t nameLength = qFromLittleEndian<quint32>(entry + 8);
        if (nameLength > size - headerSize)
            break;
        found.append({decodeName(entry + headerSize, nameLength / 2), action});
        if (next < headerSize + nameLength || next > size)
            break;
        entry += next;
        size -= next;
    }
    return found;
}
