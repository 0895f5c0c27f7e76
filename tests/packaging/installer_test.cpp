// Runs the installer and the uninstaller that were made of the built client and of the fake engine.

#include "base/longpath.h"
#include "tests/support/fakeengine.h"
#include "tests/support/shortcut_win.h"
#include "tests/support/test.h"

#include <QDir>
#include <QDirIterator>
#include <QProcess>
#include <QSettings>

#include <windows.h>

#include <shellapi.h>

#include <memory>
#include <string>

namespace
{

constexpr int newerIsInstalled = 3;

const QString program = QStringLiteral("Programs/Orvel Storage");
const QString entryKey =
    QStringLiteral("HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\OrvelStorage");
const QString settingsKey = QStringLiteral("HKEY_CURRENT_USER\\Software\\Velmora d.d.\\Orvel Storage");

QString data(const QString& path = QString())
{
    return testHome() + QStringLiteral("/data/") + path;
}

/// The user's folder of that name in the registry, with slashes.
QString shellFolder(const char* name)
{
    const QSettings folders(
        QStringLiteral("HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders"),
        QSettings::NativeFormat);
    return QDir::fromNativeSeparators(folders.value(QLatin1String(name)).toString());
}

QVariant entry(const char* name)
{
    return QSettings(entryKey, QSettings::NativeFormat).value(QLatin1String(name));
}

/// The exit code, or -1 when it did not end by itself.
int run(const QString& path, const QStringList& arguments)
{
    QProcess process;
    process.start(path, arguments);
    constexpr int patience = 6;
    if (!process.waitForFinished(patience * deadline()) || process.exitStatus() != QProcess::NormalExit)
        return -1;
    return process.exitCode();
}

} // namespace

class InstallerTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<FakeEngine> m_engine;

    static QString installed(const QString& path = QString())
    {
        return data(program + QLatin1Char('/') + path);
    }
    static QString startMenu()
    {
        return shellFolder("Programs") + QStringLiteral("/Orvel Storage.lnk");
    }
    static QString startup()
    {
        return shellFolder("Startup") + QStringLiteral("/Orvel Storage.lnk");
    }

    static int install(const char* installer, const QStringList& more = {})
    {
        return run(QString::fromLatin1(installer), QStringList{QStringLiteral("/S")} + more);
    }

    /// It goes on in a copy of itself, whose last deed is to remove its entry.
    static bool uninstall(const QStringList& more = {})
    {
        if (run(installed(QStringLiteral("uninstall.exe")), QStringList{QStringLiteral("/S")} + more) != 0)
            return false;
        return QTest::qWaitFor(
            [] { return entry("DisplayName").isNull() && !QFile::exists(installed(QStringLiteral("uninstall.exe"))); },
            deadline());
    }

    /// As a click in the Start menu does. True once its engine has its configuration.
    bool startFromShortcut(const QString& shortcut) const
    {
        const int before = m_engine->starts().size();
        const std::wstring path = QDir::toNativeSeparators(shortcut).toStdWString();
        QDir::setCurrent(testHome());
        if (reinterpret_cast<qintptr>(ShellExecuteW(nullptr, nullptr, path.c_str(), nullptr, nullptr, SW_SHOW)) <= 32)
            return false;
        return QTest::qWaitFor([&] { return m_engine->starts().size() > before && m_engine->input().endsWith("}\n"); },
                               deadline());
    }

    void endClient()
    {
        if (!m_engine->isConnected())
            return;
        m_engine->say("{\"what\":\"exit\"}");
        EVENTUALLY(!m_engine->isConnected());
        // Its file is free only once the process is gone.
        EVENTUALLY(QFile(installed(QStringLiteral("orvel.exe"))).open(QIODevice::ReadWrite | QIODevice::ExistingOnly));
    }

    /// Everything below @p directory, sorted.
    static QStringList content(const QString& directory)
    {
        QStringList paths;
        QDirIterator entries(directory, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                             QDirIterator::Subdirectories);
        while (entries.hasNext())
            paths << entries.next();
        paths.sort();
        return paths;
    }

protected:
    void setUp() override
    {
        m_engine = std::make_unique<FakeEngine>();
        QSettings(settingsKey, QSettings::NativeFormat).clear();
    }

    void tearDown() override
    {
        endClient();
        if (QFile::exists(installed(QStringLiteral("uninstall.exe"))))
            QVERIFY(uninstall({QStringLiteral("/PURGE")}));
        m_engine.reset();
    }

private slots:
    void silentInstallationLaysOutTheProgram()
    {
        QCOMPARE(install(ORVEL_INSTALLER), 0);
        for (const char* name :
             {"orvel.exe", "config.json", "Qt5Core.dll", "Qt5Gui.dll", "Qt5Network.dll", "Qt5Widgets.dll",
              "libgcc_s_seh-1.dll", "libstdc++-6.dll", "libwinpthread-1.dll", "platforms/qwindows.dll",
              "styles/qwindowsvistastyle.dll", "erlang/erts-9.0/bin/erl.exe", "erlang/srv/ebin/rtsp.beam",
              "licences/orvel.txt", "licences/LGPL-3.txt", "uninstall.exe"}) {
            QVERIFY2(QFileInfo(installed(QLatin1String(name))).isFile(), name);
        }
    }

    void startMenuEntryCarriesTheApplicationsId()
    {
        QCOMPARE(install(ORVEL_INSTALLER), 0);
        const Shortcut shortcut = readShortcut(startMenu());
        if (!shortcut.hasProperties)
            QSKIP("Wine's shortcuts have no properties");
        QCOMPARE(shortcut.applicationId, QStringLiteral("Velmora.OrvelStorage"));
    }

    void startMenuEntryLeadsIntoTheInstallation()
    {
        QCOMPARE(install(ORVEL_INSTALLER), 0);
        const Shortcut shortcut = readShortcut(startMenu());
        QCOMPARE(shortcut.target, QDir::toNativeSeparators(installed(QStringLiteral("orvel.exe"))));
        QCOMPARE(shortcut.workingDirectory, QDir::toNativeSeparators(data(program)));
    }

    void entryAmongTheAppsIsComplete()
    {
        QCOMPARE(install(ORVEL_INSTALLER), 0);
        const QString directory = QDir::toNativeSeparators(data(program));
        QCOMPARE(entry("DisplayName").toString(), QStringLiteral("Orvel Storage"));
        QCOMPARE(entry("DisplayVersion").toString(), QStringLiteral(ORVEL_VERSION));
        QCOMPARE(entry("DisplayIcon").toString(), directory + QStringLiteral("\\orvel.exe,0"));
        QCOMPARE(entry("Publisher").toString(), QStringLiteral("Velmora d.d."));
        QCOMPARE(entry("InstallLocation").toString(), directory);
        QCOMPARE(entry("UninstallString").toString(),
                 QLatin1Char('"') + directory + QStringLiteral("\\uninstall.exe\""));
        QCOMPARE(entry("QuietUninstallString").toString(),
                 QLatin1Char('"') + directory + QStringLiteral("\\uninstall.exe\" /S"));
        QCOMPARE(entry("NoModify").toInt(), 1);
        QCOMPARE(entry("NoRepair").toInt(), 1);
        qint64 size = 0;
        for (const QString& path : content(data(program)))
            size += QFileInfo(path).isFile() ? QFileInfo(path).size() : 0;
        QVERIFY2(qAbs(entry("EstimatedSize").toLongLong() - size / 1024) <= size / 1024 / 20,
                 qPrintable(entry("EstimatedSize").toString() + QStringLiteral(" of ") + QString::number(size / 1024)));
    }

    void clientStartsFromTheStartMenuInItsDirectory()
    {
        QCOMPARE(install(ORVEL_INSTALLER), 0);
        QVERIFY(startFromShortcut(startMenu()));
        const QString erlang = QDir(data(program)).absolutePath() + QStringLiteral("/erlang");
        QVERIFY2(m_engine->environment().contains(QStringLiteral("ROOTDIR=") + erlang),
                 qPrintable(m_engine->environment().join(u'\n')));
    }

    void clientStartsFromItsOwnStartupShortcut()
    {
        QCOMPARE(install(ORVEL_INSTALLER), 0);
        QVERIFY(startFromShortcut(startMenu()));
        EVENTUALLY(QFile::exists(startup())); // the first start makes it
        endClient();
        QVERIFY(startFromShortcut(startup()));
    }

    void upgradeEndsTheRunningClientAndLeavesTheUsersDataAndChoices()
    {
        QCOMPARE(install(ORVEL_INSTALLER), 0);
        QVERIFY(startFromShortcut(startMenu()));
        EVENTUALLY(QFile::exists(startup()));
        writeFile(data(QStringLiteral("orvel/7.json")), "roots");
        const QStringList before = content(data(QStringLiteral("orvel")));

        QCOMPARE(install(ORVEL_NEWER_INSTALLER), 0);
        EVENTUALLY(!m_engine->isConnected());
        QCOMPARE(entry("DisplayVersion").toString(), QStringLiteral(ORVEL_NEWER_VERSION));
        QCOMPARE(content(data(QStringLiteral("orvel"))), before);
        QCOMPARE(QSettings(settingsKey, QSettings::NativeFormat).value(QStringLiteral("runstartup")).toInt(), 1);
        QVERIFY(QFile::exists(startup()));
        QVERIFY(startFromShortcut(startMenu()));
    }

    void upgradeTakesAwayWhatTheEarlierVersionInstalledAndNothingElse()
    {
        QCOMPARE(install(ORVEL_INSTALLER), 0);
        writeFile(installed(QStringLiteral("erlang/mine.txt")), "the user's");
        QVERIFY(QFile::exists(installed(QStringLiteral("erlang/srv/ebin/earlier.beam"))));
        QCOMPARE(install(ORVEL_NEWER_INSTALLER), 0);
        QVERIFY(!QFile::exists(installed(QStringLiteral("erlang/srv/ebin/earlier.beam"))));
        QVERIFY(QFile::exists(installed(QStringLiteral("erlang/srv/ebin/rtsp.beam"))));
        QCOMPARE(readFile(installed(QStringLiteral("erlang/mine.txt"))), QByteArray("the user's"));
    }

    void sameVersionIsInstalledOverItself()
    {
        QCOMPARE(install(ORVEL_INSTALLER), 0);
        QVERIFY(QFile::remove(installed(QStringLiteral("Qt5Core.dll"))));
        QCOMPARE(install(ORVEL_INSTALLER), 0);
        QVERIFY(QFile::exists(installed(QStringLiteral("Qt5Core.dll"))));
    }

    void olderVersionIsRefused()
    {
        QCOMPARE(install(ORVEL_NEWER_INSTALLER), 0);
        QCOMPARE(install(ORVEL_INSTALLER), newerIsInstalled);
        QCOMPARE(entry("DisplayVersion").toString(), QStringLiteral(ORVEL_NEWER_VERSION));
        QVERIFY(!QFile::exists(installed(QStringLiteral("erlang/srv/ebin/earlier.beam"))));
    }

    void uninstallationEndsTheClientAndLeavesNothingButTheUsersData()
    {
        const QStringList menus = content(shellFolder("Programs"));
        QCOMPARE(install(ORVEL_INSTALLER), 0);
        QVERIFY(startFromShortcut(startMenu()));
        EVENTUALLY(QFile::exists(startup()));

        // A sync root that the client has placed in the shell.
        const QString root = testHome() + QStringLiteral("/Orvel Storage");
        writeFile(root + QStringLiteral("/work.txt"), "work");
        writeFile(data(QStringLiteral("orvel/0.json")),
                  "[{\"path\":\"" + testHome().toUtf8() + "\",\"name\":\"Orvel Storage\"}]");
        m_engine->say("{\"what\":\"rootschanged\"}");
        EVENTUALLY(QFile::exists(root + QStringLiteral("/desktop.ini")));
        EVENTUALLY(QSettings(settingsKey, QSettings::NativeFormat).contains(QStringLiteral("currentlink")));
        const QString link =
            QSettings(settingsKey, QSettings::NativeFormat).value(QStringLiteral("currentlink")).toString();
        QVERIFY(QFile::exists(link));

        QVERIFY(uninstall());
        QVERIFY(!m_engine->isConnected());
        EVENTUALLY(!QFile::exists(data(program)));
        QCOMPARE(content(shellFolder("Programs")), menus);
        QVERIFY(!QFile::exists(startup()));
        QVERIFY(!QFile::exists(link));
        QCOMPARE(content(root), QStringList{root + QStringLiteral("/work.txt")});
        QCOMPARE(GetFileAttributesW(QDir::toNativeSeparators(root).toStdWString().c_str()) &
                     (FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_READONLY),
                 DWORD(0));
        QVERIFY(QFile::exists(data(QStringLiteral("orvel/config.json"))));
        QVERIFY(QSettings(settingsKey, QSettings::NativeFormat).contains(QStringLiteral("runnum")));
    }

    void folderWithALongPathLooksLikeAnyOtherAfterTheUninstallation()
    {
        QCOMPARE(install(ORVEL_INSTALLER), 0);
        QString root = testHome();
        while (root.size() < 400)
            root += u'/' + QString(40, u'd');
        const QString icon = root + QStringLiteral("/desktop.ini");
        writeFile(icon, "[.ShellClassInfo]\r\nIconFile=" +
                            QDir::toNativeSeparators(installed(QStringLiteral("orvel.exe"))).toLocal8Bit() + "\r\n");
        const std::wstring folder = base::ofAnyLength(root);
        for (const std::wstring& path : {folder, base::ofAnyLength(icon)})
            QVERIFY(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_HIDDEN));
        QSettings(settingsKey, QSettings::NativeFormat)
            .setValue(QStringLiteral("iconfolders/1"), QDir::toNativeSeparators(root));
        QVERIFY(uninstall());
        QVERIFY(!QFile::exists(icon));
        QCOMPARE(GetFileAttributesW(folder.c_str()) & FILE_ATTRIBUTE_SYSTEM, DWORD(0));
    }

    void folderIconOfSomebodyElseOutlivesTheUninstallation()
    {
        QCOMPARE(install(ORVEL_INSTALLER), 0);
        const QString root = testHome() + QStringLiteral("/shared");
        writeFile(root + QStringLiteral("/desktop.ini"), "[.ShellClassInfo]\r\nIconFile=other.exe\r\n");
        QSettings(settingsKey, QSettings::NativeFormat)
            .setValue(QStringLiteral("iconfolders/1"), QDir::toNativeSeparators(root));
        QVERIFY(uninstall());
        QVERIFY(QFile::exists(root + QStringLiteral("/desktop.ini")));
    }

    void settingsAndTheEnginesDataGoOnRequestOnly()
    {
        QCOMPARE(install(ORVEL_INSTALLER), 0);
        QVERIFY(startFromShortcut(startMenu()));
        const QString root = testHome() + QStringLiteral("/Orvel Storage");
        writeFile(root + QStringLiteral("/work.txt"), "work");
        QVERIFY(uninstall({QStringLiteral("/PURGE")}));
        EVENTUALLY(!QFile::exists(data(QStringLiteral("orvel"))));
        QVERIFY(QSettings(settingsKey, QSettings::NativeFormat).allKeys().isEmpty());
        QCOMPARE(readFile(root + QStringLiteral("/work.txt")), QByteArray("work"));
    }

    void filesThatTheUserLeftInTheInstallationStay()
    {
        QCOMPARE(install(ORVEL_INSTALLER), 0);
        writeFile(installed(QStringLiteral("notes.txt")), "the user's");
        QVERIFY(uninstall());
        EVENTUALLY_EQUAL(content(data(program)), QStringList{installed(QStringLiteral("notes.txt"))});
        QVERIFY(QFile::remove(installed(QStringLiteral("notes.txt"))));
    }
};

QTEST_GUILESS_MAIN(InstallerTest)
#include "installer_test.moc"
