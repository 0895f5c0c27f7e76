#include "engine/privatefiles.h"

#include "base/log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStorageInfo>
#include <QTemporaryFile>

namespace privatefiles
{

namespace
{

/// How the names of new texts begin; six letters follow.
const QString unfinished = QStringLiteral(".orvel-unfinished-");

bool writeWhole(QFileDevice& file, const QByteArray& content)
{
    // Flushed: a close does not tell that what was still to be written had no room.
    return file.write(content) == content.size() && file.flush();
}

bool failed(const QString& path, const QString& reason)
{
    ORVEL_LOG << "Unable to write" << path << reason;
    return false;
}

bool writeInto(const QString& path, const QByteArray& content, const QString& reason)
{
    ORVEL_LOG << "Unable to replace, writing into it" << path << reason;
    restrict(path);
    QFile file(path);
    return (file.open(QIODevice::WriteOnly) && writeWhole(file, content)) || failed(path, file.errorString());
}

} // namespace

bool write(const QString& name, const QByteArray& content)
{
    const QFileInfo link(name);
    const QString path = link.isSymLink() && link.exists() ? link.canonicalFilePath() : name;
    const QFileInfo info(path);
    if (info.exists() && !info.isWritable())
        return failed(path, QStringLiteral("read-only"));

    QString newText;
    {
        QTemporaryFile file(info.path() + QLatin1Char('/') + unfinished + QStringLiteral("XXXXXX"));
        if (!file.open()) {
            // Not on a disk that may be full: the old text would be gone, and the new one have no room.
            const bool hasRoom = QStorageInfo(info.path()).bytesAvailable() > content.size();
            return info.exists() && hasRoom ? writeInto(path, content, file.errorString())
                                            : failed(path, file.errorString());
        }
        restrict(file.fileName());
        if (!writeWhole(file, content))
            return failed(path, file.errorString());
        newText = file.fileName();
        file.setAutoRemove(false);
    } // closed: an open file cannot be moved everywhere
    if (replace(path, newText))
        return true;
    const QString reason = qt_error_string();
    QFile::remove(newText);
    return writeInto(path, content, reason);
}

void tidy(const QString& directory)
{
    restrict(directory);
    static const QRegularExpression leftOver(u'^' + QRegularExpression::escape(unfinished) +
                                             QStringLiteral("[A-Za-z]{6}$"));
    const QDir dir(directory);
    const QStringList names = dir.entryList(QDir::Files | QDir::Hidden | QDir::NoSymLinks);
    for (const QString& name : names) {
        if (leftOver.match(name).hasMatch())
            QFile::remove(dir.filePath(name));
        else if (name.endsWith(QLatin1String(".json")))
            restrict(dir.filePath(name));
    }
}

} // namespace privatefiles
