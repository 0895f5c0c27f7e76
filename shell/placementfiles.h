#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

/// What the client writes into the shell's files and where, apart from the shells themselves.
namespace placement
{

/// The content of a folder's desktop.ini that gives it the icon of @p program. UTF-16 with a
/// mark: Windows would read anything else in the code page of the system, which lacks letters that names have.
QByteArray desktopIni(const QString& program);

/// The path of the shortcut @p name in @p folder, with the separator of Windows before its name.
QString shortcutPath(const QString& folder, const QString& name);

/// Where Windows keeps the shortcuts to the sync roots.
struct ShortcutPlace
{
    QString folder; ///< its name among the user's shell folders
    int iconIndex;  ///< the icon of the program that the shortcut shows
};

/// Windows XP has no sidebar, so the desktop stands in for it there.
ShortcutPlace shortcutPlace(bool windowsXp);

/// The freedesktop autostart entry @p name, UTF-8. @p icon is left out when it is empty.
QByteArray autostartEntry(const QString& name, const QString& program, const QString& icon);

/// The arguments with which a shell gives a folder an icon for the file managers that stand on GIO, unless
/// it has one: that is the user's choice then.
QStringList customIconCommand(const QString& folder, const QString& icon);

} // namespace placement
