#pragma once

/// Settles what concerns this process as a whole. Called first of all, before any other object exists.
///
/// On Windows: libraries are loaded from the program's own directory and the system's, whatever the current
/// directory or the search path say; windows and shortcuts belong to one application on the task bar. On
/// Linux: no core file, since the memory holds the user's password.
void prepareProcess();
