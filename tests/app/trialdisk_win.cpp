#include "tests/app/trialdisk.h"

// Wine makes neither junctions nor drives for a program without rights.

namespace trialdisk
{

void keepToThisProgram()
{
}

bool plugIn(const QString& content, const QString& path)
{
    Q_UNUSED(content)
    Q_UNUSED(path)
    return false;
}

bool unplug(const QString& path, bool inUse)
{
    Q_UNUSED(path)
    Q_UNUSED(inUse)
    return false;
}

} // namespace trialdisk
