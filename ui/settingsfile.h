#pragma once

/// The file of the user's settings, where they are one.
namespace settingsfile
{

/// Lets QSettings write its file so that a full disk leaves the old text in it, with a log line: as it comes, it does
/// not notice that the last of the new one had no room. To be called before the first QSettings. The file remains one
/// that every QSettings can read and write. Does nothing where the settings are no file.
void install();

/// Removes the lock without a name in it that a client which was killed while it wrote the settings has left beside
/// their file, and for which the next write would wait half a minute; whether one with a name is still held is found
/// out by whoever meets it. A new text that is not whole may be left, too: Qt gives it a name that a copy of the user's
/// can have, so it stays. To be called by the user's only client, once the application has its names. Does nothing
/// where the settings are no file.
void tidy();

} // namespace settingsfile
