#pragma once

class QProcess;

/// Asks a running client to end, as the system's own programs would.
void askToEnd(QProcess& client);
