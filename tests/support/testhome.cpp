#include "tests/support/testhome.h"

#include "tests/support/userfolders.h"

#include <QDir>
#include <QStandardPaths>
#include <QTemporaryDir>

namespace
{

/// Built before main(), before anything can have asked for a path.
class TestHome final
{
    Q_DISABLE_COPY_MOVE(TestHome)
public:
    TestHome()
    {
        const QDir home(m_directory.path());
        for (const char* name : {"config", "data", "cache", "runtime", "tmp"})
            home.mkdir(QLatin1String(name));
        moveUserFolders(home);
        qputenv("ORVEL_UPDATE_FEED", "data:text/xml,<rss/>"); // no check may leave this computer
        qunsetenv("QT_LOGGING_RULES");
    }

    ~TestHome()
    {
        QDir::setCurrent(QDir::rootPath()); // a current directory cannot be removed everywhere
    }

    QString path() const
    {
        return m_directory.path();
    }

private:
    QTemporaryDir m_directory;
};

const TestHome home; // NOLINT(cert-err58-cpp): without a home of its own no test may start

} // namespace

QString testHome()
{
    return home.path();
}
