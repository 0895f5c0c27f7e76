#include "tests/engine/servercommtest.h"

class ServerCommCommandsTest final : public ServerCommTest
{
    Q_OBJECT

private slots:
    void logoutHasItsExactBytes()
    {
        runningServer().logout();
        QVERIFY(engineReads("\njson{ \"cmd\" : \"logout\" }\n"));
        QVERIFY(logContains(QStringLiteral("servercomm: Doing logout")));
    }

    void loginWithTwoArgumentsSendsAnEmptyAccountId()
    {
        runningServer().login(QStringLiteral("ana@orvel.example"), QStringLiteral("p\"w"));
        QVERIFY(engineReads("\njson{ \"cid\" : \"\", \"cmd\" : \"login\", \"password\" : \"p\\\"w\", "
                            "\"username\" : \"ana@orvel.example\" }\n"));
        QVERIFY(logContains(QStringLiteral("servercomm: login with username  ana@orvel.example")));
    }

    void loginWithAnAccountIdSendsIt()
    {
        runningServer().login(QStringLiteral("u"), QStringLiteral("p"), QStringLiteral("2002"));
        QVERIFY(engineReads("\"cid\" : \"2002\""));
    }

    void passwordIsNeverLogged()
    {
        runningServer().login(QStringLiteral("u"), QStringLiteral("s3cr3t-word"), QStringLiteral("1"));
        QVERIFY(engineReads("s3cr3t-word"));
        QVERIFY(log().filter(QStringLiteral("s3cr3t-word")).isEmpty());
    }

    void syncSwitchLogsTheSameTextForBothValues()
    {
        runningServer().setSyncEnabled(true);
        m_server->setSyncEnabled(false);
        QVERIFY(engineReads("\njson{ \"cmd\" : \"syncenabled\", \"val\" : true }\n"));
        QVERIFY(engineReads("\njson{ \"cmd\" : \"syncenabled\", \"val\" : false }\n"));
        QCOMPARE(log().count(QStringLiteral("servercomm: Doing sync disable")), 2);
    }

    void changedPathsKeepTheEnginesSpelling()
    {
        QStringList paths{QStringLiteral("/a"), QString::fromUtf8("/b \xc4\x8d")};
        runningServer().observedPathsChanged(paths);
        QVERIFY(engineReads("\njson{ \"cmd\" : \"pathschaned\", \"paths\" : [ \"/a\", \"/b \xc4\x8d\" ] }\n"));
        QVERIFY(logContains(QString::fromUtf8("Servercomm received paths changed  /a /b \xc4\x8d")));
    }

    void emptyListOfChangedPathsIsSentAsAnEmptyList()
    {
        QStringList none;
        runningServer().observedPathsChanged(none);
        QVERIFY(engineReads("\"paths\" : [  ]"));
    }

    void pathQueryPassesItsTagOn()
    {
        runningServer().pathQuery(QStringLiteral("/a/b"), QStringLiteral("revs"));
        QVERIFY(engineReads("\njson{ \"cmd\" : \"pathquery\", \"path\" : \"/a/b\", \"what\" : \"revs\" }\n"));
        QVERIFY(logContains(QStringLiteral("servercomm: pathquery  revs /a/b")));
    }

    void shareRequestCarriesItsNumber()
    {
        runningServer().shareFolder(QStringLiteral("bo@orvel.example"), QStringLiteral("/a"), 17);
        QVERIFY(engineReads("\njson{ \"cmd\" : \"sharefolder\", \"msgid\" : 17, \"path\" : \"/a\", "
                            "\"username\" : \"bo@orvel.example\" }\n"));
        QVERIFY(logContains(QStringLiteral("servercomm: Sharing folder  /a  with user  bo@orvel.example")));
    }

    void commandWhileSyncIsOffIsLoggedAndLost()
    {
        createServer();
        for (int write = 0; write < 3; ++write)
            expectWarning(QStringLiteral("QIODevice::write \\(\\w+\\): device not open"));
        m_server->logout();
        QVERIFY(logContains(QStringLiteral("servercomm: Doing logout")));
        runningServer();
        QVERIFY(!m_engine->input().contains("logout"));
    }

    void atMostOnePendingRequestGoesOutPerPost()
    {
        createServer();
        m_server->requestUpnpReset();
        m_server->requestPortCheck();
        m_server->toggleServer(true);
        const QByteArray check = "\njson{ \"cmd\" : \"checkport\" }\n";
        const QByteArray reset = "\njson{ \"cmd\" : \"resetupnp\" }\n";
        QVERIFY(engineReads(reset)); // the second post brings it
        const QByteArray input = m_engine->input();
        QVERIFY(input.startsWith(check + "\njson{ \"appname\""));
        QVERIFY(input.indexOf(reset) > input.indexOf("\"version\" : 12"));
        QCOMPARE(input.count(check), 1);
    }
};

QTEST_GUILESS_MAIN(ServerCommCommandsTest)
#include "servercomm_commands_test.moc"
