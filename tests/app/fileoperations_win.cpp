#include "tests/app/fileoperations.h"

#include "base/longpath.h"

#include <QFile>
#include <QFileInfo>

#include <windows.h>

namespace fileoperations
{

bool move(const QString& from, const QString& to)
{
    return MoveFileExW(base::ofAnyLength(from).c_str(), base::ofAnyLength(to).c_str(), 0) != 0;
}

// Nobody can delete or rename what Qt has open.

bool create(const QString& path, const QByteArray& content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered) &&
           file.write(content) == content.size();
}

Overwritten overwrite(const QString& path, const QByteArray& content)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite | QIODevice::ExistingOnly | QIODevice::Unbuffered))
        return {};
    Overwritten result;
    result.before = file.readAll();
    result.done = file.seek(0) && file.write(content) == content.size() && file.resize(content.size());
    return result;
}

Exchanged exchange(const QString& file, const QString& path, const QString& before)
{
    Exchanged result;
    result.taken = move(path, before);
    result.placed = result.taken && move(file, path);
    return result;
}

bool isDirectory(const QString& path)
{
    const QFileInfo info(path);
    return info.isDir() && !info.isSymLink();
}

} // namespace fileoperations
