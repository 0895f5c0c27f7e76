#include "tests/engine/servercommtest.h"
#include "tests/support/privileges.h"
#include "json/json.h"

#include <QFileInfo>
#include <QSignalSpy>

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
        QVERIFY(logContains(QStringLiteral("servercomm: Save config  true")));
        QVERIFY(logContains(QStringLiteral("servercomm: Saving cfg to  ") + m_server->configPath()));
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
        serverWith("{\"port\": 2000").toggleServer(true);
        QVERIFY(engineReads("\njson{\"port\": 2000\n"));
    }

    void textBeforeAZeroByteCounts()
    {
        serverWith(QByteArray("{\"port\": 2000}\0garbage", 22));
        QCOMPARE(m_server->config().port, 2000);
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
#ifndef Q_OS_WIN
        QCOMPARE(open.readAll(), before); // a file written in place would show the new text here
#endif
        QVERIFY(readFile(m_server->configPath()) != before);
        QCOMPARE(QDir(m_server->stateDir()).entryList(QDir::Files | QDir::Hidden),
                 QStringList{QStringLiteral("config.json")});
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
