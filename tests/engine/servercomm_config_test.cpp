#include "base/deployment.h"
#include "tests/engine/servercommtest.h"
#include "tests/support/privileges.h"
#include "json/json.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QStandardPaths>

#ifdef Q_OS_WIN
#include <windows.h>

#include <aclapi.h>
#include <sddl.h>
#else
#include "tests/support/fulldisk.h"

#include <sys/fsuid.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

#ifdef Q_OS_WIN
namespace
{

/// Who may do what, as the system was told; a file system of Wine's keeps only a part of it.
struct SetList
{
    QString path;
    QString list;
};

QVector<SetList>& setLists()
{
    static QVector<SetList> lists;
    return lists;
}

BOOL WINAPI setFileSecurity(const wchar_t* name, SECURITY_INFORMATION what, PSECURITY_DESCRIPTOR descriptor)
{
    wchar_t* text = nullptr;
    ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text,
                                                         nullptr);
    setLists().append({QDir::fromNativeSeparators(QString::fromWCharArray(name)), QString::fromWCharArray(text)});
    LocalFree(text);
    static const auto set = reinterpret_cast<decltype(&setFileSecurity)>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"advapi32.dll"), "SetFileSecurityW")));
    return set(name, what, descriptor);
}

} // namespace

// The linker takes this for the system's.
extern "C" {
decltype(&SetFileSecurityW) __imp_SetFileSecurityW = setFileSecurity;
}
#endif

class ServerCommConfigTest final : public ServerCommTest
{
    Q_OBJECT

    static QVariantMap fileContent(const ServerComm& server)
    {
        bool ok = false;
        return Json::parse(QString::fromUtf8(readFile(server.configPath())), ok).toMap();
    }

    /// Makes a link whose configuration file holds @p content.
    ServerComm& serverWith(const QByteArray& content)
    {
        const QString path = createServer().configPath();
        writeFile(path, content);
        return createServer();
    }

    void hasAddresses(const QStringList& addresses)
    {
        m_server->setMachine([addresses] {
            Machine machine = Machine::current();
            machine.addresses = addresses;
            return machine;
        });
    }

#ifdef Q_OS_WIN
    const QString everybody = QStringLiteral(";;;WD)");

    static void giveToEverybody(const QString& path)
    {
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;OICI;FA;;;WD)", SDDL_REVISION_1, &descriptor,
                                                             nullptr);
        QVERIFY(SetFileSecurityW(QDir::toNativeSeparators(path).toStdWString().c_str(), DACL_SECURITY_INFORMATION,
                                 descriptor));
        LocalFree(descriptor);
    }

    /// The list of who may do what, in the system's text form.
    static QString accessListOf(const QString& path)
    {
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        wchar_t* list = nullptr;
        if (GetNamedSecurityInfoW(reinterpret_cast<const wchar_t*>(QDir::toNativeSeparators(path).utf16()),
                                  SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, nullptr, nullptr,
                                  &descriptor) != ERROR_SUCCESS)
            return {};
        ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION,
                                                             &list, nullptr);
        const QString text = QString::fromWCharArray(list);
        LocalFree(list);
        LocalFree(descriptor);
        return text;
    }
#else
    static constexpr auto everybodyReads = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther;

    static unsigned rights(const QString& path)
    {
        struct stat status = {};
        return stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mode & 07777U : ~0U;
    }

    /// For a process of root's that has dropped its privileges.
    static void giveToRoot(const QString& path, unsigned rights)
    {
        const QByteArray name = QFile::encodeName(path);
        const auto user = static_cast<uid_t>(setfsuid(0));
        QCOMPARE(chown(name.constData(), 0, 0), 0);
        QCOMPARE(chmod(name.constData(), rights), 0);
        setfsuid(user);
    }
#endif

private slots:
    void firstRunWritesTheDefaults()
    {
        createServer();
        const QVariantMap file = fileContent(*m_server);
        QCOMPARE(file.value(QStringLiteral("appname")).toString(), QStringLiteral("Orvel Storage"));
        QCOMPARE(file.value(QStringLiteral("organization")).toString(), QStringLiteral("Velmora d.d."));
        QCOMPARE(file.value(QStringLiteral("syncfolders")).toStringList(),
                 QStringList{QStringLiteral("Orvel Storage")});
        QCOMPARE(file.value(QStringLiteral("port")).toInt(), 1554);
        QCOMPARE(file.value(QStringLiteral("statedir")).toString(), m_server->stateDir());
        const Machine machine = Machine::current();
        QCOMPARE(file.value(QStringLiteral("synchome")).toString(), QLatin1String(deployment::serverHost));
        QCOMPARE(file.value(QStringLiteral("locips")).toStringList(), machine.addresses);
        QCOMPARE(file.value(QStringLiteral("srvip")).toString(), machine.firstAddress());
    }

    void saveIsLoggedBeforeItsPlaceAndBeforeItsPost()
    {
        runningServer();
        EVENTUALLY_EQUAL(armedSingleShots(), 0);
        hasAddresses({QStringLiteral("10.9.8.7")}); // of which the post tells
        clearLog();
        const QString gone = m_server->config().srvip;
        m_server->saveConfig();
        const QString saving = QStringLiteral("servercomm: Saving cfg to  ") + m_server->configPath();
        QCOMPARE(log(), (QStringList{QStringLiteral("servercomm: Save config  true"), saving,
                                     QStringLiteral("servercomm: postConfig  %1  not found, using  10.9.8.7").arg(gone),
                                     QStringLiteral("servercomm: Save config  false"), saving}));
    }

    void portBelow1024IsWrittenBackAsTheDefault()
    {
        serverWith("{\"port\": 80}");
        QCOMPARE(fileContent(*m_server).value(QStringLiteral("port")).toInt(), 1554);
        QVERIFY(logContains(QStringLiteral("servercomm: Save config  false")));
    }

    void unknownKeysAreNotKept()
    {
        serverWith("{\"port\": 2000, \"mine\": 1}");
        QVERIFY(!fileContent(*m_server).contains(QStringLiteral("mine")));
        QCOMPARE(fileContent(*m_server).value(QStringLiteral("port")).toInt(), 2000);
    }

    void fileIsUtf8()
    {
        serverWith("{\"homepath\": \"/home/\xc5\xbd"
                   "an\"}");
        QCOMPARE(m_server->config().homepath, QString::fromUtf8("/home/\xc5\xbd"
                                                                "an"));
        QVERIFY(readFile(m_server->configPath())
                    .contains("/home/\xc5\xbd"
                              "an"));
    }

    void corruptFileIsLeftAsItIsAndReplacedByTheNextSave_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("half an object") << QByteArray("{\"port\": 2000");
        QTest::newRow("a list") << QByteArray("[1,2]");
        QTest::newRow("noise") << QByteArray("\xff\xfe\x01noise");
        QTest::newRow("zero bytes") << QByteArray(64, '\0');
        QTest::newRow("a million deep") << QByteArray(1000000, '[');
    }
    void corruptFileIsLeftAsItIsAndReplacedByTheNextSave()
    {
        QFETCH(QByteArray, content);
        serverWith(content);
        QCOMPARE(readFile(m_server->configPath()), content);
        QCOMPARE(m_server->config().port, 1554);
        m_server->setHome(QStringLiteral("/h"), QStringLiteral("f"));
        m_server->saveConfig();
        QCOMPARE(fileContent(*m_server).value(QStringLiteral("homepath")).toString(), QStringLiteral("/h"));
    }

    void corruptFileIsPostedAsItIs()
    {
        serverWith("{\"port\": 2000");
        hasAddresses({m_server->config().srvip}); // else the new one is saved, on a computer that is offline, too
        m_server->toggleServer(true);
        QVERIFY(engineReads("\njson{\"port\": 2000\n"));
    }

    void addressThatIsGoneGivesWayToTheFirstOneAtThePostWithALineAndASave()
    {
        serverWith("{\"port\": 2000}");
        const QString gone = m_server->config().srvip;
        hasAddresses({QStringLiteral("10.9.8.7"), QStringLiteral("10.9.8.6")});
        clearLog();
        m_server->toggleServer(true);
        QVERIFY(engineReads("\"srvip\" : \"10.9.8.7\""));
        QCOMPARE(m_server->config().srvip, QStringLiteral("10.9.8.7"));
        QCOMPARE(fileContent(*m_server).value(QStringLiteral("srvip")).toString(), QStringLiteral("10.9.8.7"));
        QCOMPARE(log().count(QStringLiteral("servercomm: postConfig  %1  not found, using  10.9.8.7").arg(gone)), 1);
        QCOMPARE(log().filter(QStringLiteral("Save config")),
                 QStringList{QStringLiteral("servercomm: Save config  false")});
        // The text that is posted is the one that was saved, and the next post finds the address.
        EVENTUALLY_EQUAL(m_engine->input().count("\njson"), 2);
        const QByteArray config = "\njson" + readFile(m_server->configPath()) + '\n';
        EVENTUALLY_EQUAL(m_engine->input(), config + config);
        QCOMPARE(log().filter(QStringLiteral("postConfig")).size(), 1);
    }

    void addressThatIsStillThereIsKeptAtThePostThoughItIsNotTheFirst()
    {
        serverWith("{\"port\": 2000}");
        const QString kept = m_server->config().srvip;
        hasAddresses({QStringLiteral("10.9.8.7"), kept});
        clearLog();
        m_server->toggleServer(true);
        QVERIFY(engineReads("\"srvip\" : \"" + kept.toUtf8() + '"'));
        QCOMPARE(log().filter(QStringLiteral("onfig ")), QStringList());
    }

    void computerThatWentOfflineHasAnEmptyAddressAtThePost()
    {
        serverWith("{\"port\": 2000}");
        const QString gone = m_server->config().srvip;
        hasAddresses({});
        m_server->toggleServer(true);
        QVERIFY(engineReads("\"locips\" : [  ]"));
        QVERIFY(engineReads("\"srvip\" : \"\""));
        QVERIFY(logContains(QStringLiteral("servercomm: postConfig  %1  not found, using  ").arg(gone)));
    }

    void textBeforeAZeroByteCounts()
    {
        serverWith(QByteArray("{\"port\": 2000}\0garbage", 22));
        QCOMPARE(m_server->config().port, 2000);
    }

    void textWithAZeroCharacterIsKept()
    {
        const QString password = QStringLiteral("be") + QChar(0) + QStringLiteral("hind");
        QCOMPARE(serverWith("{\"password\": \"be\\u0000hind\", \"port\": 4444}").config().password, password);
        createServer(); // from what the first one wrote
        QCOMPARE(m_server->config().password, password);
        QCOMPARE(m_server->config().port, 4444);
    }

    void saveIsPostedToTheRunningEngine()
    {
        runningServer().setHome(QStringLiteral("/new/home"), QStringLiteral("Folder"));
        m_server->saveConfig();
        QVERIFY(engineReads("\"homefolder\" : \"Folder\", \"homepath\" : \"/new/home\""));
    }

    void saveWithoutPostSendsNothing()
    {
        runningServer();
        EVENTUALLY_EQUAL(m_engine->input().count("\njson"), 2);
        m_server->setHome(QStringLiteral("/unsent"), QStringLiteral("F"));
        m_server->saveConfig(false);
        m_server->logout();
        QVERIFY(engineReads("logout"));
        QVERIFY(!m_engine->input().contains("/unsent"));
    }

    void fileIsReplacedInOneStep()
    {
        createServer();
        const QByteArray before = readFile(m_server->configPath());
        QFile open(m_server->configPath()); // keeps the old text in hand
        QVERIFY(open.open(QIODevice::ReadOnly));
        m_server->setHome(QStringLiteral("/x"), QStringLiteral("y"));
        m_server->saveConfig(false);
#ifndef Q_OS_WIN                          // where nobody replaces a file that is open
        QCOMPARE(open.readAll(), before); // a file written in place would show the new text here
#endif
        QVERIFY(readFile(m_server->configPath()) != before);
        QCOMPARE(QDir(m_server->stateDir()).entryList(QDir::Files | QDir::Hidden),
                 QStringList{QStringLiteral("config.json")});
    }

#ifdef Q_OS_WIN
    void fileThatIsBeingReadIsWrittenIntoWithALine()
    {
        createServer();
        QFile open(m_server->configPath());
        QVERIFY(open.open(QIODevice::ReadOnly));
        m_server->setHome(QStringLiteral("C:/new home"), QStringLiteral("Folder"));
        m_server->saveConfig(false);
        QCOMPARE(fileContent(*m_server).value(QStringLiteral("homepath")).toString(), QStringLiteral("C:/new home"));
        QVERIFY(open.readAll().contains("C:/new home"));
        QCOMPARE(log().filter(QStringLiteral("Unable to replace")).filter(m_server->configPath()).size(), 1);
        QCOMPARE(log().filter(QStringLiteral("Unable to write")), QStringList());
        m_server->setHome(QString(), QString()); // a shorter text leaves nothing of the longer one
        m_server->saveConfig(false);
        QVERIFY(readFile(m_server->configPath()).endsWith(" }"));
        QCOMPARE(QDir(m_server->stateDir()).entryList(QDir::Files | QDir::Hidden),
                 QStringList{QStringLiteral("config.json")});
    }

    void directoryAndFilesAreTheUsersAlone()
    {
        const QString directory = createServer().stateDir();
        const QString roots = directory + QStringLiteral("/5.json");
        writeFile(roots, "[]");
        m_server->saveConfig(false);
        const QStringList paths{directory, m_server->configPath(), roots};
        for (const QString& path : paths) {
            giveToEverybody(path);
            QVERIFY2(accessListOf(path).contains(everybody), qPrintable(accessListOf(path)));
        }
        createServer();
        const auto areTheUsers = [&] {
            for (const QString& path : paths) {
                const QString list = accessListOf(path);
                QVERIFY2(list.contains(u'(') && !list.contains(everybody), qPrintable(list)); // the user keeps his own
            }
        };
        areTheUsers();
        giveToEverybody(directory); // what is made in it from now on would be everybody's, too
        m_server->saveConfig(false);
        QVERIFY(!accessListOf(m_server->configPath()).contains(everybody));
        QVERIFY(readFile(m_server->configPath()).contains("statedir"));
        QCOMPARE(log().filter(QStringLiteral("Unable to restrict")), QStringList());
    }

    void accessIsTheUsersTheSystemsAndItsAdministratorsAndNotTakenOverFromAbove()
    {
        setLists().clear();
        const QString directory = createServer().stateDir();
        m_server->saveConfig(false);
        const QRegularExpression ofDirectory(
            QStringLiteral("^D:P[A-Z]*\\(A;OICI;FA;;;[^;()]+\\)\\(A;OICI;FA;;;SY\\)\\(A;OICI;FA;;;BA\\)$"));
        const QRegularExpression ofFile(
            QStringLiteral("^D:P[A-Z]*\\(A;;FA;;;[^;()]+\\)\\(A;;FA;;;SY\\)\\(A;;FA;;;BA\\)$"));
        bool hasDirectory = false;
        bool hasFile = false;
        for (const SetList& set : setLists()) {
            const bool isDirectory = QDir(set.path) == QDir(directory);
            hasDirectory = hasDirectory || isDirectory;
            hasFile = hasFile || !isDirectory;
            QVERIFY2(set.list.contains(isDirectory ? ofDirectory : ofFile), qPrintable(set.path + u' ' + set.list));
        }
        QVERIFY(hasDirectory);
        QVERIFY(hasFile);
    }
#else
    void directoryAndFileAreTheUsersAlone()
    {
        writeFile(m_engine->installDir() + QStringLiteral("/config.json"), "{\"port\": 4444}");
        QFile::setPermissions(m_engine->installDir() + QStringLiteral("/config.json"), everybodyReads);
        createServer();
        QCOMPARE(rights(m_server->stateDir()), 0700U);
        QCOMPARE(rights(m_server->configPath()), 0600U);
    }

    void templateThatNobodyMayWriteSeedsAFileThatCanBeWritten()
    {
        writeFile(m_engine->installDir() + QStringLiteral("/config.json"), "{\"port\": 4444}");
        QFile::setPermissions(m_engine->installDir() + QStringLiteral("/config.json"), QFile::ReadOwner);
        QCOMPARE(rights(createServer().configPath()), 0600U);
    }

    void filesOfAnEarlierVersionBecomeTheUsersAlone()
    {
        const QString path = createServer().configPath();
        const QString roots = m_server->stateDir() + QStringLiteral("/5.json");
        m_server.reset();
        writeFile(path, "no configuration, so it is not rewritten");
        writeFile(roots, "[]");
        QFile::setPermissions(path, everybodyReads);
        QFile::setPermissions(roots, everybodyReads);
        QFile::setPermissions(QFileInfo(path).path(), everybodyReads | QFile::ExeOwner | QFile::ExeOther);
        createServer();
        QCOMPARE(rights(m_server->stateDir()), 0700U);
        QCOMPARE(rights(path), 0600U);
        QCOMPARE(rights(roots), 0600U);
    }

    void fileOfAnEarlierVersionStaysTheUsersAloneWhenItIsRewritten()
    {
        createServer();
        QFile::setPermissions(m_server->configPath(), everybodyReads);
        m_server->saveConfig(false);
        QCOMPARE(rights(m_server->configPath()), 0600U);
    }

    void fileThatMayBeWrittenButNotReplacedIsWrittenIntoWithALine_data()
    {
        QTest::addColumn<unsigned>("directory");
        QTest::newRow("because it is somebody else's") << 01777U;
        QTest::newRow("because the directory takes no other") << 0755U;
    }
    void fileThatMayBeWrittenButNotReplacedIsWrittenIntoWithALine()
    {
        QFETCH(unsigned, directory);
        createServer().setHome(QString(1000, u'l'), QStringLiteral("old"));
        m_server->saveConfig(false);
        const auto withoutPrivileges = dropPrivileges();
        if (!withoutPrivileges || geteuid() != 0)
            QSKIP("only root can make such a file");
        giveToRoot(m_server->stateDir(), directory);
        giveToRoot(m_server->configPath(), 0666);
        m_server->setHome(QStringLiteral("/new home"), QStringLiteral("Folder")); // a shorter text
        m_server->saveConfig(false);
        QCOMPARE(fileContent(*m_server).value(QStringLiteral("homepath")).toString(), QStringLiteral("/new home"));
        QVERIFY(readFile(m_server->configPath()).endsWith(" }"));
        QCOMPARE(log().filter(QStringLiteral("Unable to replace")).filter(m_server->configPath()).size(), 1);
        QCOMPARE(log().filter(QStringLiteral("Unable to write")), QStringList());
        QCOMPARE(QDir(m_server->stateDir()).entryList(QDir::Files | QDir::Hidden),
                 QStringList{QStringLiteral("config.json")});
    }

    void readOnlyFileIsLeftAsItIs()
    {
        createServer();
        const QByteArray before = readFile(m_server->configPath());
        const auto withoutPrivileges = dropPrivileges();
        if (!withoutPrivileges)
            QSKIP("this user may write everywhere and cannot give that up");
        QFile::setPermissions(m_server->configPath(), QFile::ReadOwner);
        m_server->setHome(QStringLiteral("/x"), QStringLiteral("y"));
        m_server->saveConfig(false);
        QCOMPARE(readFile(m_server->configPath()), before);
        QCOMPARE(log().filter(QStringLiteral("Unable to write")).size(), 1);
    }

    void linkInPlaceOfTheFileStaysOne()
    {
        createServer();
        const QString elsewhere = testHome() + QStringLiteral("/elsewhere.json");
        QVERIFY(QFile::rename(m_server->configPath(), elsewhere));
        QVERIFY(QFile::link(elsewhere, m_server->configPath()));
        m_server->setHome(QStringLiteral("/x"), QStringLiteral("y"));
        m_server->saveConfig(false);
        QCOMPARE(QFile::symLinkTarget(m_server->configPath()), elsewhere);
        QVERIFY(readFile(elsewhere).contains("\"/x\""));
        QVERIFY(QFile::remove(elsewhere));
    }

    void fileOfAnEarlierVersionBecomesTheUsersAloneWhenItIsWrittenInto()
    {
        createServer();
        const auto withoutPrivileges = dropPrivileges();
        if (!withoutPrivileges)
            QSKIP("this user may write everywhere and cannot give that up");
        QFile::setPermissions(m_server->configPath(), everybodyReads);
        QFile::setPermissions(m_server->stateDir(), QFile::ReadOwner | QFile::ExeOwner);
        m_server->saveConfig(false);
        QFile::setPermissions(m_server->stateDir(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QCOMPARE(log().filter(QStringLiteral("Unable to replace")).size(), 1);
        QCOMPARE(rights(m_server->configPath()), 0600U);
    }

    void fullDiskLeavesTheOldFileAndALine_data()
    {
        QTest::addColumn<int>("length");
        QTest::newRow("a usual file") << 3;
        QTest::newRow("one that is larger than the buffer") << (1 << 16);
    }
    void fullDiskLeavesTheOldFileAndALine()
    {
        QFETCH(int, length);
        createServer();
        const QByteArray before = readFile(m_server->configPath());
        m_server->setHome(QString(length, u'x'), QStringLiteral("y"));
        {
            const FullDisk full;
            m_server->saveConfig(false);
        }
        QCOMPARE(readFile(m_server->configPath()), before);
        QCOMPARE(log().filter(QStringLiteral("Unable to write")).size(), 1);
        QCOMPARE(QDir(m_server->stateDir()).entryList(QDir::Files | QDir::Hidden),
                 QStringList{QStringLiteral("config.json")});
        m_server->saveConfig(false);
        QVERIFY(readFile(m_server->configPath()).contains("xxx"));
    }
#endif

    void whatAKilledWriteLeftBehindIsRemovedAtTheNextStart()
    {
        const QString dir = createServer().stateDir() + u'/';
        m_server.reset();
        writeFile(dir + QStringLiteral(".orvel-unfinished-AbCdEf"), "{\"password\" : \"s3");
        createServer();
        QCOMPARE(QDir(dir).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("config.json")});
    }

    void whatIsNotOursIsLeftAloneWhateverItIsCalled()
    {
        const QString dir = createServer().stateDir() + u'/';
        m_server.reset();
        QStringList names{QStringLiteral("config.json")};
        for (const char* name :
             {"config.json.broken", "config.json.AbCdEf", "config.json.backup", "1001.json", "1001.json.before",
              "1001.tree", "a.ico.custom", "qt_temp.qwertz", "orvel-unfinished-AbCdEf", ".orvel-unfinished-AbCdEfg",
              ".orvel-unfinished-AbC", "my.orvel-unfinished-AbCdEf", ".orvel-unfinished-"}) {
            writeFile(dir + QLatin1String(name), "the user's");
            names << QLatin1String(name);
        }
        names.sort();
        createServer();
        QStringList left = QDir(dir).entryList(QDir::Files | QDir::Hidden);
        left.sort();
        QCOMPARE(left, names);
    }

    void dataDirectoryThatVanishesGivesALineAndIsOutlived()
    {
        createServer();
        QVERIFY(QDir(m_server->stateDir()).removeRecursively());
        m_server->saveConfig(true);
        QCOMPARE(log().filter(QStringLiteral("Unable to write")).size(), 1);
        m_server->toggleServer(true);
        EVENTUALLY(m_engine->input().endsWith("}\n")); // from memory
    }

    void readOnlyDataDirectoryIsOutlived()
    {
        createServer();
        const QString path = m_server->configPath();
        writeFile(path, "{\"port\": 2000}");
        const auto withoutPrivileges = dropPrivileges();
        if (!withoutPrivileges)
            QSKIP("this user may write everywhere and cannot give that up");
        QFile::setPermissions(path, QFile::ReadOwner);
        QFile::setPermissions(QFileInfo(path).path(), QFile::ReadOwner | QFile::ExeOwner);
        createServer().saveConfig(false);
        QCOMPARE(m_server->config().port, 2000);
        QCOMPARE(readFile(path), QByteArray("{\"port\": 2000}"));
        QVERIFY(!log().filter(QStringLiteral("Unable to write")).isEmpty());
        QFile::setPermissions(QFileInfo(path).path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    void unreadableDataDirectoryIsOutlived()
    {
        createServer();
        const QString path = m_server->configPath();
        writeFile(path, "{\"port\": 2000}");
        const auto withoutPrivileges = dropPrivileges();
        if (!withoutPrivileges)
            QSKIP("this user may read everything and cannot give that up");
        QFile::setPermissions(QFileInfo(path).path(), QFile::Permissions());
        createServer().saveConfig(false);
        QCOMPARE(m_server->config().port, 1554);
        QFile::setPermissions(QFileInfo(path).path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QCOMPARE(readFile(path), QByteArray("{\"port\": 2000}"));
    }

    void configurationThatIsADirectoryIsOutlived()
    {
        const QString path = createServer().configPath();
        m_server.reset();
        QFile::remove(path);
        QVERIFY(QDir().mkpath(path));
        createServer().saveConfig(false);
        QCOMPARE(m_server->config().port, 1554);
        QVERIFY(QFileInfo(path).isDir());
    }
};

QTEST_GUILESS_MAIN(ServerCommConfigTest)
#include "servercomm_config_test.moc"
