#include "shell/placement.h"
#include "shell/placementbookmarks.h"
#include "shell/placementfiles.h"
#include "tests/support/fulldisk.h"
#include "tests/support/privileges.h"
#include "tests/support/test.h"

#include <QElapsedTimer>
#include <QProcess>

#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cstdlib>
#include <new>

using namespace placement;

namespace
{

/// Allocations between a fork of this program and the start of another one, counted in memory that the two share.
/// Another thread may hold a lock of the allocator when it forks, and no one ever opens it in the child.
volatile int* allocationsInForks = nullptr;
bool isFork = false;

void noteFork()
{
    isFork = true;
}

const QByteArray emptyPlaces = "<xbel>\n</xbel>\n";
const QByteArray kdeFolderIcon = "[Desktop Entry]\nIcon=folder-cloud\n";

QString inHome(const char* path)
{
    return testHome() + QLatin1Char('/') + QLatin1String(path);
}

QString gtkFile()
{
    return inHome("config/gtk-3.0/bookmarks");
}

QString kdeFile()
{
    return inHome("data/user-places.xbel");
}

/// Replacing a file changes it, also when the content is the same.
quint64 identityOf(const QString& path)
{
    struct stat status = {};
    return stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_ino : 0;
}

bool create(const QDir& root)
{
    Links links;
    return links.create(links.linkTo(root), root, QStringLiteral("/icon.png"));
}

bool exists(const QDir& root)
{
    const Links links;
    return links.exists(links.linkTo(root));
}

void remove(const QDir& root)
{
    Links links;
    links.remove(links.linkTo(root));
}

/// A stand-in for the program of GIO, first in the path: it tells the custom icon that is in the file
/// "icon", and lays what it is to set into the file "set".
void installGio()
{
    const QString program = inHome("bin/gio");
    writeFile(program, "#!/bin/sh\n"
                       "if [ \"$1\" = info ]; then\n"
                       "  echo 'attributes:'\n"
                       "  if [ -e \"$HOME/tmp/icon\" ]; then cat \"$HOME/tmp/icon\"; fi\n"
                       "else\n"
                       "  printf '%s\\n' \"$@\" >\"$HOME/tmp/set.part\"\n"
                       "  mv \"$HOME/tmp/set.part\" \"$HOME/tmp/set\"\n"
                       "fi\n");
    QFile::setPermissions(program, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

} // namespace

void* operator new(std::size_t size)
{
    if (isFork)
        ++*allocationsInForks;
    if (void* memory = std::malloc(size > 0 ? size : 1))
        return memory;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size)
{
    return operator new(size);
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}

class PlacementLinuxTest final : public Test
{
    Q_OBJECT

    const QByteArray m_path = qgetenv("PATH");
    const QDir m_root{inHome("Orvel \"100%\" \u0161")};

protected:
    void setUp() override
    {
        QFile::remove(inHome("tmp/icon"));
        QFile::remove(inHome("tmp/set"));
        installGio();
        qputenv("PATH", QFile::encodeName(inHome("bin")) + ':' + m_path);
        qputenv("XDG_CURRENT_DESKTOP", "GNOME");
        m_root.mkpath(QStringLiteral("."));
    }

    void tearDown() override
    {
        qputenv("PATH", m_path);
        qunsetenv("XDG_CURRENT_DESKTOP");
    }

private slots:
    static void initTestCase()
    {
        void* shared = mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        QVERIFY(shared != MAP_FAILED);
        allocationsInForks = static_cast<volatile int*>(shared);
        QCOMPARE(pthread_atfork(nullptr, nullptr, noteFork), 0);
    }

    // The icon's file

    void iconIsLaidIntoTheDataDirectoryOnce()
    {
        const QString icon = iconFile(QStringLiteral("/opt/orvel"), inHome("data"));
        QVERIFY(readFile(icon).startsWith("\x89PNG"));
        const quint64 identity = identityOf(icon);
        QCOMPARE(iconFile(QStringLiteral("/opt/orvel"), inHome("data")), icon);
        QCOMPARE(identityOf(icon), identity);
        writeFile(icon, "old");
        QVERIFY(readFile(iconFile(QStringLiteral("/opt/orvel"), inHome("data"))).startsWith("\x89PNG"));
    }

    void iconThatCannotBeWrittenIsNone()
    {
        writeFile(inHome("data/file"), "");
        QCOMPARE(iconFile(QStringLiteral("/opt/orvel"), inHome("data/file")), QString());
    }

    // The startup entry

    void startupEntryComesAndGoes()
    {
        const QString path = inHome("config/autostart/Orvel Storage.desktop");
        setStartup(true, QStringLiteral("Orvel Storage"), QStringLiteral("/opt/orvel"), QStringLiteral("/i.png"));
        QCOMPARE(readFile(path), autostartEntry(QStringLiteral("Orvel Storage"), QStringLiteral("/opt/orvel"),
                                                QStringLiteral("/i.png")));
        setStartup(false, QStringLiteral("Orvel Storage"), QStringLiteral("/opt/orvel"), QString());
        QVERIFY(!QFile::exists(path));
        setStartup(false, QStringLiteral("Orvel Storage"), QStringLiteral("/opt/orvel"), QString());
        QVERIFY(!QFile::exists(path));
    }

    // The folder's icon

    void folderIconGoesToGioAndNoFileIntoTheFolder()
    {
        setFolderIcon(m_root, inHome("data/o \u010D.png"));
        EVENTUALLY(QFile::exists(inHome("tmp/set")));
        const QByteArray set = readFile(inHome("tmp/set"));
        QCOMPARE(set, "set\n" + m_root.path().toUtf8() + "\nmetadata::custom-icon\n" +
                          folderUrl(inHome("data/o \u010D.png")).toUtf8() + '\n');
        QCOMPARE(m_root.entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList());
    }

    void folderIconIsSetWithoutAnAllocationInAForkOfTheClient()
    {
        *allocationsInForks = 0;
        setFolderIcon(m_root, inHome("data/orvel.png"));
        EVENTUALLY(QFile::exists(inHome("tmp/set")));
        QCOMPARE(int(*allocationsInForks), 0);
    }

    void folderIconIsAwaitedByNobody()
    {
        // The tool ends only after a word that comes when the call is over.
        const QString program = inHome("bin/gio");
        writeFile(program, "#!/bin/sh\n[ \"$1\" = info ] || exit 0\nread word <\"$HOME/tmp/word\"\necho \"$word\" "
                           ">\"$HOME/tmp/heard\"\n");
        QVERIFY(mkfifo(QFile::encodeName(inHome("tmp/word")).constData(), 0600) == 0);
        QElapsedTimer called;
        called.start();
        setFolderIcon(m_root, inHome("data/orvel.png"));
        QVERIFY(called.elapsed() < 5000);
        writeFile(inHome("tmp/word"), "over\n");
        EVENTUALLY(readFile(inHome("tmp/heard")) == "over\n");
    }

    void folderIconThatTheUserChoseStays_data()
    {
        QTest::addColumn<QByteArray>("attributes");
        QTest::addColumn<bool>("isSet");
        QTest::newRow("none") << QByteArray("") << true;
        QTest::newRow("another attribute") << QByteArray("  metadata::emblems: [x]\n") << true;
        QTest::newRow("icon") << QByteArray("  metadata::custom-icon: file:///mine.png\n") << false;
    }
    void folderIconThatTheUserChoseStays()
    {
        QFETCH(QByteArray, attributes);
        QFETCH(bool, isSet);
        writeFile(inHome("tmp/icon"), attributes);
        QProcess shell;
        shell.start(QStringLiteral("/bin/sh"), customIconCommand(m_root.path(), inHome("data/orvel.png")));
        QVERIFY(shell.waitForFinished(deadline()));
        QCOMPARE(QFile::exists(inHome("tmp/set")), isSet);
    }

    void folderOnKdeSaysItsIconItself()
    {
        qputenv("XDG_CURRENT_DESKTOP", "X-Vendor:KDE");
        setFolderIcon(m_root, QString());
        QCOMPARE(readFile(m_root.filePath(QStringLiteral(".directory"))), kdeFolderIcon);
    }

    void folderFileThatSomebodyElseMadeStays()
    {
        qputenv("XDG_CURRENT_DESKTOP", "KDE");
        const QString path = m_root.filePath(QStringLiteral(".directory"));
        writeFile(path, "[Desktop Entry]\nIcon=mine\n");
        setFolderIcon(m_root, QString());
        QCOMPARE(readFile(path), QByteArray("[Desktop Entry]\nIcon=mine\n"));
    }

    void folderThatIsNotThereIsNotMade()
    {
        qputenv("XDG_CURRENT_DESKTOP", "KDE");
        const QDir gone(inHome("gone"));
        setFolderIcon(gone, inHome("data/orvel.png"));
        QVERIFY(!gone.exists());
    }

    void folderThatIsNotThereGetsNoIcon()
    {
        writeFile(inHome("bin/gio"), "#!/bin/sh\nprintf '%s\\n' \"$@\" >>\"$HOME/tmp/set\"\n");
        setFolderIcon(QDir(inHome("gone")), inHome("data/orvel.png"));
        setFolderIcon(m_root, inHome("data/orvel.png"));
        EVENTUALLY(readFile(inHome("tmp/set")).contains("custom-icon"));
        QVERIFY(!readFile(inHome("tmp/set")).contains(inHome("gone").toUtf8()));
    }

    // The sidebar

    void linkInAFreshHomeMakesTheBookmarksOfGtkOnly()
    {
        QVERIFY(!exists(m_root));
        QVERIFY(create(m_root));
        QVERIFY(exists(m_root));
        QCOMPARE(readFile(gtkFile()), Bookmarks::gtkEntry(m_root.path()));
        QVERIFY(!QFile::exists(kdeFile()));
    }

    void linkStandsInBothFilesAndLeavesBoth()
    {
        writeFile(gtkFile(), "file:///a\n");
        writeFile(kdeFile(), emptyPlaces);
        QVERIFY(create(m_root));
        QVERIFY(Bookmarks::fromGtk(readFile(gtkFile())).contains(m_root.path()));
        QVERIFY(Bookmarks::fromPlaces(readFile(kdeFile())).contains(m_root.path()));
        remove(m_root);
        QCOMPARE(readFile(gtkFile()), QByteArray("file:///a\n"));
        QCOMPARE(readFile(kdeFile()), emptyPlaces);
    }

    void linkThatOneFileLacksIsMadeThereOnly()
    {
        writeFile(gtkFile(), "file://" + QUrl::toPercentEncoding(m_root.path(), "/") + " My own\n");
        writeFile(kdeFile(), emptyPlaces);
        const QByteArray own = readFile(gtkFile());
        QVERIFY(!exists(m_root));
        QVERIFY(create(m_root));
        QVERIFY(exists(m_root));
        QCOMPARE(readFile(gtkFile()), own);
    }

    void unchangedFilesAreNotWritten()
    {
        writeFile(kdeFile(), emptyPlaces);
        QVERIFY(create(m_root));
        const quint64 gtk = identityOf(gtkFile());
        const quint64 kde = identityOf(kdeFile());
        {
            Links links;
            const QString link = links.linkTo(m_root);
            links.remove(link);
            QVERIFY(!links.exists(link));
            QVERIFY(links.create(link, m_root, QString()));
        }
        QCOMPARE(identityOf(gtkFile()), gtk);
        QCOMPARE(identityOf(kdeFile()), kde);
    }

    void malformedFileIsLeftAloneAndTheOtherOneUsed()
    {
        writeFile(kdeFile(), "<xbel>");
        QVERIFY(create(m_root));
        QVERIFY(exists(m_root));
        QCOMPARE(readFile(kdeFile()), QByteArray("<xbel>"));
    }

    void linkHasNowhereToGoWhenAllFilesAreMalformed()
    {
        const QByteArray zero("file:///a\0\n", 11);
        writeFile(gtkFile(), zero);
        writeFile(kdeFile(), "");
        QVERIFY(!create(m_root));
        QVERIFY(!exists(m_root));
        QCOMPARE(readFile(gtkFile()), zero);
        QVERIFY(readFile(kdeFile()).isEmpty());
    }

    void fileThatMayNotBeReadIsNotReplaced()
    {
        const auto unprivileged = dropPrivileges();
        if (!unprivileged)
            QSKIP("permissions do not bind this user");
        writeFile(gtkFile(), "file:///a\n");
        QFile::setPermissions(gtkFile(), QFile::WriteOwner);
        QVERIFY(!create(m_root));
        QFile::setPermissions(gtkFile(), QFile::ReadOwner | QFile::WriteOwner);
        QCOMPARE(readFile(gtkFile()), QByteArray("file:///a\n"));
    }

    void fullDiskLeavesTheBookmarksAsTheyAre()
    {
        const QByteArray before = "file:///a/folder/of/the/user\n";
        writeFile(gtkFile(), before);
        {
            const FullDisk full;
            (void)create(m_root);
        }
        QCOMPARE(readFile(gtkFile()), before);
    }

    void fileBehindASymbolicLinkIsChangedThere()
    {
        const QString target = inHome("data/dotfiles/bookmarks");
        writeFile(target, "file:///a\n");
        QDir().mkpath(QFileInfo(gtkFile()).path());
        QVERIFY(QFile::link(target, gtkFile()));
        QVERIFY(create(m_root));
        QVERIFY(QFileInfo(gtkFile()).isSymLink());
        QCOMPARE(readFile(target), "file:///a\n" + Bookmarks::gtkEntry(m_root.path()));
    }

    void storedTextThatIsNoLinkOfThisDesktopRemovesNothing()
    {
        writeFile(gtkFile(), "sftp://host/x\nfile:///a\n");
        {
            Links links;
            for (const char* text : {"", "C:\\Users\\Ana\\Links\\Orvel Storage.lnk", "sftp://host/x", "/a"})
                links.remove(QLatin1String(text));
            QVERIFY(!links.create(QStringLiteral("/a"), QDir(QStringLiteral("/a")), QString()));
        }
        QCOMPARE(readFile(gtkFile()), QByteArray("sftp://host/x\nfile:///a\n"));
    }
};

QTEST_MAIN(PlacementLinuxTest)
#include "placement_linux_test.moc"
