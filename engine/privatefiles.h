#pragma once

#include <QByteArray>
#include <QString>

/// Files that are nobody's business but the user's: the configuration holds the password. On Windows the system and
/// its administrators, who could take the right themselves, keep theirs as in all of the user's profile.
namespace privatefiles
{

/// Replaces the file's content in one step: a crash or a full disk leaves the old text or the new one. Where it can be
/// written but not replaced, as on Windows while somebody reads it, the new text is written into it, with a log line.
/// False, with a log line, when that cannot be either. A link that leads somewhere stays one; a read-only file stays as
/// it is.
bool write(const QString& name, const QByteArray& content);

/// Puts the file @p newText on the disk and in the place of the one at @p path. False, with the system's last error
/// set, when that cannot be; both are as they were then.
bool replace(const QString& path, const QString& newText);

/// Takes from everybody but the user what rights to the file or directory they have, on Windows with a log line where
/// the disk knows no rights. What is made in a directory from then on is the user's alone, too.
void restrict(const QString& path);

/// Tidies up the directory at start: every JSON file in it is restricted, and the new texts that a killed write() left
/// beside the files are removed. They have names of their own, ".orvel-unfinished-" and six letters; whatever is called
/// otherwise is left alone.
void tidy(const QString& directory);

} // namespace privatefiles
