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
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"transferring\",\"uid\":7,\"bps\":9,\"uploads\":1,"
                      "\"downloads\":2,\"timerem\":3}");
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"ok\"}");
        EVENTUALLY_EQUAL(changed.count(), 2);
        QCOMPARE(m_server->state().netState, QStringLiteral("ok"));
        QCOMPARE(m_server->state().uid, 7ULL);
        QCOMPARE(m_server->state().bps, 9);
        QCOMPARE(m_server->state().uploads, 1);
        QCOMPARE(m_server->state().downloads, 2);
        QCOMPARE(m_server->state().timeRemaining, 3);
    }

    void membersOfTheOtherKindsAreEmptyWhenTheyAreMissing()
    {
        createServer();
        m_server->takeOutput("{\"what\":\"state\",\"pin\":[\"1\"],\"upnp\":true,\"portworks\":true,\"porttime\":3}\n"
                             "{\"what\":\"networkstate\",\"state\":\"ok\"}\n"
                             "{\"what\":\"spaceused\",\"space\":5,\"quota\":6,\"package\":\"Family\"}");
        QCOMPARE(m_server->state().portTime, 3);
        QCOMPARE(m_server->state().netState, QStringLiteral("ok"));
        QCOMPARE(m_server->state().package, QStringLiteral("Family"));
        m_server->takeOutput("{\"what\":\"state\"}\n{\"what\":\"networkstate\"}\n{\"what\":\"spaceused\"}");
        QCOMPARE(m_server->state().pin, QStringList());
        QCOMPARE(m_server->state().upnp, false);
        QCOMPARE(m_server->state().portWorks, false);
        QCOMPARE(m_server->state().portTime, 0);
        QCOMPARE(m_server->state().netState, QString());
        QCOMPARE(m_server->state().space, 0ULL);
        QCOMPARE(m_server->state().quota, 0ULL);
        QCOMPARE(m_server->state().package, QString());
    }

    void membersAreConverted_data()
    {
        QTest::addColumn<QByteArray>("kind");
        QTest::addColumn<QByteArray>("member");
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<QVariant>("stored");
        const auto row = [](const char* kind, const char* member, const char* value, const QVariant& stored) {
            QTest::newRow(qPrintable(QLatin1String(member) + u' ' + QLatin1String(value)))
                << QByteArray(kind) << QByteArray(member) << QByteArray(value) << stored;
        };
        row("state", "pin", "[\"1\",2,-3,2.5,true,null]",
            QStringLiteral("1 2 -3 2.5 true ").split(u' ')); // null is an empty text
        row("state", "pin", "\"one\"", QStringList{QStringLiteral("one")});
        row("state", "pin", "5", QStringList());
        for (const char* member : {"upnp", "portworks"}) {
            row("state", member, "true", true);
            row("state", member, "\"true\"", true);
            row("state", member, "\"yes\"", true);
            row("state", member, "\"false\"", false);
            row("state", member, "\"0\"", false);
            row("state", member, "\"\"", false);
            row("state", member, "1", true);
            row("state", member, "-1", true);
            row("state", member, "0", false);
            row("state", member, "0.5", true);
        }
        row("networkstate", "state", "5", QStringLiteral("5"));
        row("networkstate", "state", "true", QStringLiteral("true"));
        row("networkstate", "uid", "\"7\"", 7ULL);
        row("networkstate", "uid", "-1", 18446744073709551615ULL);
        row("networkstate", "uid", "2.6", 3ULL);
        row("networkstate", "uid", "true", 1ULL);
        row("networkstate", "uid", "\"no number\"", 0ULL);
        for (const char* member : {"porttime", "bps", "uploads", "downloads", "timerem"}) {
            const char* kind = qstrcmp(member, "porttime") == 0 ? "state" : "networkstate";
            row(kind, member, "\"12\"", 12);
            row(kind, member, "-5", -5);
            row(kind, member, "2.6", 3);
            row(kind, member, "true", 1);
            row(kind, member, "\"2.6\"", 0);
            row(kind, member, "4294967301", 5); // of 32 bits
        }
        for (const char* member : {"space", "quota"}) {
            row("spaceused", member, "\"10000000000\"", 10000000000ULL);
            row("spaceused", member, "10000000000.0", 10000000000ULL);
            row("spaceused", member, "-1", 18446744073709551615ULL);
        }
        row("spaceused", "package", "7", QStringLiteral("7"));
    }
    void membersAreConverted()
    {
        QFETCH(QByteArray, kind);
        QFETCH(QByteArray, member);
        QFETCH(QByteArray, value);
        QFETCH(QVariant, stored);
        createServer().takeOutput("{\"what\":\"" + kind + "\",\"" + member + "\":" + value + '}');
        const EngineState& state = m_server->state();
        const QHash<QByteArray, QVariant> all{{"pin", state.pin},
                                              {"upnp", state.upnp},
                                              {"portworks", state.portWorks},
                                              {"porttime", state.portTime},
                                              {"state", state.netState},
                                              {"uid", state.uid},
                                              {"bps", state.bps},
                                              {"uploads", state.uploads},
                                              {"downloads", state.downloads},
                                              {"timerem", state.timeRemaining},
                                              {"space", state.space},
                                              {"quota", state.quota},
                                              {"package", state.package}};
        QCOMPARE(all.value(member), stored);
    }

    void argumentsOfTheSignalsAreConverted()
    {
        createServer();
        QSignalSpy share(m_server.get(), SIGNAL(shareFolderResult(int, bool, int)));
        QSignalSpy ids(m_server.get(), SIGNAL(racunIds(QStringList)));
        QSignalSpy query(m_server.get(), SIGNAL(pathQueryResult(QString, QList<quint64>)));
        m_server->takeOutput("{\"what\":\"sharefolderresult\",\"msgid\":\"4\",\"success\":\"false\",\"msg\":2.6}\n"
                             "{\"what\":\"sharefolderresult\",\"msgid\":-4,\"success\":1,\"msg\":\"3\"}\n"
                             "{\"what\":\"loginids\",\"ids\":[2001,\"x\"]}\n"
                             "{\"what\":\"loginids\",\"ids\":\"2001\"}\n"
                             "{\"what\":\"queryresult\",\"cmd\":5,\"idpath\":[\"7\",8.6,-1,\"x\",null]}");
        QCOMPARE(share.value(0), (QVariantList{4, false, 3}));
        QCOMPARE(share.value(1), (QVariantList{-4, true, 3}));
        QCOMPARE(ids.value(0).value(0).toStringList(), (QStringList{QStringLiteral("2001"), QStringLiteral("x")}));
        QCOMPARE(ids.value(1).value(0).toStringList(), QStringList{QStringLiteral("2001")});
        QCOMPARE(query.value(0).value(0).toString(), QStringLiteral("5"));
        QCOMPARE(query.value(0).value(1).value<QList<quint64>>(),
                 (QList<quint64>{7, 9, 18446744073709551615ULL, 0, 0}));
    }

    void bytesAreTakenForLatin1()
    {
        createServer().takeOutput("{\"what\":\"networkstate\",\"state\":\"\xe9\xc4\x8d\x80\xff\"}");
        QCOMPARE(m_server->state().netState, QString::fromLatin1("\xe9\xc4\x8d\x80\xff"));
        QCOMPARE(m_server->state().netState.size(), 5);
    }

    void readIsLoggedBeforeItIsHandledAndStandardErrorBeforeStandardOutput()
    {
        runningServer();
        EVENTUALLY_EQUAL(armedSingleShots(), 0);
        QStringList before;
        connect(m_server.get(), &ServerComm::netStateChanged, this, [&] { before = log(); });
        clearLog();
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"ok\"}");
        const QString raw = QStringLiteral("servercomm: Raw stdout  ");
        const QStringList handled{raw + QStringLiteral("{\"what\":\"networkstate\",\"state\":\"ok\"}\n"),
                                  QStringLiteral("servercomm: Received from erlang  networkstate")};
        EVENTUALLY_EQUAL(log(), handled + QStringList{QStringLiteral("servercomm: ")});
        QCOMPARE(before, handled);

        clearLog();
        m_engine->writeOutput("said\n");
        EVENTUALLY_EQUAL(log(), (QStringList{raw, QStringLiteral("servercomm: said\n")}));
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

    void passwordThatTheEngineRepeatsIsInNoLine()
    {
        writeFile(createServer().configPath(), "{\"password\": \"k3pt\"}");
        runningServer().login(QStringLiteral("ana"), QStringLiteral("s3\"cr3t"));
        m_engine->writeOutput("1 s3\"cr3t k3pt 2");
        m_engine->writeError("3 s3\"cr3t k3pt 4\n{\"what\":\"5 s3\\\"cr3t 6\"}\n");
        EVENTUALLY(logContains(QStringLiteral("servercomm: 1 *** *** 2")));
        EVENTUALLY(logContains(QStringLiteral("servercomm: Raw stdout  3 *** *** 4\n{\"what\":\"5 *** 6\"}\n")));
        EVENTUALLY(logContains(QStringLiteral("servercomm: Received from erlang  5 *** 6")));
        for (const char* part : {"cr3t", "k3pt"})
            QCOMPARE(log().filter(QLatin1String(part)), QStringList());
    }

    void passwordIsMaskedInEveryFormThatTheEngineGivesIt_data()
    {
        QTest::addColumn<QString>("password");
        QTest::addColumn<QByteArray>("said");
        QTest::addColumn<QString>("line");
        const QString beyond = QString::fromUtf8("geslo\xc5\xbe");
        QTest::newRow("escaped") << beyond << QByteArray(R"(x geslo\u017e y)") << "x *** y";
        QTest::newRow("UTF-8") << beyond << QByteArray("x geslo\xc5\xbe y") << "x *** y";
        QTest::newRow("after a line feed") << "s3cret" << QByteArray(R"(failed:\ns3cret)") << R"(failed:\n***)";
        QTest::newRow("short, after a line feed") << "s3c" << QByteArray(R"(failed:\ns3c)") << R"(failed:\n***)";
        QTest::newRow("within a word") << "s3cret" << QByteArray("thes3crets") << "the***s";
    }
    void passwordIsMaskedInEveryFormThatTheEngineGivesIt()
    {
        QFETCH(QString, password);
        QFETCH(QByteArray, said);
        QFETCH(QString, line);
        runningServer().login(QStringLiteral("ana"), password);
        m_engine->writeOutput(said);
        EVENTUALLY(logContains(QStringLiteral("servercomm: ") + line));
    }

    void passwordOfAMessagesKindIsMasked()
    {
        runningServer().login(QStringLiteral("ana"), QString::fromUtf8("geslo\xc5\xbe"));
        m_engine->say("{\"what\":\"geslo\xc5\xbe\"}");
        EVENTUALLY(logContains(QStringLiteral("servercomm: Received from erlang  ***")));
    }

    void shortPasswordWithinAnotherWordIsNotMasked()
    {
        runningServer().login(QStringLiteral("ana"), QStringLiteral("at"));
        m_engine->writeOutput("at state; that, atlas \xc3\xa9"
                              "at,at");
        EVENTUALLY(logContains(QStringLiteral("servercomm: *** state; that, atlas \u00e9at,***")));
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
