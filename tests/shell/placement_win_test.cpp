#include "shell/placement.h"
#include "shell/placement_win.h"
#include "shell/placementfiles.h"
#include "tests/support/shortcut_win.h"
#include "tests/support/test.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>

#include <windows.h>

#include <objbase.h>

#include <array>
#include <string>

using namespace placement;

namespace
{

const QString key = QStringLiteral("HKEY_CURRENT_USER\\Software\\Orvel Placement Test\\Shell Folders");

std::wstring native(const QString& path)
{
    return QDir::toNativeSeparators(path).toStdWString();
}

/// How often COM was begun and ended, and what the beginning returns.
struct ComCalls
{
    HRESULT result = S_OK;
    int begun = 0;
    int ended = 0;
};

ComCalls& comCalls()
{
    static ComCalls calls;
    return calls;
}

HRESULT WINAPI beginCom(void*)
{
    ++comCalls().begun;
    // The real one, once more: the shortcut needs it.
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    return comCalls().result;
}

void WINAPI endCom()
{
    ++comCalls().ended;
}

} // namespace

// The linker takes these for the system's.
extern "C" {
decltype(&CoInitialize) __imp_CoInitialize = beginCom;
decltype(&CoUninitialize) __imp_CoUninitialize = endCom;
}

class PlacementWinTest final : public Test
{
    Q_OBJECT

    WindowsShell m_shell = windowsShell();
    const QDir m_root{testHome() + QStringLiteral("/Orvel \u0161")};
    const QString m_program = QCoreApplication::applicationFilePath();

    static QString folder(const char* name)
    {
        return QDir::toNativeSeparators(testHome() + QLatin1Char('/') + QLatin1String(name));
    }

protected:
    void setUp() override
    {
        QCoreApplication::setOrganizationName(QStringLiteral("Velmora d.d."));
        QSettings().clear();
        windowsShell() = {key, false};
        QSettings folders(key, QSettings::NativeFormat);
        folders.setValue(QStringLiteral("Startup"), folder("startup"));
        folders.setValue(QStringLiteral("Desktop"), folder("desktop"));
        folders.setValue(QStringLiteral("{BFB9D5E0-C6A9-404C-B2B2-AE6DB6AF4968}"), folder("links"));
        for (const char* name : {"startup", "desktop", "links"})
            QVERIFY(QDir().mkpath(folder(name)));
        QVERIFY(m_root.mkpath(QStringLiteral(".")));
    }

    void tearDown() override
    {
        QSettings(key, QSettings::NativeFormat).clear();
        windowsShell() = m_shell;
    }

private slots:
    void foldersComeFromTheUsersRegistry()
    {
        QCOMPARE(m_shell.shellFoldersKey, QStringLiteral("HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\"
                                                         "CurrentVersion\\Explorer\\Shell Folders"));
    }

    void startupShortcutLeadsToTheProgramAndGoesAgain()
    {
        const QString path = folder("startup") + QStringLiteral("\\Orvel Storage.lnk");
        setStartup(true, QStringLiteral("Orvel Storage"), m_program, m_program);
        QCOMPARE(readShortcut(path).target, QDir::toNativeSeparators(m_program));
        // The client finds its engine from there.
        QCOMPARE(readShortcut(path).workingDirectory, QDir::toNativeSeparators(QFileInfo(m_program).path()));
        setStartup(false, QStringLiteral("Orvel Storage"), m_program, m_program);
        QVERIFY(!QFile::exists(path));
        setStartup(false, QStringLiteral("Orvel Storage"), m_program, m_program);
        QVERIFY(!QFile::exists(path));
    }

    void folderIsMadeASystemFolderWithAHiddenFileForItsIcon()
    {
        setFolderIcon(m_root, m_program);
        const QString path = m_root.path() + QStringLiteral("/desktop.ini");
        QCOMPARE(readFile(path), desktopIni(m_program));
        constexpr DWORD asked = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
        QCOMPARE(GetFileAttributesW(native(path).c_str()) & asked, asked);
        const DWORD root = GetFileAttributesW(native(m_root.path()).c_str());
        QVERIFY((root & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_SYSTEM)) != 0);
    }

    void foldersWithAnIconAreNotedForTheUninstaller()
    {
        setFolderIcon(m_root, m_program);
        setFolderIcon(m_root, m_program);
        const QDir other(testHome() + QStringLiteral("/other"));
        QVERIFY(other.mkpath(QStringLiteral(".")));
        setFolderIcon(other, m_program);
        QSettings settings;
        settings.beginGroup(QStringLiteral("iconfolders"));
        QStringList folders;
        for (const QString& folderKey : settings.childKeys())
            folders << settings.value(folderKey).toString();
        folders.sort();
        QStringList expected{QDir::toNativeSeparators(m_root.path()), QDir::toNativeSeparators(other.path())};
        expected.sort();
        QCOMPARE(folders, expected);
    }

    void folderFileIsReplacedAlsoWhenItIsHidden()
    {
        setFolderIcon(m_root, QStringLiteral("C:\\a longer path than the next one\\orvel.exe"));
        setFolderIcon(m_root, m_program);
        QCOMPARE(readFile(m_root.path() + QStringLiteral("/desktop.ini")), desktopIni(m_program));
    }

    void systemReadsTheIconOfAFolderWhateverItsProgramIsCalled_data()
    {
        QTest::addColumn<QString>("program");
        QTest::newRow("in the code page") << QStringLiteral("C:\\\u017diga\\orvel.exe");
        QTest::newRow("not in a western one") << QStringLiteral("C:\\Ma\u010dek\\orvel.exe");
        QTest::newRow("in none") << QStringLiteral("C:\\\u96f2 \u043e\\orvel.exe");
    }
    void systemReadsTheIconOfAFolderWhateverItsProgramIsCalled()
    {
        QFETCH(QString, program);
        const QString path = m_root.path() + QStringLiteral("/desktop.ini");
        writeFile(path, "[.ShellClassInfo]\nIconFile=" + program.toLocal8Bit() + "\r\nIconIndex=1\n"); // as before
        setFolderIcon(m_root, program);
        std::array<wchar_t, MAX_PATH> icon = {};
        const auto size = static_cast<DWORD>(icon.size());
        GetPrivateProfileStringW(L".ShellClassInfo", L"IconFile", L"", icon.data(), size, native(path).c_str());
        QCOMPARE(QString::fromWCharArray(icon.data()), program);
        QCOMPARE(GetPrivateProfileIntW(L".ShellClassInfo", L"IconIndex", 0, native(path).c_str()), UINT(1));
    }

    void linkGoesIntoLinksWithTheFirstIconOrOnTheDesktopOfXpWithTheSecond_data()
    {
        QTest::addColumn<bool>("isXp");
        QTest::addColumn<QString>("place");
        QTest::addColumn<int>("iconIndex");
        QTest::newRow("XP") << true << folder("desktop") << 1;
        QTest::newRow("later") << false << folder("links") << 0;
    }
    void linkGoesIntoLinksWithTheFirstIconOrOnTheDesktopOfXpWithTheSecond()
    {
        QFETCH(bool, isXp);
        QFETCH(QString, place);
        QFETCH(int, iconIndex);
        windowsShell().isXp = isXp;
        Links links;
        const QString link = links.linkTo(m_root);
        QCOMPARE(link, place + QStringLiteral("\\Orvel \u0161.lnk"));
        QVERIFY(!links.exists(link));
        QVERIFY(links.create(link, m_root, m_program));
        QVERIFY(links.exists(link));
        const Shortcut shortcut = readShortcut(link);
        QCOMPARE(shortcut.target, QDir::toNativeSeparators(m_root.path()));
        QCOMPARE(shortcut.icon, QDir::toNativeSeparators(m_program));
        QCOMPARE(shortcut.iconIndex, iconIndex);
        links.remove(link);
        QVERIFY(!QFile::exists(link));
    }

    void comIsEndedOnlyWhereItWasBegun_data()
    {
        QTest::addColumn<int>("result");
        QTest::addColumn<int>("ended");
        QTest::newRow("begun") << int(S_OK) << 1;
        QTest::newRow("there before") << int(S_FALSE) << 0;
        QTest::newRow("there in another mode") << int(RPC_E_CHANGED_MODE) << 0;
    }
    void comIsEndedOnlyWhereItWasBegun()
    {
        QFETCH(int, result);
        QFETCH(int, ended);
        comCalls() = {result};
        Links links;
        QVERIFY(links.create(links.linkTo(m_root), m_root, m_program));
        QCOMPARE(comCalls().begun, 1);
        QCOMPARE(comCalls().ended, ended);
        comCalls() = {};
    }

    void folderOfManyLettersHasItsIconAndNoLinkWhichIsLogged()
    {
        QString path = m_root.path();
        while (path.size() <= 2 * MAX_PATH)
            path += QStringLiteral("/a directory of many letters");
        const QDir root(path);
        QVERIFY(root.mkpath(QStringLiteral(".")));
        setFolderIcon(root, m_program);
        QCOMPARE(readFile(path + QStringLiteral("/desktop.ini")), desktopIni(m_program));
        const auto attributesOf = [](const QString& file) {
            return GetFileAttributesW(
                (QStringLiteral("\\\\?\\") + QDir::toNativeSeparators(file)).toStdWString().c_str());
        };
        QVERIFY((attributesOf(path + QStringLiteral("/desktop.ini")) & FILE_ATTRIBUTE_HIDDEN) != 0);
        QVERIFY((attributesOf(path) & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_SYSTEM)) != 0);
        Links links;
        const QString link = links.linkTo(root);
        QVERIFY(!links.create(link, root, m_program));
        QVERIFY(!links.exists(link));
        QCOMPARE(log().last(), QStringLiteral("Path is too long for a shortcut ") + path + u' ' + link);
    }

    void linkThatCannotBeSavedCountsAsMade()
    {
        QSettings(key, QSettings::NativeFormat)
            .setValue(QStringLiteral("{BFB9D5E0-C6A9-404C-B2B2-AE6DB6AF4968}"), folder("nowhere"));
        Links links;
        const QString link = links.linkTo(m_root);
        QVERIFY(links.create(link, m_root, m_program));
        QVERIFY(!links.exists(link));
    }

    void linkThatLeadsNowhereIsThereAllTheSame()
    {
        const QDir gone(testHome() + QStringLiteral("/gone"));
        QVERIFY(gone.mkpath(QStringLiteral(".")));
        Links links;
        const QString link = links.linkTo(gone);
        QVERIFY(!links.exists(link));
        QVERIFY(links.create(link, gone, m_program));
        QVERIFY(QDir().rmdir(gone.path()));
        QVERIFY(links.exists(link));
        links.remove(link);
        QVERIFY(!links.exists(link));
    }

    void startupShortcutIsReplaced()
    {
        const QString path = folder("startup") + QStringLiteral("\\Orvel Storage.lnk");
        const QString other = testHome() + QStringLiteral("/other/orvel.exe");
        writeFile(other, "x");
        setStartup(true, QStringLiteral("Orvel Storage"), other, other);
        QCOMPARE(readShortcut(path).target, QDir::toNativeSeparators(other));
        setStartup(true, QStringLiteral("Orvel Storage"), m_program, m_program);
        QCOMPARE(readShortcut(path).target, QDir::toNativeSeparators(m_program));
    }

    void namesOutsideTheCodePageAreKept()
    {
        const QString name = QStringLiteral("\u043e\u0431\u043b\u0430\u043a\u043e \u96f2");
        const QDir root(testHome() + u'/' + name);
        QVERIFY(root.mkpath(QStringLiteral(".")));
        setFolderIcon(root, m_program);
        QVERIFY((GetFileAttributesW(native(root.filePath(QStringLiteral("desktop.ini"))).c_str()) &
                 FILE_ATTRIBUTE_HIDDEN) != 0);
        Links links;
        const QString link = links.linkTo(root);
        QVERIFY(links.create(link, root, m_program));
        QVERIFY(links.exists(link));
        // Wine reads the path in the code page only, but the name is there.
        const QByteArray wanted(reinterpret_cast<const char*>(name.utf16()), name.size() * 2);
        QVERIFY(readFile(link).contains(wanted));

        const QString program = root.filePath(QStringLiteral("orvel.exe"));
        writeFile(program, "x");
        setStartup(true, name, program, program);
        QVERIFY(readFile(folder("startup") + u'\\' + name + QStringLiteral(".lnk")).contains(wanted));
    }

    void missingShellFoldersTakeNothing()
    {
        QSettings(key, QSettings::NativeFormat).clear();
        setStartup(true, QStringLiteral("Orvel Storage"), m_program, m_program);
        Links links;
        QVERIFY(!links.create(links.linkTo(m_root), m_root, m_program));
        QVERIFY(QDir(folder("startup")).isEmpty());
    }
};

QTEST_MAIN(PlacementWinTest)
#include "placement_win_test.moc"
