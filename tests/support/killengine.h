#pragma once

#include <QtGlobal>

/// Ends the engine that this client has started, at once; false when it has none.
bool killEngineOf(qint64 client);
