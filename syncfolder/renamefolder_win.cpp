#include "syncfolder/renamefolder.h"

#include "base/longpath.h"

#include <windows.h>

QString renameFolder(const QString& path, const QString& newPath)
{
    if (MoveFileExW(base::ofAnyLength(path).c_str(), base::ofAnyLength(newPath).c_str(), 0) != 0)
        return {};
    return qt_error_string();
}
