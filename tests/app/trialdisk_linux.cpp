#include "tests/app/trialdisk.h"

#include <QFile>

#include <sched.h>
#include <sys/mount.h>

namespace trialdisk
{

void keepToThisProgram()
{
    (void)unshare(CLONE_NEWNS);
    (void)mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
}

bool plugIn(const QString& content, const QString& path)
{
    return mount(QFile::encodeName(content).constData(), QFile::encodeName(path).constData(), nullptr, MS_BIND,
                 nullptr) == 0;
}

bool unplug(const QString& path, bool inUse)
{
    return umount2(QFile::encodeName(path).constData(), inUse ? MNT_DETACH : 0) == 0;
}

} // namespace trialdisk
