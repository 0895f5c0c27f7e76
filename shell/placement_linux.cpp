#include "shell/placement.h"
#include "shell/placementbookmarks.h"
#include "shell/placementfiles.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSaveFile>
#include <QStandardPaths>

namespace placement
{

namespace
{

QString configFile(const QString& name)
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QLatin1Char('/') + name;
}

QString dataFile(const QString& name)
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QLatin1Char('/') + name;
}

/// Replaces a file in one step, and makes the directories that lead there.
bool replaceFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).path());
    QSaveFile file(path);
    // Flushed first: a commit does not tell that what was still to be written had no room.
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && file.flush() && file.commit();
}

/// Null for a file that is not there or may not be read.
QByteArray contentOf(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray content = file.readAll();
    return content.isNull() ? QByteArray("") : content;
}

bool isKde()
{
    return qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(QLatin1Char(':')).contains(QStringLiteral("KDE"));
}

/// For KDE's file manager, which knows no other way than a file in the folder. That file reaches the cloud
/// and the user's other computers like every other one, so there is none on other desktops, and it names
/// an icon of the theme and no path: its content is the same on all computers, and none replaces what
/// another one wrote.
void writeDirectoryFile(const QDir& root)
{
    QFile file(root.filePath(QStringLiteral(".directory")));
    if (file.open(QIODevice::WriteOnly | QIODevice::NewOnly))
        file.write("[Desktop Entry]\nIcon=folder-cloud\n");
}

/// For the file managers that stand on GIO. They keep this with the user and not in the folder.
void setCustomIcon(const QDir& root, const QString& icon)
{
    if (icon.isEmpty() || !root.exists() || QStandardPaths::findExecutable(QStringLiteral("gio")).isEmpty())
        return;
    // A shell that only starts another one. Qt's detached processes run its own code in a fork of the client, which
    // waits for it: a lock that another thread held at the fork is never opened there, and both would hang.
    const QString shell = QStringLiteral("/bin/sh");
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(shell, QStringList{QStringLiteral("-c"), QStringLiteral("\"$@\" &"), shell, shell} +
                             customIconCommand(root.absolutePath(), icon));
    process.waitForFinished();
}

/// One bookmark file of the user's, as long as a change takes.
class Sidebar final
{
public:
    using Reader = Bookmarks (*)(const QByteArray&);

    /// A file that is not there takes part if nothing is a valid content.
    Sidebar(QString path, Reader read)
        : m_path(std::move(path))
        , m_content(contentOf(m_path))
        , m_bookmarks(read(m_content))
        , m_takesPart(m_bookmarks.isValid() && (!m_content.isNull() || !QFileInfo::exists(m_path)))
    {
    }

    bool takesPart() const
    {
        return m_takesPart;
    }

    Bookmarks& bookmarks()
    {
        return m_bookmarks;
    }

    void save() const
    {
        const QByteArray content = m_bookmarks.content();
        if (m_takesPart && content != m_content)
            replaceFile(m_path, content);
    }

private:
    QString m_path;
    QByteArray m_content;
    Bookmarks m_bookmarks;
    bool m_takesPart;
};

} // namespace

QString iconFile(const QString& program, const QString& dataDir)
{
    Q_UNUSED(program)
    QString path = dataDir + QStringLiteral("/orvel.png");
    const QByteArray picture = contentOf(QStringLiteral(":/omri72@2x.png"));
    if (picture.isEmpty() || (contentOf(path) != picture && !replaceFile(path, picture)))
        return {};
    return path;
}

void setStartup(bool on, const QString& name, const QString& program, const QString& icon)
{
    const QString path = configFile(QStringLiteral("autostart/%1.desktop").arg(name));
    if (on)
        replaceFile(path, autostartEntry(name, program, icon));
    else
        QFile::remove(path);
}

void setFolderIcon(const QDir& root, const QString& icon)
{
    if (isKde())
        writeDirectoryFile(root);
    setCustomIcon(root, icon);
}

struct Links::Shell
{
    /// GTK's file choosers and the file managers of GNOME, Xfce, MATE, Cinnamon and LXQt.
    Sidebar gtk{configFile(QStringLiteral("gtk-3.0/bookmarks")), Bookmarks::fromGtk};
    /// KDE's. Only where the file exists: KDE puts its own places into the list when it makes that file,
    /// and would find one without them.
    Sidebar kde{dataFile(QStringLiteral("user-places.xbel")), Bookmarks::fromPlaces};
};

Links::Links()
    : m_shell(std::make_unique<Shell>())
{
}

Links::~Links()
{
    m_shell->gtk.save();
    m_shell->kde.save();
}

QString Links::linkTo(const QDir& root) const
{
    return folderUrl(root.absolutePath());
}

bool Links::exists(const QString& link) const
{
    const QString folder = folderOfUrl(link);
    bool found = false;
    for (Sidebar* sidebar : {&m_shell->gtk, &m_shell->kde}) {
        if (!sidebar->takesPart())
            continue;
        if (!sidebar->bookmarks().contains(folder))
            return false;
        found = true;
    }
    return found;
}

void Links::remove(const QString& link)
{
    const QString folder = folderOfUrl(link);
    if (folder.isEmpty()) // not a link of this desktop
        return;
    m_shell->gtk.bookmarks().remove(folder);
    m_shell->kde.bookmarks().remove(folder);
}

bool Links::create(const QString& link, const QDir& root, const QString& icon)
{
    Q_UNUSED(root)
    const QString folder = folderOfUrl(link);
    if (folder.isEmpty())
        return false;
    Bookmarks& gtk = m_shell->gtk.bookmarks();
    Bookmarks& kde = m_shell->kde.bookmarks();
    if (!gtk.contains(folder))
        gtk.add(folder, Bookmarks::gtkEntry(folder));
    if (!kde.contains(folder))
        kde.add(folder, Bookmarks::placesEntry(folder, icon));
    return m_shell->gtk.takesPart() || m_shell->kde.takesPart();
}

} // namespace placement
