#include "tests/support/processholdings.h"
#include "tests/support/test.h"

#include <QDir>

#include <malloc.h>
#include <unistd.h>

namespace
{

int entriesOf(const char* directory)
{
    return QDir(QLatin1String(directory)).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

} // namespace

ProcessHoldings ownHoldings()
{
    malloc_trim(0); // else what is free at the end of the heap comes and goes by a megabyte and a half
    const auto heap = mallinfo2();
    ProcessHoldings now;
    now.handles = entriesOf("/proc/self/fd");
    now.threads = entriesOf("/proc/self/task");
    now.allocated = static_cast<qint64>(heap.uordblks) + static_cast<qint64>(heap.hblkhd);
    // Size and resident set, in pages.
    now.resident = readFile(QStringLiteral("/proc/self/statm")).split(' ').value(1).toLongLong() * getpagesize();
    return now;
}
