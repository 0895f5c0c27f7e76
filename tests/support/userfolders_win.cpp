#include "tests/support/userfolders.h"

#include <QDir>

#include <windows.h>

#include <string>

namespace
{

void setShellFolder(const wchar_t* name, const QString& path)
{
    const std::wstring value = QDir::toNativeSeparators(path).toStdWString();
    for (const wchar_t* key : {L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders",
                               L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders"}) {
        RegSetKeyValueW(HKEY_CURRENT_USER, key, name, REG_SZ, value.c_str(),
                        static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
    }
}

} // namespace

void moveUserFolders(const QDir& home)
{
    // The registry is the user's, and it is changed for good.
    if (!qEnvironmentVariableIsSet("ORVEL_OWN_WINDOWS"))
        qFatal("the tests take over the user's folders and need a Windows of their own");
    setShellFolder(L"AppData", home.filePath(QStringLiteral("config")));
    setShellFolder(L"Local AppData", home.filePath(QStringLiteral("data")));
    setShellFolder(L"Cache", home.filePath(QStringLiteral("cache")));
    for (const char* name : {"TMP", "TEMP"})
        qputenv(name, QDir::toNativeSeparators(home.filePath(QStringLiteral("tmp"))).toLocal8Bit());
}
