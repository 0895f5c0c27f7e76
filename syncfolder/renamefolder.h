#pragma once

class QString;

/// Gives a folder another full path on the same disk, where nothing may be yet. Otherwise the folder stays as it is,
/// and the result is the system's reason in the user's language; empty when it was done.
QString renameFolder(const QString& path, const QString& newPath);
