#pragma once

#include <QString>

/// A directory that is put under another one's path like a disk, for this program and its children alone. False
/// where the system does not allow that.
namespace trialdisk
{

void keepToThisProgram();
bool plugIn(const QString& content, const QString& path);
/// @p inUse: torn out while somebody uses it.
bool unplug(const QString& path, bool inUse);

} // namespace trialdisk
