#include "base/log.h"
#include "tests/engine/servercommtest.h"
#include "tests/support/metamethods.h"

#include <QFileInfo>
#include <QProcessEnvironment>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTimer>

#include <csignal>

#ifndef Q_OS_WIN
#include <malloc.h>
#endif

class ServerCommProcessTest final : public ServerCommTest
{
    Q_OBJECT

    static constexpr double anHour = 3600; // as a factor of the first wait, a second

    /// What the rebuilt registry does after a death, until @p deaths of them.
    void bringBackAfterEachDeath(ServerComm& server)
    {
        connect(
            &server, &ServerComm::serverDied, &server,
            [this, &server] {
                ++m_deaths;
                server.toggleServer(true);
            },
            Qt::DirectConnection);
    }

    /// Lets the engine die @p count times, each time after it has its configuration.
    void letDie(int count)
    {
        for (int i = 0; i < count; ++i) {
            EVENTUALLY(m_engine->starts().size() == m_deaths + 1 && m_engine->input().endsWith("}\n"));
            const int before = m_deaths;
            m_engine->crash();
            EVENTUALLY_EQUAL(m_deaths, before + 1);
        }
    }

    void startDying(double waitFactor)
    {
        m_deaths = 0;
        createServer().setLaunchWaitFactor(waitFactor);
        bringBackAfterEachDeath(*m_server);
        m_server->toggleServer(true);
    }

    /// 0 where the system's allocator does not tell.
    static qint64 allocatedBytes()
    {
#if defined(Q_OS_WIN) || defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        return 0;
#else
        const auto heap = mallinfo2();
        return static_cast<qint64>(heap.uordblks) + static_cast<qint64>(heap.hblkhd);
#endif
    }

    /// Sends the engine a hundred at most.
    int megabytesUntilItIsEnded()
    {
        QStringList paths(QString(1 << 20, u'p'));
        int sent = 0;
        do {
            clearLog(); // the paths are in it
            m_server->observedPathsChanged(paths);
            ++sent;
            QCoreApplication::processEvents();
        } while (sent < 100 && !logContains(QStringLiteral("servercomm: Engine does not read, ending it")));
        return sent;
    }

    int m_deaths = 0;

    static int countOf(const QString& line)
    {
        return log().count(line);
    }

private slots:
    void signalsAndSlotsStandInTheirDeclaredOrder()
    {
        QCOMPARE(signalsOf(ServerComm::staticMetaObject),
                 (QStringList{QStringLiteral("logText(QString)"), QStringLiteral("stateChanged()"),
                              QStringLiteral("netStateChanged()"), QStringLiteral("rootsChanged()"),
                              QStringLiteral("shareFolderResult(int,bool,int)"), QStringLiteral("serverDied()"),
                              QStringLiteral("spaceUsedChanged()"),
                              QStringLiteral("pathQueryResult(QString,QList<quint64>)"),
                              QStringLiteral("racunIds(QStringList)")}));
        QCOMPARE(slotsOf(ServerComm::staticMetaObject),
                 (QStringList{QStringLiteral("observedPathsChanged(QStringList&)"), QStringLiteral("serverStarted()"),
                              QStringLiteral("serverOutput()"), QStringLiteral("configTimeout()"),
                              QStringLiteral("srvError(QProcess::ProcessError)"),
                              QStringLiteral("srvFinished(int,QProcess::ExitStatus)")}));
    }

    void constructionLogsItsStepsInOrder()
    {
        const QString config = createServer().configPath();
        QCOMPARE(config, m_server->stateDir() + QStringLiteral("/config.json"));
        const QStringList opening{QStringLiteral("servercomm: ServerComm created "),
                                  QStringLiteral("servercomm: Cfg path  ") + config,
                                  QStringLiteral("servercomm: Rootdir  ") + m_engine->installDir(),
                                  QStringLiteral("servercomm: Read config  ") + config};
        const QString saving = QStringLiteral("servercomm: Saving cfg to  ") + config;
        const QString last = QStringLiteral("servercomm: Comm initialized\n");
        QCOMPARE(log(), (opening + QStringList{QStringLiteral("servercomm: Save config  true"), saving, last}));

        // The next one finds a configuration.
        m_server.reset();
        writeFile(config, "{\"dirs\": [\"D:/a\", \"D:/b c\"]}");
        clearLog();
        createServer();
        QCOMPARE(log(), (opening + QStringList{QStringLiteral("servercomm: Shared dirs  D:/a D:/b c"),
                                               QStringLiteral("servercomm: Save config  false"), saving, last}));
    }

    void autostartedEngineIsLaunchedBetweenItsConfigurationAndTheEndOfTheConstruction()
    {
        createServer(); // leaves a configuration, after whose reading nothing is posted
        createServer(true);
        const QStringList lines = log();
        const QString launch = QStringLiteral("servercomm: Running server  true   erlang/erts-9.0/bin/erl.exe");
        const int saved = lines.lastIndexOf(QStringLiteral("servercomm: Saving cfg to  ") + m_server->configPath());
        QCOMPARE(lines.indexOf(launch), saved + 1);
        QCOMPARE(lines.count(launch), 1);
        QCOMPARE(lines.constLast(), QStringLiteral("servercomm: Comm initialized\n"));
    }

    void destructionLogsTheEndOfTheEngineThatRuns()
    {
        createServer();
        clearLog();
        m_server.reset();
        QCOMPARE(log(), QStringList());

        runningServer();
        // It has read all that it was sent: otherwise a failed write would end it, too.
        EVENTUALLY(m_engine->input().count("\njson") == 2 && m_engine->input().endsWith("}\n"));
        clearLog();
        m_server.reset();
        QCOMPARE(log(), (QStringList{QStringLiteral("servercomm: Process start error  1"),
                                     QStringLiteral("servercomm: srv finished! autostart= false  running= false")}));
    }

    void firstPollComesAfter500MsAndTheFurtherOnesAfter1000AlsoWhileSyncIsOff()
    {
        createServer();
        QCOMPARE(singleShotDelays(), QVector<int>{500});
        for (int poll = 0; poll < 2; ++poll) {
            const QSignalSpy fired(singleShots().constFirst(), SIGNAL(destroyed()));
            EVENTUALLY_EQUAL(fired.count(), 1);
            QCOMPARE(singleShotDelays(), QVector<int>{1000});
        }
        QCOMPARE(log().filter(QStringLiteral("Running server")), QStringList());
    }

    void pollTriesToStartTheEngineThatIsWanted()
    {
        m_engine->uninstall();
        createServer().toggleServer(true);
        const auto launches = [] {
            return log().filter(QStringLiteral("Running server")).size();
        };
        QCOMPARE(launches(), 1);
        for (int poll = 0; poll < 2; ++poll) {
            const QSignalSpy fired(singleShots().constFirst(), SIGNAL(destroyed()));
            EVENTUALLY_EQUAL(fired.count(), 1);
            QVERIFY(launches() >= poll + 2);
        }
    }

    void configurationIsPostedBeforeTheStartIsLogged()
    {
        createServer();
        m_server->setMachine([] {
            Machine machine = Machine::current();
            machine.addresses = QStringList{QStringLiteral("10.9.8.7")};
            return machine;
        });
        m_server->toggleServer(true);
        const QString started = QStringLiteral("servercomm: Server Started!");
        EVENTUALLY(logContains(started));
        const QString post = log().filter(QStringLiteral("not found, using  10.9.8.7")).value(0);
        QVERIFY(!post.isEmpty());
        QVERIFY(log().indexOf(post) < log().indexOf(started));
    }

    void freshHomeWithoutParentsGetsItsDataDirectory()
    {
        const QString data = QStandardPaths::writableLocation(QStandardPaths::DataLocation);
        QDir(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)).removeRecursively();
        QVERIFY(!QFileInfo::exists(QFileInfo(data).path()));
        QCOMPARE(createServer().stateDir(), data);
        QVERIFY(QFileInfo(data).isDir());
        QVERIFY(!readFile(m_server->configPath()).isEmpty());
    }

    void engineGetsItsArgumentsEnvironmentAndWorkingDirectory()
    {
        runningServer();
        const QString erlang = m_engine->installDir() + QStringLiteral("/erlang");
        const FakeEngine::Start start = m_engine->starts().value(0);
        QCOMPARE(start.arguments,
                 (QStringList{QStringLiteral("+Bd"), QStringLiteral("-noshell"), QStringLiteral("-eval"),
                              QStringLiteral("begin file:set_cwd(\"../../srv/ebin\"),rtsp:startplain(false) end")}));
        QCOMPARE(start.workingDirectory, erlang + QStringLiteral("/erts-9.0/bin"));
        QStringList environment = QProcessEnvironment::systemEnvironment().toStringList();
        environment << QStringLiteral("ROOTDIR=") + erlang << QStringLiteral("BINDIR=") + start.workingDirectory;
        environment.sort();
        QStringList given = m_engine->environment();
        given.sort();
        QCOMPARE(given, environment);
        QVERIFY(logContains(QStringLiteral("servercomm: Running server  true   erlang/erts-9.0/bin/erl.exe")));
        QVERIFY(logContains(QStringLiteral("servercomm: Server Started!")));
    }

    void switchingOnTwiceStartsOneEngineAndOnlyLogs()
    {
        runningServer().toggleServer(true);
        QCOMPARE(countOf(QStringLiteral("servercomm: Server toggle  true")), 2);
        QCOMPARE(log().filter(QStringLiteral("Running server")).size(), 1);
        QCOMPARE(m_engine->starts().size(), 1);
    }

    void switchingOffWhileOffOnlyLogs()
    {
        createServer();
        clearLog();
        m_server->toggleServer(false);
        QCOMPARE(log(), QStringList{QStringLiteral("servercomm: Server toggle  false")});
        QVERIFY(!m_server->running());
    }

    void engineKilledFromOutsideIsReportedAsDied()
    {
        runningServer();
        const QSignalSpy died(m_server.get(), SIGNAL(serverDied()));
        m_engine->crash();
        EVENTUALLY_EQUAL(died.count(), 1);
        QVERIFY(logContains(QStringLiteral("servercomm: srv finished! autostart= false  running= true")));
        QVERIFY(!m_server->running());
    }

    void engineThatLeavesByItselfIsReportedAsDied()
    {
        runningServer();
        const QSignalSpy died(m_server.get(), SIGNAL(serverDied()));
        m_engine->exitWith(0);
        EVENTUALLY_EQUAL(died.count(), 1);
    }

    void switchingOffIsNoDeath()
    {
        runningServer();
        const QSignalSpy died(m_server.get(), SIGNAL(serverDied()));
        m_server->toggleServer(false);
        QVERIFY(logContains(QStringLiteral("servercomm: Terminating erlang")));
        EVENTUALLY(logContains(QStringLiteral("servercomm: srv finished! autostart= false  running= false")));
        QCOMPARE(died.count(), 0);
    }

    void engineSwitchedOffAndOnAtOnceComesBackByTheRoadOfADeath()
    {
        runningServer();
        const QSignalSpy died(m_server.get(), SIGNAL(serverDied()));
        m_server->toggleServer(false);
        m_server->toggleServer(true); // the first one is still ending
        EVENTUALLY_EQUAL(died.count(), 1);
        m_server->toggleServer(true); // what the rebuilt registry does
        EVENTUALLY_EQUAL(m_engine->starts().size(), 2);
        EVENTUALLY(m_engine->input().endsWith("}\n"));
    }

    void autostartedEngineIsOnlyLoggedWhenItEnds()
    {
        createServer(true);
        EVENTUALLY(m_engine->isConnected());
        const QSignalSpy died(m_server.get(), SIGNAL(serverDied()));
        m_engine->exitWith(0);
        EVENTUALLY(logContains(QStringLiteral("servercomm: srv finished! autostart= true  running= true")));
        QCOMPARE(died.count(), 0);
    }

    void engineThatCannotBeStartedIsTriedAgainUntilItCan()
    {
        m_engine->uninstall();
        createServer().toggleServer(true);
        EVENTUALLY(logContains(QStringLiteral("servercomm: Process start error  0")));
        QVERIFY(m_server->running());
        m_engine->install();
        EVENTUALLY(m_engine->isConnected());
    }

    void engineThatVanishedWhileItRanIsStartedAgainBySwitchingSync()
    {
        startDying(0);
        EVENTUALLY_EQUAL(armedSingleShots(), 0);
        m_engine->uninstall();
        letDie(1);
        EVENTUALLY(logContains(QStringLiteral("servercomm: Process start error  0")));
        QCOMPARE(armedSingleShots(), 0); // the polling has stopped for good
        m_engine->install();
        m_server->toggleServer(false);
        m_server->toggleServer(true);
        EVENTUALLY(m_engine->isConnected() && m_engine->starts().size() == 2);
        EVENTUALLY(m_engine->input().endsWith("}\n"));
    }

    void engineThatStartsSlowlyGetsNoMoreThanAnyOther()
    {
        m_engine->startSlowly();
        createServer().toggleServer(true);
        EVENTUALLY(m_engine->isConnected());
        EVENTUALLY_EQUAL(armedSingleShots(), 0); // nothing is tried again
        QCOMPARE(m_engine->input(), QByteArray());
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"offline\"}");
        EVENTUALLY_EQUAL(m_server->state().netState, QStringLiteral("offline"));
        m_engine->startReading();
        // That of the start and that of the poll, as any engine gets them.
        const QByteArray config = "\njson" + readFile(m_server->configPath()) + '\n';
        EVENTUALLY_EQUAL(m_engine->input(), config + config);
        QCOMPARE(m_engine->starts().size(), 1);
    }

    void engineThatDiesInTheMiddleOfALineLeavesTheStateAsItWas()
    {
        startDying(0);
        EVENTUALLY(m_engine->isConnected());
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"ok\",\"uid\":5}");
        EVENTUALLY_EQUAL(m_server->state().netState, QStringLiteral("ok"));
        const QSignalSpy changes(m_server.get(), SIGNAL(netStateChanged()));
        m_engine->writeError("{\"what\":\"networkstate\",\"state\":\"logou");
        letDie(1);
        EVENTUALLY_EQUAL(m_engine->starts().size(), 2);
        QCOMPARE(changes.count(), 0);
        // The next one is not taken for its rest.
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"transferring\",\"uid\":5}");
        EVENTUALLY_EQUAL(m_server->state().netState, QStringLiteral("transferring"));
        QCOMPARE(changes.count(), 1);
    }

    void engineWhoseProgramIsReplacedGoesOnUntilItsEndAndIsFollowed()
    {
        startDying(0);
        EVENTUALLY(m_engine->isConnected());
        m_engine->uninstall();
        m_engine->install();
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"ok\",\"uid\":5}");
        EVENTUALLY_EQUAL(m_server->state().netState, QStringLiteral("ok"));
        QCOMPARE(m_deaths, 0);
        letDie(1);
        EVENTUALLY(m_engine->starts().size() == 2 && m_engine->input().endsWith("}\n"));
    }

    void engineThatKeepsDyingIsFollowedAtOnceFourTimesThenWaitsWithALine()
    {
        startDying(anHour);
        letDie(4);
        QCOMPARE(log().filter(QStringLiteral("Engine keeps dying")), QStringList());
        EVENTUALLY_EQUAL(m_engine->starts().size(), 5);
        m_engine->writeError("first\nlast words\n");
        EVENTUALLY(!log().filter(QStringLiteral("last words")).isEmpty());
        m_engine->exitWith(7);
        EVENTUALLY_EQUAL(m_deaths, 5);
        QVERIFY(logContains(QStringLiteral("servercomm: Engine keeps dying, next start in 3600000 ms, exit code 7 "
                                           "last output: last words")));
        QVERIFY(m_server->running());
        const int launches = log().filter(QStringLiteral("Running server")).size();
        QVERIFY(!m_server->postConfig()); // which would launch
        m_server->toggleServer(false);
        m_server->toggleServer(true);
        QCOMPARE(log().filter(QStringLiteral("Running server")).size(), launches);
        const QSignalSpy died(m_server.get(), SIGNAL(serverDied()));
        m_server.reset(); // at once
        QCOMPARE(died.count(), 0);
    }

    void waitEndsInALaunch()
    {
        startDying(0.1);
        letDie(6);
        QVERIFY(logContains(QStringLiteral("servercomm: Engine keeps dying, next start in 100 ms, exit code 9 "
                                           "last output: ")));
        EVENTUALLY_EQUAL(m_engine->starts().size(), 7);
        EVENTUALLY(m_engine->input().endsWith("}\n"));
    }

    void nothingIsLaunchedWhenTheWaitEndsWhileSyncIsOff()
    {
        startDying(0.1);
        letDie(5);
        m_server->toggleServer(false);
        const int launches = log().filter(QStringLiteral("Running server")).size();
        QTimer pastTheWait;
        pastTheWait.setSingleShot(true);
        pastTheWait.start(200);
        EVENTUALLY(!pastTheWait.isActive());
        QCOMPARE(log().filter(QStringLiteral("Running server")).size(), launches);
        m_server->toggleServer(true);
        EVENTUALLY_EQUAL(m_engine->starts().size(), 6);
    }

    void switchingOffAndOnIsNoDeathThatCounts()
    {
        startDying(anHour);
        for (int i = 1; i <= 8; ++i) {
            EVENTUALLY(m_engine->isConnected() && m_engine->starts().size() == i);
            m_server->toggleServer(false);
            m_server->toggleServer(true);
            EVENTUALLY_EQUAL(m_deaths, i);
        }
        QCOMPARE(log().filter(QStringLiteral("Engine keeps dying")), QStringList());
    }

    void lineAboutADyingEngineShowsNoPasswordAndOnlyTheBeginning()
    {
        startDying(anHour);
        m_server->login(QStringLiteral("ana"), QStringLiteral("s3cr3t"));
        letDie(4);
        EVENTUALLY_EQUAL(m_engine->starts().size(), 5);
        m_engine->writeOutput("crash in login(ana,s3cr3t)" + QByteArray(1000, 'x')); // in one read
        EVENTUALLY(!log().filter(QStringLiteral("xxx")).isEmpty());
        m_engine->crash();
        EVENTUALLY_EQUAL(m_deaths, 5);
        const QString line = log().filter(QStringLiteral("Engine keeps dying")).value(0);
        QVERIFY2(line.endsWith(QLatin1String("last output: crash in login(ana,***)") + QString(177, u'x')),
                 qPrintable(line)); // 200 bytes
    }

    void killsInARowAreEachRecovered()
    {
        const int kills = qMax(50, qEnvironmentVariableIntValue("ORVEL_TEST_KILLS"));
        startDying(0);
        qint64 before = 0;
        for (int i = 0; i < kills; ++i) {
            letDie(1);
            EVENTUALLY_EQUAL(m_engine->starts().size(), i + 2);
            clearLog();
            if (i == 10)
                before = allocatedBytes();
        }
        EVENTUALLY(m_engine->input().endsWith("}\n"));
        const qint64 more = allocatedBytes() - before;
        QVERIFY2(more < 2048LL * (32 + kills), qPrintable(QString::number(more))); // what the test keeps of each start
    }

    void engineThatStopsReadingIsEndedBeforeItTakesAllMemory()
    {
        startDying(anHour);
        EVENTUALLY_EQUAL(m_engine->input().count("\njson"), 2); // that of the start and that of the poll
        EVENTUALLY(m_engine->input().endsWith("}\n"));
        m_engine->stopReading();
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"offline\"}"); // said, it has stopped but for one read
        EVENTUALLY_EQUAL(m_server->state().netState, QStringLiteral("offline"));
        m_engine->forgetInput();
        QVERIFY(m_server->postConfig());
        EVENTUALLY(!m_engine->input().isEmpty());

        const int sent = megabytesUntilItIsEnded();
        QVERIFY2(sent > 32 && sent < 40, qPrintable(QString::number(sent)));
        EVENTUALLY_EQUAL(m_deaths, 1);
        EVENTUALLY(m_engine->starts().size() == 2 && m_engine->input().endsWith("}\n"));
    }

#ifdef Q_OS_WIN // where Qt does not tell that a write has failed
    void engineThatClosesItsInputIsEndedBeforeItTakesAllMemory()
    {
        startDying(anHour);
        EVENTUALLY(m_engine->input().endsWith("}\n"));
        m_engine->closeInput();
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"offline\"}");
        EVENTUALLY_EQUAL(m_server->state().netState, QStringLiteral("offline"));
        const int sent = megabytesUntilItIsEnded();
        QVERIFY2(sent < 40, qPrintable(QString::number(sent)));
        EVENTUALLY_EQUAL(m_deaths, 1);
        EVENTUALLY(m_engine->starts().size() == 2 && m_engine->input().endsWith("}\n"));
    }
#else
    void engineThatClosesItsInputIsReplaced()
    {
        startDying(anHour);
        EVENTUALLY(m_engine->input().endsWith("}\n"));
        m_engine->closeInput();
        QVERIFY(QTest::qWaitFor(
            [&] {
                if (m_deaths == 0)
                    m_server->postConfig();
                return m_deaths == 1;
            },
            deadline()));
        EVENTUALLY(m_engine->starts().size() == 2 && m_engine->input().endsWith("}\n"));
        QCOMPARE(log().filter(QStringLiteral("Engine does not read, ending it")).size(), 1);
    }
#endif

    void pollingStopsWhenTheConfigurationIsPosted()
    {
        runningServer();
        EVENTUALLY_EQUAL(armedSingleShots(), 0);
        // The first post follows the start; the poll makes one more of its own and is done.
        const QByteArray config = "\njson" + readFile(m_server->configPath()) + '\n';
        EVENTUALLY_EQUAL(m_engine->input(), config + config);
    }

    void missingConfigurationIsSeededFromTheInstallation()
    {
        writeFile(m_engine->installDir() + QStringLiteral("/config.json"), "{\"port\": 4444}");
        QCOMPARE(createServer().config().port, 4444);
        QCOMPARE(m_server->configPath(), m_server->stateDir() + QStringLiteral("/config.json"));
    }

    void presentConfigurationIsNeverOverwrittenByTheTemplate()
    {
        createServer();
        const QString path = m_server->configPath();
        writeFile(path, "{\"port\": 5555}");
        writeFile(m_engine->installDir() + QStringLiteral("/config.json"), "{\"port\": 4444}");
        QCOMPARE(createServer().config().port, 5555);
    }

    void temporaryDirectoryOfTheEngineIsMade()
    {
        createServer();
        QVERIFY(QFileInfo(QDir::tempPath() + QStringLiteral("/Orvel Storage")).isDir());
    }

    void destructionEndsTheEngineAndReportsNoDeath()
    {
        runningServer();
        const qint64 engine = m_engine->starts().value(0).processId;
        QSignalSpy died(m_server.get(), SIGNAL(serverDied()));
        m_server.reset();
        QCOMPARE(died.count(), 0);
#ifndef Q_OS_WIN
        QCOMPARE(::kill(static_cast<pid_t>(engine), 0), -1);
#else
        Q_UNUSED(engine)
#endif
        EVENTUALLY(!m_engine->isConnected());
    }

    void logArgumentsCostNothingWhileTheCategoryIsOff()
    {
        int evaluated = 0;
        const auto argument = [&evaluated] {
            return ++evaluated;
        };
        QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
        ORVEL_LOG << argument();
        QLoggingCategory::setFilterRules(QString());
        QCOMPARE(evaluated, 0);
        ORVEL_LOG << argument();
        QCOMPARE(evaluated, 1);
    }
};

QTEST_GUILESS_MAIN(ServerCommProcessTest)
#include "servercomm_process_test.moc"
