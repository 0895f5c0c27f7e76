#include "syncfolder/renamefolder.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>

QString renameFolder(const QString& path, const QString& newPath)
{
    if (QFileInfo::exists(newPath)) // an empty folder would be replaced
        return qt_error_string(EEXIST);
    if (std::rename(QFile::encodeName(path).constData(), QFile::encodeName(newPath).constData()) == 0)
        return {};
    return qt_error_string();
}
