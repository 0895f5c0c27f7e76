#pragma once

#include <qwindowdefs.h>

/// What the system tells a window when its scale changes.
namespace scalemessage
{

struct Change
{
    WId window = 0; ///< 0: the message is another one
    int dotsPerInch = 0;
};

/// @p message: as an event filter for native events gets it. Only Windows has such a message.
Change read(const void* message);

} // namespace scalemessage
