#pragma once

#include <QByteArray>
#include <QString>

/// Files that are nobody's business but the user's: the configuration holds the password. Where the system
/// has no permission bits, the user's profile protects them.
namespace privatefiles
{

/// Replaces the file's content in one step: a crash or a full disk leaves the old text or the new one. False,
/// with a log line, when that cannot be.
bool write(const QString& path, const QByteArray& content);

/// Takes from everybody but the user what rights to the file or directory they have.
void restrict(const QString& path);

/// The name of the file that was to be replaced, if @p name is that of the new text, which a killed program
/// leaves beside it: one with six letters more; otherwise empty. One with ".backup" or ".kopija" is somebody's own.
QString leftOverOf(const QString& name);

/// Tidies up the directory at start: everything in it that write() can have made is restricted, and what a
/// killed write() left behind is removed.
void tidy(const QString& directory);

} // namespace privatefiles
