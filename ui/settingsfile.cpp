#include "ui/settingsfile.h"

#include <QFile>
#include <QFileInfo>
#include <QSettings>

namespace settingsfile
{

void tidy()
{
    const QString lock = QSettings().fileName() + QStringLiteral(".lock");
    for (const QString& name : {lock, lock + QStringLiteral(".rmlock")}) {
        const QFileInfo file(name);
        if (file.isFile() && !file.isSymLink() && file.size() == 0)
            QFile::remove(name);
    }
}

} // namespace settingsfile
