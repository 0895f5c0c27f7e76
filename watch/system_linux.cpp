#include "watch/system.h"

#include <QFile>

#include <sys/stat.h>

const char* nameCodec()
{
    return "ISO-8859-1"; // every byte stays what it is, also in names that are no UTF-8
}

void makeOutputBinary()
{
}

QByteArray directoryId(const QString& path)
{
    struct stat status = {};
    if (stat(QFile::encodeName(path).constData(), &status) != 0 || !S_ISDIR(status.st_mode))
        return QByteArray();
    return QByteArray::number(quint64(status.st_dev)) + ':' + QByteArray::number(quint64(status.st_ino));
}
