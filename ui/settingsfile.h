#pragma once

/// The file of the user's settings, where they are one.
namespace settingsfile
{

/// Removes what a client that was killed while it wrote the settings has left beside their file: a copy that
/// is not whole, and a lock without a name in it, for which the next write would wait half a minute; whether one
/// with a name is still held is found out by whoever meets it. To be called by the user's only client, once the
/// application has its names. Does nothing where the settings are no file.
void tidy();

} // namespace settingsfile
