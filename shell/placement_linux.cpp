#include "shell/placement.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

namespace placement
{

namespace
{

/// An argument of a desktop entry's command line: quoted, and with its field codes made harmless.
QString quoted(QString argument)
{
    for (const char reserved : {'\\', '"', '`', '$'})
        argument.replace(QLatin1Char(reserved), QLatin1String("\\") + QLatin1Char(reserved));
    argument.replace(QLatin1Char('%'), QLatin1String("%%"));
    return QLatin1Char('"') + argument + QLatin1Char('"');
}

/// A value of a desktop entry, in which the backslash starts an escape.
QString escaped(QString value)
{
    return value.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
}

} // namespace

void setStartup(bool on, const QString& name, const QString& program)
{
    const QDir autostart(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                         QStringLiteral("/autostart"));
    const QString path = autostart.filePath(name + QStringLiteral(".desktop"));
    if (!on) {
        QFile::remove(path);
        return;
    }
    autostart.mkpath(QStringLiteral("."));
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return;
    // The client finds the engine from its current directory, which is the installation's.
    const QString entry = QStringLiteral("[Desktop Entry]\nType=Application\nName=%1\nExec=%2\nPath=%3\n")
                              .arg(escaped(name), escaped(quoted(program)), escaped(QFileInfo(program).path()));
    file.write(entry.toUtf8());
    file.commit();
}

} // namespace placement
