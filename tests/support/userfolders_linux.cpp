#include "tests/support/userfolders.h"

#include <QDir>

void moveUserFolders(const QDir& home)
{
    const auto set = [](const char* name, const QString& path) {
        qputenv(name, QFile::encodeName(path));
    };
    QFile::setPermissions(home.filePath(QStringLiteral("runtime")),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    set("HOME", home.path());
    set("XDG_CONFIG_HOME", home.filePath(QStringLiteral("config")));
    set("XDG_DATA_HOME", home.filePath(QStringLiteral("data")));
    set("XDG_CACHE_HOME", home.filePath(QStringLiteral("cache")));
    set("XDG_RUNTIME_DIR", home.filePath(QStringLiteral("runtime")));
    set("TMPDIR", home.filePath(QStringLiteral("tmp")));
}
