#include "tests/engine/servercommtest.h"

#include <QElapsedTimer>
#include <QSignalSpy>

class ServerCommEventsTest final : public ServerCommTest
{
    Q_OBJECT

    /// Waits until the link has read everything that was said so far.
    void settle()
    {
        const QSignalSpy heard(m_server.get(), SIGNAL(spaceUsedChanged()));
        m_engine->say("{\"what\":\"spaceused\",\"space\":1,\"quota\":2,\"package\":\"p\"}");
        EVENTUALLY_EQUAL(heard.count(), 1);
    }

    /// The same when the engine wrote so much that a read may have cut the last line in two.
    void settleAfterFlood()
    {
        constexpr int patience = 2000; // ms
        QSignalSpy heard(m_server.get(), SIGNAL(rootsChanged()));
        QElapsedTimer clock;
        clock.start();
        do
            m_engine->writeError("\n{\"what\":\"rootschanged\"}\n");
        while (!heard.wait(patience) && clock.elapsed() < deadline());
        QVERIFY(heard.count() > 0);
    }

private slots:
    void stateStartsEmpty()
    {
        const EngineState& state = createServer().state();
        QVERIFY(state.netState.isEmpty());
        QCOMPARE(state.uid, 0ULL);
        QCOMPARE(state.bps, 0);
        QCOMPARE(state.quota, 0ULL);
        QVERIFY(!state.portWorks);
    }

    void networkStateIsStoredAndReported()
    {
        runningServer();
        const QSignalSpy changed(m_server.get(), SIGNAL(netStateChanged()));
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"transferring\",\"uid\":18446744073709551615,"
                      "\"bps\":2048,\"uploads\":3,\"downloads\":4,\"timerem\":125}");
        EVENTUALLY_EQUAL(changed.count(), 1);
        const EngineState& state = m_server->state();
        QCOMPARE(state.netState, QStringLiteral("transferring"));
        QCOMPARE(state.uid, 18446744073709551615ULL);
        QCOMPARE(state.bps, 2048);
        QCOMPARE(state.uploads, 3);
        QCOMPARE(state.downloads, 4);
        QCOMPARE(state.timeRemaining, 125);
        QVERIFY(logContains(QStringLiteral("servercomm: Received from erlang  networkstate")));
    }

    void networkStateWithOnlyAStateKeepsTheCounters()
    {
        runningServer();
        const QSignalSpy changed(m_server.get(), SIGNAL(netStateChanged()));
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"transferring\",\"uid\":7,\"bps\":9,\"uploads\":1}");
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"ok\"}");
        EVENTUALLY_EQUAL(changed.count(), 2);
        QCOMPARE(m_server->state().netState, QStringLiteral("ok"));
        QCOMPARE(m_server->state().uid, 7ULL);
        QCOMPARE(m_server->state().bps, 9);
        QCOMPARE(m_server->state().uploads, 1);
    }

    void stateIsStoredWhole()
    {
        runningServer();
        const QSignalSpy changed(m_server.get(), SIGNAL(stateChanged()));
        m_engine->say("{\"what\":\"state\",\"pin\":[\"1\",\"2\"],\"upnp\":true,\"portworks\":true,\"porttime\":-3}");
        EVENTUALLY_EQUAL(changed.count(), 1);
        QCOMPARE(m_server->state().pin, (QStringList{QStringLiteral("1"), QStringLiteral("2")}));
        QVERIFY(m_server->state().upnp);
        QVERIFY(m_server->state().portWorks);
        QCOMPARE(m_server->state().portTime, -3);
        QVERIFY(!m_server->config().upnp);

        m_engine->say("{\"what\":\"state\"}");
        EVENTUALLY_EQUAL(changed.count(), 2);
        QVERIFY(m_server->state().pin.isEmpty());
        QVERIFY(!m_server->state().upnp);
    }

    void spaceIsStoredAndReported()
    {
        runningServer();
        const QSignalSpy changed(m_server.get(), SIGNAL(spaceUsedChanged()));
        m_engine->say("{\"what\":\"spaceused\",\"space\":5,\"quota\":10000000000,\"package\":\"Family\"}");
        EVENTUALLY_EQUAL(changed.count(), 1);
        QCOMPARE(m_server->state().space, 5ULL);
        QCOMPARE(m_server->state().quota, 10000000000ULL);
        QCOMPARE(m_server->state().package, QStringLiteral("Family"));
    }

    void answersAreHandedOn()
    {
        runningServer();
        QSignalSpy roots(m_server.get(), SIGNAL(rootsChanged()));
        QSignalSpy share(m_server.get(), SIGNAL(shareFolderResult(int, bool, int)));
        QSignalSpy ids(m_server.get(), SIGNAL(racunIds(QStringList)));
        QSignalSpy query(m_server.get(), SIGNAL(pathQueryResult(QString, QList<quint64>)));
        m_engine->say("{\"what\":\"rootschanged\"}");
        m_engine->say("{\"what\":\"sharefolderresult\",\"msgid\":4,\"success\":true,\"msg\":3}");
        m_engine->say("{\"what\":\"loginids\",\"ids\":[\"2001\",\"2002\"]}");
        m_engine->say("{\"what\":\"queryresult\",\"cmd\":\"revs\",\"idpath\":[7,18446744073709551615,42]}");
        settle();
        QCOMPARE(roots.count(), 1);
        QCOMPARE(share.value(0), (QVariantList{4, true, 3}));
        QCOMPARE(ids.value(0).value(0).toStringList(), (QStringList{QStringLiteral("2001"), QStringLiteral("2002")}));
        QCOMPARE(query.value(0).value(0).toString(), QStringLiteral("revs"));
        QCOMPARE(query.value(0).value(1).value<QList<quint64>>(), (QList<quint64>{7, 18446744073709551615ULL, 42}));
    }

    void twoMessagesInOneReadAreHandledInOrder()
    {
        runningServer();
        QStringList seen;
        connect(m_server.get(), &ServerComm::netStateChanged, this, [&] { seen << m_server->state().netState; });
        m_engine->writeError(
            "{\"what\":\"networkstate\",\"state\":\"a\"}\n{\"what\":\"networkstate\",\"state\":\"b\"}\n");
        EVENTUALLY_EQUAL(seen, (QStringList{QStringLiteral("a"), QStringLiteral("b")}));
    }

    void messageSplitAcrossTwoReadsIsLost()
    {
        runningServer();
        const QSignalSpy changed(m_server.get(), SIGNAL(netStateChanged()));
        m_engine->writeError("{\"what\":\"networkstate\",");
        EVENTUALLY(logContains(QStringLiteral("servercomm: Raw stdout  {\"what\":\"networkstate\",")));
        m_engine->writeError("\"state\":\"ok\"}\n");
        settle();
        QCOMPARE(changed.count(), 0);
    }

    void blankLinesAndCarriageReturnsDoNoHarm()
    {
        runningServer();
        const QSignalSpy changed(m_server.get(), SIGNAL(netStateChanged()));
        m_engine->writeError("\n\n{\"what\":\"networkstate\",\"state\":\"ok\"}\r\n\n");
        EVENTUALLY_EQUAL(changed.count(), 1);
        settle();
        QCOMPARE(log().filter(QStringLiteral("Received from erlang")).size(), 2);
    }

    void bytesAfterAZeroByteInTheSameReadAreDropped()
    {
        runningServer();
        const QSignalSpy changed(m_server.get(), SIGNAL(netStateChanged()));
        const char bytes[] =
            "{\"what\":\"networkstate\",\"state\":\"a\"}\n\0{\"what\":\"networkstate\",\"state\":\"b\"}\n";
        m_engine->writeError(QByteArray(bytes, sizeof bytes - 1));
        EVENTUALLY_EQUAL(changed.count(), 1);
        settle();
        QCOMPARE(m_server->state().netState, QStringLiteral("a"));
        QCOMPARE(changed.count(), 1);
    }

    void whatIsNoObjectIsSkippedWithoutALine()
    {
        runningServer();
        clearLog();
        m_engine->writeError("not json\n[1,2]\n5\n\"x\"\nnull\n");
        EVENTUALLY(!log().filter(QStringLiteral("Raw stdout")).isEmpty());
        settle();
        QCOMPARE(log().filter(QStringLiteral("Received from erlang")),
                 QStringList{QStringLiteral("servercomm: Received from erlang  spaceused")});
    }

    void unknownKindIsOnlyLogged()
    {
        runningServer();
        m_engine->say("{\"what\":\"NetworkState\",\"state\":\"x\"}");
        m_engine->say("{\"state\":\"x\"}");
        settle();
        QVERIFY(logContains(QStringLiteral("servercomm: Received from erlang  NetworkState")));
        QVERIFY(logContains(QStringLiteral("servercomm: Received from erlang  ")));
        QVERIFY(m_server->state().netState.isEmpty());
    }

    void standardOutputIsOnlyLogged()
    {
        runningServer();
        const QSignalSpy changed(m_server.get(), SIGNAL(netStateChanged()));
        m_engine->writeOutput("{\"what\":\"networkstate\",\"state\":\"ok\"}\n");
        EVENTUALLY(logContains(QStringLiteral("servercomm: {\"what\":\"networkstate\",\"state\":\"ok\"}\n")));
        QCOMPARE(changed.count(), 0);
    }

    void exitEndsTheEventLoopAfterTheRemainingLines()
    {
        runningServer();
        m_engine->writeError("{\"what\":\"exit\"}\n{\"what\":\"networkstate\",\"state\":\"last\"}\n");
        QTimer guard; // without the message, this ends the loop, with code 0
        guard.setSingleShot(true);
        connect(&guard, SIGNAL(timeout()), qApp, SLOT(quit()));
        guard.start(deadline());
        QCOMPARE(QCoreApplication::exec(), 1);
        QCOMPARE(m_server->state().netState, QStringLiteral("last"));
    }

    void membersOfTheWrongTypeReadAsTheirEmptyValue()
    {
        runningServer();
        QSignalSpy share(m_server.get(), SIGNAL(shareFolderResult(int, bool, int)));
        QSignalSpy query(m_server.get(), SIGNAL(pathQueryResult(QString, QList<quint64>)));
        QSignalSpy ids(m_server.get(), SIGNAL(racunIds(QStringList)));
        for (const char* value :
             {"{\"a\":1}", "[[],{}]", "null", "\"\\u0000\"", "-1", "1.5", "true", "1e400", "99999999999999999999"}) {
            const QByteArray wrong(value);
            m_engine->say("{\"what\":\"state\",\"pin\":" + wrong + ",\"upnp\":" + wrong + ",\"portworks\":" + wrong +
                          ",\"porttime\":" + wrong + "}");
            m_engine->say("{\"what\":\"networkstate\",\"state\":" + wrong + ",\"uid\":" + wrong + ",\"bps\":" + wrong +
                          ",\"uploads\":" + wrong + ",\"downloads\":" + wrong + ",\"timerem\":" + wrong + "}");
            m_engine->say("{\"what\":\"sharefolderresult\",\"msgid\":" + wrong + ",\"success\":" + wrong +
                          ",\"msg\":" + wrong + "}");
            m_engine->say("{\"what\":\"loginids\",\"ids\":" + wrong + "}");
            m_engine->say("{\"what\":\"queryresult\",\"cmd\":" + wrong + ",\"idpath\":" + wrong + "}");
            m_engine->say("{\"what\":" + wrong + "}");
        }
        settle();
        QCOMPARE(share.value(0), (QVariantList{0, false, 0}));
        QVERIFY(query.value(0).value(1).value<QList<quint64>>().isEmpty());
        QVERIFY(ids.value(0).value(0).toStringList().isEmpty());
    }

    void deeplyNestedMessageIsSkipped()
    {
        runningServer();
        m_engine->flood("{\"what\":", 8000);
        settleAfterFlood();
        QVERIFY(m_server->state().netState.isEmpty());
    }

    void hundredMegabytesInOneLineAreOutlived()
    {
        QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
        runningServer();
        m_engine->flood(QByteArray(1 << 20, 'x'), 100);
        settleAfterFlood();
        QLoggingCategory::setFilterRules(QString());
    }

    void floodOfMessagesIsHandledInOrder()
    {
        QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
        runningServer();
        QSignalSpy changed(m_server.get(), SIGNAL(netStateChanged()));
        constexpr int lines = 20000;
        m_engine->flood("{\"what\":\"networkstate\",\"state\":\"ok\",\"uid\":5}\n", lines);
        settleAfterFlood();
        QLoggingCategory::setFilterRules(QString());
        // Reads cut a line here and there; most arrive whole.
        QVERIFY2(changed.count() > lines * 9 / 10, qPrintable(QString::number(changed.count())));
        QCOMPARE(m_server->state().uid, 5ULL);
    }
};

QTEST_GUILESS_MAIN(ServerCommEventsTest)
#include "servercomm_events_test.moc"
