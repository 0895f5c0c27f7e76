#include "shell/placement_win.h"
#include "base/log.h"
#include "base/longpath.h"
#include "shell/placement.h"
#include "shell/placementfiles.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QSysInfo>

#include <windows.h>

#include <objbase.h>
#include <shlobj.h>
#include <shlwapi.h>

#include <string>

namespace placement
{

namespace
{

QString shellFolder(const QString& name)
{
    const QSettings folders(windowsShell().shellFoldersKey, QSettings::NativeFormat);
    return folders.value(name).toString();
}

std::wstring native(const QString& path)
{
    return QDir::toNativeSeparators(path).toStdWString();
}

/// COM on this thread. What somebody else had begun before is left to him to end.
class Com final
{
    Q_DISABLE_COPY_MOVE(Com)

public:
    Com() = default;
    ~Com()
    {
        if (m_result == S_OK)
            CoUninitialize();
    }

private:
    HRESULT m_result = CoInitialize(nullptr);
};

struct Release
{
    void operator()(IUnknown* object) const
    {
        object->Release();
    }
};
template<typename Interface>
using ComPointer = std::unique_ptr<Interface, Release>;

ComPointer<IShellLinkW> createShellLink()
{
    void* link = nullptr;
    if (FAILED(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW, &link)))
        return nullptr;
    return ComPointer<IShellLinkW>(static_cast<IShellLinkW*>(link));
}

ComPointer<IPersistFile> fileOf(IShellLinkW& link)
{
    void* file = nullptr;
    if (FAILED(link.QueryInterface(IID_IPersistFile, &file)))
        return nullptr;
    return ComPointer<IPersistFile>(static_cast<IPersistFile*>(file));
}

/// Whether the shell's functions take the path.
bool isShellsLength(const QString& path)
{
    return path.size() < MAX_PATH;
}

/// A path as one key of the settings, where separators would begin a group.
QString keyOf(const QString& path)
{
    return QString::fromLatin1(QCryptographicHash::hash(path.toUtf8(), QCryptographicHash::Sha1).toHex());
}

bool isWindowsXp()
{
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED // its successor does not know the old ones
        return QSysInfo::windowsVersion() == QSysInfo::WV_XP;
    QT_WARNING_POP
}

} // namespace

WindowsShell& windowsShell()
{
    static WindowsShell shell{QStringLiteral("HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\CurrentVersion\\"
                                             "Explorer\\Shell Folders"),
                              isWindowsXp()};
    return shell;
}

QString iconFile(const QString& program, const QString& dataDir)
{
    Q_UNUSED(dataDir)
    return program;
}

void setStartup(bool on, const QString& name, const QString& program, const QString& icon)
{
    Q_UNUSED(icon) // a shortcut shows the icon of its program
    const QString folder = shellFolder(QStringLiteral("Startup"));
    if (folder.isEmpty())
        return;
    const QString shortcut = shortcutPath(folder, name);
    if (on)
        QFile::link(QDir::toNativeSeparators(program), shortcut);
    else
        QFile::remove(shortcut);
}

void setFolderIcon(const QDir& root, const QString& icon)
{
    const QString path = root.path() + QStringLiteral("/desktop.ini");
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(desktopIni(icon));
    file.close();
    // Only with these will Explorer read the file.
    SetFileAttributesW(base::ofAnyLength(path).c_str(), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
    if (isShellsLength(root.path())) {
        PathMakeSystemFolderW(native(root.path()).c_str());
    } else { // Explorer takes this attribute as well as the one that the function sets
        const std::wstring folder = base::ofAnyLength(root.path());
        SetFileAttributesW(folder.c_str(), GetFileAttributesW(folder.c_str()) | FILE_ATTRIBUTE_SYSTEM);
    }
    // The uninstaller takes the icons away again and finds the folders here.
    const QString folder = QDir::toNativeSeparators(root.path());
    QSettings().setValue(QStringLiteral("iconfolders/") + keyOf(folder), folder);
}

struct Links::Shell
{
    ShortcutPlace place = shortcutPlace(windowsShell().isXp);
    QString folder = shellFolder(place.folder);
};

Links::Links()
    : m_shell(std::make_unique<Shell>())
{
}

Links::~Links() = default;

QString Links::linkTo(const QDir& root) const
{
    return shortcutPath(m_shell->folder, root.dirName());
}

bool Links::exists(const QString& link) const
{
    // Qt would ask for what the shortcut leads to.
    return GetFileAttributesW(base::ofAnyLength(link).c_str()) != INVALID_FILE_ATTRIBUTES;
}

void Links::remove(const QString& link)
{
    QFile::remove(link);
}

bool Links::create(const QString& link, const QDir& root, const QString& icon)
{
    if (m_shell->folder.isEmpty())
        return false;
    if (!isShellsLength(root.path()) || !isShellsLength(link)) {
        ORVEL_LOG << "Path is too long for a shortcut" << root.path() << link;
        return false;
    }
    const Com com;
    const ComPointer<IShellLinkW> shellLink = createShellLink();
    if (!shellLink)
        return false;
    shellLink->SetPath(native(root.path()).c_str());
    shellLink->SetIconLocation(native(icon).c_str(), m_shell->place.iconIndex);
    const ComPointer<IPersistFile> file = fileOf(*shellLink);
    if (!file)
        return false;
    file->Save(link.toStdWString().c_str(), TRUE);
    return true;
}

} // namespace placement
