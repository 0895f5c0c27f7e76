#include "shell/placement.h"

#include <QDir>
#include <QFile>
#include <QSettings>

namespace placement
{

namespace
{

QString shellFolder(const QString& value)
{
    const QSettings folders(QStringLiteral("HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\CurrentVersion\\"
                                           "Explorer\\Shell Folders"),
                            QSettings::NativeFormat);
    return folders.value(value).toString();
}

} // namespace

void setStartup(bool on, const QString& name, const QString& program)
{
    const QString shortcut = shellFolder(QStringLiteral("Startup")) + QLatin1Char('\\') + name + QStringLiteral(".lnk");
    if (on)
        QFile::link(QDir::toNativeSeparators(program), shortcut);
    else
        QFile::remove(shortcut);
}

} // namespace placement
