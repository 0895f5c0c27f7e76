#include "ui/settingsfile.h"

#include "engine/privatefiles.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>

namespace settingsfile
{

void tidy()
{
    const QFileInfo file(QSettings().fileName());
    QDir directory = file.dir();
    const QStringList names = directory.entryList(QDir::Files | QDir::Hidden | QDir::NoSymLinks);
    const QString lock = file.fileName() + QStringLiteral(".lock");
    for (const QString& name : names) {
        const bool isLock = name == lock || name == lock + QStringLiteral(".rmlock");
        if ((isLock && QFileInfo(directory.filePath(name)).size() == 0) ||
            privatefiles::leftOverOf(name) == file.fileName())
            directory.remove(name);
    }
}

} // namespace settingsfile
