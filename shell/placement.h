#pragma once

#include <QString>

/// The places that the client takes in the desktop's shell. Failures are silent: no place is worth a
/// message to the user. GUI thread.
namespace placement
{

/// Starts the program at log-on from now on, or no longer. @p name is what the entry is called,
/// @p program the full path of the executable.
void setStartup(bool on, const QString& name, const QString& program);

} // namespace placement
