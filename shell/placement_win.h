#pragma once

#include <QString>

namespace placement
{

/// The facts of this Windows that the places follow from. A test puts its own there before it uses them.
struct WindowsShell
{
    QString shellFoldersKey; ///< the registry key with the paths of the user's shell folders
    bool isXp;
};

WindowsShell& windowsShell();

} // namespace placement
