#include "engine/privatefiles.h"

#include "base/log.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSaveFile>

namespace privatefiles
{

namespace
{

constexpr QFile::Permissions ownRights =
    QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadUser | QFile::WriteUser | QFile::ExeUser;

} // namespace

bool write(const QString& path, const QByteArray& content)
{
    QSaveFile file(path);
    // Flushed first: a commit does not tell that what was still to be written had no room.
    const bool written = file.open(QIODevice::WriteOnly) && file.setPermissions(QFile::ReadOwner | QFile::WriteOwner) &&
                         file.write(content) == content.size() && file.flush() && file.commit();
    if (!written)
        ORVEL_LOG << "Unable to write" << path << file.errorString();
    return written;
}

void restrict(const QString& path)
{
    const QFile::Permissions permissions = QFile::permissions(path);
    if ((permissions & ~ownRights) != 0)
        QFile::setPermissions(path, permissions & ownRights);
}

QString leftOverOf(const QString& name)
{
    static const QRegularExpression leftOver(QStringLiteral("^(.+)\\.(?!(?i)(backup|kopija)$)[A-Za-z]{6}$"));
    return leftOver.match(name).captured(1);
}

void tidy(const QString& directory)
{
    restrict(directory);
    static const QRegularExpression written(QStringLiteral("^(config\\.json|\\d+\\.json|qt_temp|[a-z]+\\.ico)$"));
    const QDir dir(directory);
    const QStringList names = dir.entryList(QDir::Files | QDir::Hidden | QDir::NoSymLinks);
    for (const QString& name : names) {
        if (written.match(leftOverOf(name)).hasMatch())
            QFile::remove(dir.filePath(name));
        else if (name.endsWith(QLatin1String(".json")))
            restrict(dir.filePath(name));
    }
}

} // namespace privatefiles
