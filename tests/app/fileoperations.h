#pragma once

#include <QByteArray>
#include <QString>

/// What programs do with files, in steps of which each tells exactly what it did.
namespace fileoperations
{

/// Renames without ever replacing anything.
bool move(const QString& from, const QString& to);

/// Writes a file that is not there yet; false unless it stands under some name when it is done.
bool create(const QString& path, const QByteArray& content);

struct Overwritten
{
    bool done = false; ///< and the file stands under some name when it is done
    QByteArray before;
};
/// Reads a file that is there, and writes into it while it is open.
Overwritten overwrite(const QString& path, const QByteArray& content);

struct Exchanged
{
    bool taken = false; ///< what was under the name is under @p before now
    bool placed = false;
};
/// Puts a file under a name that another one has: in one step where the system has that.
Exchanged exchange(const QString& file, const QString& path, const QString& before);

/// Whether it is a directory itself, not a link to one.
bool isDirectory(const QString& path);

} // namespace fileoperations
