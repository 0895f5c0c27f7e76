#include "engine/privatefiles.h"

#include <QFile>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace
{

constexpr QFile::Permissions ownRights =
    QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadUser | QFile::WriteUser | QFile::ExeUser;

} // namespace

void privatefiles::restrict(const QString& path)
{
    const QFile::Permissions permissions = QFile::permissions(path);
    if ((permissions & ~ownRights) != 0)
        QFile::setPermissions(path, permissions & ownRights);
}

bool privatefiles::replace(const QString& path, const QString& newText)
{
    const QByteArray from = QFile::encodeName(newText);
    const int file = open(from.constData(), O_RDONLY | O_CLOEXEC);
    if (file >= 0) {
        fsync(file); // not every file system can
        close(file);
    }
    return std::rename(from.constData(), QFile::encodeName(path).constData()) == 0;
}
