#include "tests/support/privileges.h"

#include "tests/support/testhome.h"

#include <QDirIterator>
#include <QFile>

#include <sys/fsuid.h>
#include <unistd.h>

namespace
{

constexpr uid_t nobody = 65534;

/// The user of the file system, and the one who is asked about before a file is opened, are changed: the process keeps
/// everything else, and gets them back.
class OtherFileUser final : public Unprivileged
{
public:
    OtherFileUser()
    {
        (void)setreuid(nobody, static_cast<uid_t>(-1));
        setfsuid(nobody);
    }
    ~OtherFileUser() override
    {
        setfsuid(geteuid());
        (void)setreuid(geteuid(), static_cast<uid_t>(-1));
    }
};

void giveHomeTo(uid_t user)
{
    (void)chown(QFile::encodeName(testHome()).constData(), user, static_cast<gid_t>(-1));
    QDirIterator entries(testHome(), QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (entries.hasNext())
        (void)lchown(QFile::encodeName(entries.next()).constData(), user, static_cast<gid_t>(-1));
}

} // namespace

std::unique_ptr<Unprivileged> dropPrivileges()
{
    if (geteuid() != 0)
        return std::make_unique<Unprivileged>();
    giveHomeTo(nobody);
    auto dropped = std::make_unique<OtherFileUser>();
    if (setfsuid(static_cast<uid_t>(-1)) != static_cast<int>(nobody))
        return nullptr;
    return dropped;
}
