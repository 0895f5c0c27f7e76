#pragma once

#include <QtGlobal>

/// What a program has of the system.
struct ProcessHoldings
{
    int handles = 0; ///< files, sockets and the like
    int threads = 0;
    qint64 allocated = 0; ///< bytes; 0 where the program's allocator does not tell
    qint64 resident = 0;  ///< bytes
};

/// Those of this program, with what its allocator keeps for later given back first.
ProcessHoldings ownHoldings();
