#include "tests/app/fileoperations.h"

#include <QFile>

#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fileoperations
{

namespace
{

QByteArray native(const QString& path)
{
    return QFile::encodeName(path);
}

bool rename(const QString& from, const QString& to, unsigned flags)
{
    return renameat2(AT_FDCWD, native(from).constData(), AT_FDCWD, native(to).constData(), flags) == 0;
}

bool hasAName(int file)
{
    struct stat status = {};
    return fstat(file, &status) == 0 && status.st_nlink > 0;
}

} // namespace

bool move(const QString& from, const QString& to)
{
    return rename(from, to, RENAME_NOREPLACE);
}

bool create(const QString& path, const QByteArray& content)
{
    const int file = open(native(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (file < 0)
        return false;
    const bool written = write(file, content.constData(), static_cast<size_t>(content.size())) == content.size();
    const bool there = hasAName(file);
    close(file);
    return written && there;
}

Overwritten overwrite(const QString& path, const QByteArray& content)
{
    const int file = open(native(path).constData(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
    if (file < 0)
        return {};
    Overwritten result;
    QFile stream;
    (void)stream.open(file, QIODevice::ReadOnly | QIODevice::Unbuffered, QFileDevice::DontCloseHandle);
    result.before = stream.readAll();
    const bool written = pwrite(file, content.constData(), static_cast<size_t>(content.size()), 0) == content.size() &&
                         ftruncate(file, content.size()) == 0;
    result.done = written && hasAName(file);
    close(file);
    return result;
}

Exchanged exchange(const QString& file, const QString& path, const QString& before)
{
    const bool done = rename(file, path, RENAME_EXCHANGE) && rename(file, before, RENAME_NOREPLACE);
    return {done, done};
}

bool isDirectory(const QString& path)
{
    struct stat status = {};
    return lstat(native(path).constData(), &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace fileoperations
