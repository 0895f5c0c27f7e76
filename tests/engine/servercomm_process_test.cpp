#include "base/log.h"
#include "tests/engine/servercommtest.h"
#include "tests/support/metamethods.h"

#include <QFileInfo>
#include <QSignalSpy>
#include <QStandardPaths>

#include <csignal>

class ServerCommProcessTest final : public ServerCommTest
{
    Q_OBJECT

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
        createServer();
        QStringList steps;
        for (const QString& line : log()) {
            for (const char* step :
                 {"ServerComm created ", "Cfg path  ", "Rootdir  ", "Read config  ", "Comm initialized\n"}) {
                if (line.startsWith(QStringLiteral("servercomm: ") + QLatin1String(step)))
                    steps << QLatin1String(step);
            }
        }
        QCOMPARE(steps, (QStringList{QStringLiteral("ServerComm created "), QStringLiteral("Cfg path  "),
                                     QStringLiteral("Rootdir  "), QStringLiteral("Read config  "),
                                     QStringLiteral("Comm initialized\n")}));
        QVERIFY(logContains(QStringLiteral("servercomm: Rootdir  ") + m_engine->installDir()));
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
        QCOMPARE(start.rootDir, erlang);
        QCOMPARE(start.binDir, erlang + QStringLiteral("/erts-9.0/bin"));
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
