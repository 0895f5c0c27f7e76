#pragma once

#include <QtGlobal>

class QProcess;

/// Asks a running client to end, as the system's own programs would.
void askToEnd(QProcess& client);

#ifdef Q_OS_WIN
/// Tells the client that the session is to end, as the system does at log-off and shutdown, and then whether it ends.
/// False when the client objects, or answers later than the system waits.
bool endSession(QProcess& client, bool ends);
#endif
