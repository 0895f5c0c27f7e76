#pragma once

class QDir;

/// Makes the system look for this user's data, settings and temporary files in the directories "data",
/// "config", "cache", "runtime" and "tmp" of @p home, in this process and the ones it starts.
void moveUserFolders(const QDir& home);
