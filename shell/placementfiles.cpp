#include "shell/placementfiles.h"

#include "shell/placementbookmarks.h"

#include <QFileInfo>

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

/// A value of a desktop entry: in one line, with the backslash starting an escape. Blanks before it would
/// be skipped.
QString escaped(QString value)
{
    value.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
    value.replace(QLatin1Char('\n'), QLatin1String("\\n"));
    value.replace(QLatin1Char('\r'), QLatin1String("\\r"));
    value.replace(QLatin1Char('\t'), QLatin1String("\\t"));
    if (value.startsWith(QLatin1Char(' ')))
        value.replace(0, 1, QLatin1String("\\s"));
    return value;
}

QByteArray line(const char* key, const QString& value)
{
    return QByteArray(key) + '=' + escaped(value).toUtf8() + '\n';
}

} // namespace

QByteArray desktopIni(const QString& program)
{
    const QString text = QStringLiteral("[.ShellClassInfo]\nIconFile=") + program + QStringLiteral("\r\nIconIndex=1\n");
    QByteArray content("\xff\xfe");
    for (const QChar unit : text)
        content += QByteArray(1, static_cast<char>(unit.cell())) + static_cast<char>(unit.row());
    return content;
}

QString shortcutPath(const QString& folder, const QString& name)
{
    return folder + QLatin1Char('\\') + name + QStringLiteral(".lnk");
}

ShortcutPlace shortcutPlace(bool windowsXp)
{
    if (windowsXp)
        return {QStringLiteral("Desktop"), 1};
    return {QStringLiteral("{BFB9D5E0-C6A9-404C-B2B2-AE6DB6AF4968}"), 0};
}

QByteArray autostartEntry(const QString& name, const QString& program, const QString& icon)
{
    // The client finds the engine from its current directory, which is the installation's. Not every desktop
    // takes the directory from the key "Path".
    const QString command = QStringLiteral("env ") + quoted(QStringLiteral("--chdir=") + QFileInfo(program).path()) +
                            QLatin1Char(' ') + quoted(program);
    QByteArray entry = "[Desktop Entry]\nType=Application\n" + line("Name", name) + line("Exec", command);
    entry += line("TryExec", program); // says nothing once the program has been removed
    if (!icon.isEmpty())
        entry += line("Icon", icon);
    return entry + "Terminal=false\nX-GNOME-Autostart-enabled=true\n";
}

QStringList customIconCommand(const QString& folder, const QString& icon)
{
    const QString script = QStringLiteral("gio info -a metadata::custom-icon \"$1\" |"
                                          " grep -q '^ *metadata::custom-icon:' ||"
                                          " gio set \"$1\" metadata::custom-icon \"$2\"");
    return {QStringLiteral("-c"), script, QStringLiteral("sh"), folder, folderUrl(icon)};
}

} // namespace placement
