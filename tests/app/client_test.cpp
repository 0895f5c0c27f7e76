// Starts the built client as a process of its own, with the engine played by the test.

#include "tests/support/endclient.h"
#include "tests/support/fakeengine.h"
#include "tests/support/test.h"

#include <QLocalSocket>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>

#include <memory>

#ifndef Q_OS_WIN
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <csignal>
#endif

namespace
{

/// While one lives, a client that is started says each of its widgets' names for those who cannot see.
class WidgetLog final
{
    Q_DISABLE_COPY_MOVE(WidgetLog)
public:
    WidgetLog()
    {
        qputenv("QT_LOGGING_RULES", "qt.accessibility.cache=true");
    }
    ~WidgetLog()
    {
        qunsetenv("QT_LOGGING_RULES");
    }
};

} // namespace

class ClientTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<FakeEngine> m_engine;

protected:
    void setUp() override
    {
        m_engine = std::make_unique<FakeEngine>();
    }

    void tearDown() override
    {
        m_engine.reset();
    }

private:
    std::unique_ptr<QProcess> start(const QString& program = QStringLiteral(ORVEL_CLIENT)) const
    {
        auto client = std::make_unique<QProcess>();
        client->setWorkingDirectory(m_engine->installDir());
        client->start(program, QStringList());
        return client;
    }

    /// A client whose engine has its configuration.
    std::unique_ptr<QProcess> startReady(const QString& program = QStringLiteral(ORVEL_CLIENT))
    {
        const int before = m_engine->starts().size();
        auto client = start(program);
        const bool ready = QTest::qWaitFor(
            [&] { return m_engine->starts().size() > before && m_engine->input().endsWith("}\n"); }, deadline());
        if (!ready)
            qFatal("the client did not start its engine (state %d, code %d): %s", client->state(), client->exitCode(),
                   client->readAllStandardError().constData());
        return client;
    }

    static bool ended(QProcess& client)
    {
        return QTest::qWaitFor([&] { return client.state() == QProcess::NotRunning; }, deadline());
    }

    /// Waits until the client has said @p line.
    static bool says(QProcess& client, const QByteArray& line)
    {
        return QTest::qWaitFor([&] { return allOutput(client).contains(line); }, deadline());
    }

    static QByteArray allOutput(QProcess& client)
    {
        QByteArray output = client.property("output").toByteArray();
        output += client.readAllStandardError().replace("\r\n", "\n");
        client.setProperty("output", output);
        return output;
    }

    /// As the system writes it; 0 when there is no such process.
    static char stateOf(pid_t process)
    {
        const QByteArray status = readFile(QStringLiteral("/proc/%1/stat").arg(process));
        return status.isEmpty() ? '\0' : status.at(status.lastIndexOf(')') + 2);
    }

    /// In bytes, as the system writes it.
    static QString coreFileLimit(qint64 process)
    {
        const QByteArray limits = readFile(QStringLiteral("/proc/%1/limits").arg(process));
        const QRegularExpression limit(QStringLiteral("Max core file size +(\\w+)"));
        return limit.match(QString::fromLatin1(limits)).captured(1);
    }

    void endByExitMessage(QProcess& client)
    {
        m_engine->say("{\"what\":\"exit\"}");
        QVERIFY(ended(client));
        QCOMPARE(client.exitCode(), 1);
    }

private slots:
    void secondStartEndsAtOnceWithCodeOneAndTwoLines()
    {
        const auto first = startReady();
        const auto second = start();
        QVERIFY(ended(*second));
        QCOMPARE(second->exitStatus(), QProcess::NormalExit);
        QCOMPARE(second->exitCode(), 1);
        QCOMPARE(allOutput(*second), "Ran  " + QDir::toNativeSeparators(QStringLiteral(ORVEL_CLIENT)).toUtf8() +
                                         "\nshared memory exists\n");
        QCOMPARE(second->readAllStandardOutput(), QByteArray());
        QCOMPARE(m_engine->starts().size(), 1);
        endByExitMessage(*first);
    }

    void startAfterANormalEndSucceeds()
    {
        endByExitMessage(*startReady());
        endByExitMessage(*startReady());
    }

    void startAfterAKillSucceedsAndThePipeIsServedAgain()
    {
        const auto killed = startReady();
        killed->kill();
        QVERIFY(ended(*killed));
        const auto next = startReady();
        QVERIFY(!allOutput(*next).contains("shared memory exists"));
        QVERIFY(!allOutput(*next).contains("Unable to listen on pipe"));
        QLocalSocket shell;
        shell.connectToServer(QStringLiteral("kestaextcommands"));
        QVERIFY(shell.waitForConnected(deadline()));
        QVERIFY(says(*next, "Localserver new connection"));
        shell.disconnectFromServer();
        endByExitMessage(*next);
    }

    void killedClientLeavesNoEngine()
    {
        const auto client = startReady();
        QVERIFY(m_engine->isConnected());
        client->kill();
        QVERIFY(ended(*client));
        EVENTUALLY(!m_engine->isConnected());
    }

    void clientThatIsAskedToEndEndsWithCodeZeroAndItsEngineWithIt()
    {
        const auto client = startReady();
        askToEnd(*client);
        QVERIFY(ended(*client));
        QCOMPARE(client->exitStatus(), QProcess::NormalExit);
        QCOMPARE(client->exitCode(), 0);
        EVENTUALLY(!m_engine->isConnected());
    }

#ifdef Q_OS_WIN
    void clientEndsInTimeWithTheSessionAndItsEngineWithIt()
    {
        const auto client = startReady();
        QVERIFY(endSession(*client, true));
        QVERIFY(ended(*client));
        QCOMPARE(client->exitStatus(), QProcess::NormalExit);
        QCOMPARE(client->exitCode(), 0);
        EVENTUALLY(!m_engine->isConnected());
    }

    void clientGoesOnWhenTheSessionDoes()
    {
        const auto client = startReady();
        QVERIFY(endSession(*client, false));
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"ok\",\"uid\":5}");
        QVERIFY(says(*client, "maindlg: network state  ok\n"));
        QVERIFY(endSession(*client, true)); // what was called off comes all the same later
        QVERIFY(ended(*client));
        EVENTUALLY(!m_engine->isConnected());
    }
#endif

#ifndef Q_OS_WIN
    void clientLeavesNoCoreFileAndItsEngineMayAsTheSystemSays()
    {
        rlimit system = {};
        QCOMPARE(getrlimit(RLIMIT_CORE, &system), 0);
        if (system.rlim_max < 1)
            QSKIP("nobody may leave a core file here");
        const rlimit small = {1, system.rlim_max};
        QCOMPARE(setrlimit(RLIMIT_CORE, &small), 0);
        const auto client = startReady();
        QCOMPARE(setrlimit(RLIMIT_CORE, &system), 0);
        QCOMPARE(coreFileLimit(client->processId()), QStringLiteral("0"));
        QCOMPARE(coreFileLimit(m_engine->starts().constLast().processId), QStringLiteral("1"));
        endByExitMessage(*client);
    }
#endif

    void engineHasTheSystemsEnvironmentAndTheTwoVariablesThatItNeeds()
    {
        const auto client = startReady();
        const QString erlang = m_engine->installDir() + QStringLiteral("/erlang");
        QStringList expected = QProcessEnvironment::systemEnvironment().toStringList();
        expected << QStringLiteral("ROOTDIR=") + erlang << QStringLiteral("BINDIR=%1/erts-9.0/bin").arg(erlang);
        QStringList more;
        for (const QString& variable : m_engine->environment()) {
            const bool isWines = variable.startsWith(QLatin1String("VKD3D_")); // it sets them in programs with windows
            if (!expected.removeOne(variable) && !isWines)
                more << variable;
        }
        QCOMPARE(more.join(u' '), QString());
        QCOMPARE(expected.join(u' '), QString());
        endByExitMessage(*client);
    }

#ifndef Q_OS_WIN // where Qt does not log what it tells of its widgets
    void programSpeaksSlovenian()
    {
        const WidgetLog widgets;
        const auto client = startReady();
        QVERIFY(says(*client, "name=\"Prijava\" role=Button"));
        QVERIFY(!allOutput(*client).contains("name=\"Login\""));
        endByExitMessage(*client);
    }

    void programSpeaksTheLanguageThatItIsAskedFor_data()
    {
        QTest::addColumn<QByteArray>("language");
        QTest::addColumn<QByteArray>("button");
        QTest::newRow("English") << QByteArray("en") << QByteArray("Sign in");
        QTest::newRow("source texts") << QByteArray("C") << QByteArray("Login");
        QTest::newRow("unknown") << QByteArray("tlh") << QByteArray("Prijava");
    }
    void programSpeaksTheLanguageThatItIsAskedFor()
    {
        QFETCH(QByteArray, language);
        QFETCH(QByteArray, button);
        const WidgetLog widgets;
        qputenv("ORVEL_LANGUAGE", language);
        const auto client = startReady();
        qunsetenv("ORVEL_LANGUAGE");
        QVERIFY(says(*client, "name=\"" + button + "\" role=Button"));
        endByExitMessage(*client);
    }

    void programWithoutATranslationStartsAndSpeaksEnglish()
    {
        const WidgetLog widgets;
        const auto client = startReady(QStringLiteral(ORVEL_UNTRANSLATED_CLIENT));
        QVERIFY(says(*client, "name=\"Login\" role=Button"));
        endByExitMessage(*client);
    }

    void nextClientStartsWhileTheLastOneStillWaitsForItsEngine()
    {
        const auto last = startReady();
        const auto engine = static_cast<pid_t>(m_engine->starts().constLast().processId);
        // The end of a traced process is its tracer's first; its parent learns of it when that one has taken it.
        if (ptrace(PTRACE_SEIZE, engine, nullptr, nullptr) != 0)
            QSKIP("no process may be traced here");
        m_engine->say("{\"what\":\"exit\"}");
        EVENTUALLY(stateOf(engine) == 'Z');
        EVENTUALLY(stateOf(static_cast<pid_t>(last->processId())) == 'S');
        ::kill(static_cast<pid_t>(last->processId()), SIGSTOP); // in its last wait, which would be over after 3 s
        const auto next = start();
        const bool isStarted = says(*next, "servercomm: Comm initialized\n");
        const char stateOfLast = stateOf(static_cast<pid_t>(last->processId()));
        ::kill(static_cast<pid_t>(last->processId()), SIGCONT);
        QCOMPARE(waitpid(engine, nullptr, 0), engine);
        QVERIFY(ended(*last));
        QCOMPARE(last->exitCode(), 1);
        QCOMPARE(stateOfLast, 'T');
        QVERIFY2(isStarted, allOutput(*next).constData());
        EVENTUALLY(m_engine->starts().size() == 2 && m_engine->input().endsWith("}\n"));
        endByExitMessage(*next);
    }
#endif

    void stateMessageIsListenedToByNobody()
    {
        const auto client = startReady();
        const QByteArray message = "{\"what\":\"state\",\"pin\":[\"1\"],\"upnp\":true,\"portworks\":true}\n";
        // What else is said of the engine's start comes before.
        m_engine->say("{\"what\":\"nothing\"}");
        QVERIFY(says(*client, "servercomm: Received from erlang  nothing\nservercomm: \n"));
        m_engine->writeError(message);
        m_engine->say("{\"what\":\"last\"}");
        QVERIFY(says(*client, "servercomm: Received from erlang  last\n"));
        const QByteArray output = allOutput(*client);
        const int from = output.indexOf("servercomm: Raw stdout  " + message);
        const int to = output.indexOf("servercomm: Received from erlang  last\n");
        const QByteArray handled = output.mid(from, to - from);
        QVERIFY(from >= 0);
        for (const QByteArray& line : handled.split('\n'))
            QVERIFY2(line.isEmpty() || line.startsWith("servercomm: ") || line.startsWith('{'), handled.constData());
        endByExitMessage(*client);
    }

    void firstLineNamesTheProgramThoughItsPathGoesBeyondAscii()
    {
        const QString directory = m_engine->installDir() + QString::fromUtf8("/\xc5\xbd") + QStringLiteral("iga");
        const QString program = directory + u'/' + QFileInfo(QStringLiteral(ORVEL_CLIENT)).fileName();
        QVERIFY(QDir().mkpath(directory));
#ifdef Q_OS_WIN
        QVERIFY(QFile::copy(QStringLiteral(ORVEL_CLIENT), program));
        qputenv("QT_QPA_PLATFORM_PLUGIN_PATH",
                QFileInfo(QStringLiteral(ORVEL_CLIENT)).path().toLocal8Bit() + "/platforms");
#else
        QVERIFY(QFile::link(QStringLiteral(ORVEL_CLIENT), program));
#endif
        QProcess client;
        client.setWorkingDirectory(m_engine->installDir());
        client.start(program, QStringList());
        EVENTUALLY(m_engine->isConnected() && m_engine->input().endsWith("}\n"));
        qunsetenv("QT_QPA_PLATFORM_PLUGIN_PATH");
        const QByteArray first = allOutput(client).split('\n').value(0);
        QCOMPARE(QString::fromLocal8Bit(first), QStringLiteral("Ran  ") + QDir::toNativeSeparators(program));
        endByExitMessage(client);
    }

    void linesAfterAnExitMessageAreStillHandled()
    {
        const auto client = startReady();
        m_engine->writeError("{\"what\":\"exit\"}\n{\"what\":\"networkstate\",\"state\":\"ok\",\"uid\":5}\n");
        QVERIFY(ended(*client));
        QCOMPARE(client->exitCode(), 1);
        QVERIFY(allOutput(*client).contains("maindlg: network state  ok\n"));
    }

    void dataDirectoryIsNamedAfterTheExecutable()
    {
        endByExitMessage(*startReady());
        const QString data = testHome() + QStringLiteral("/data/orvel");
        QVERIFY(QFileInfo(data + QStringLiteral("/config.json")).isFile());
        QVERIFY(!QFileInfo::exists(data + QStringLiteral("/orvel")));
        endByExitMessage(*startReady()); // made one level deep, so only once its parent is there
        QVERIFY(QFileInfo(data + QStringLiteral("/orvel")).isDir());
    }

    void diedEngineIsStartedAgain()
    {
        const auto client = startReady();
        m_engine->crash();
        EVENTUALLY_EQUAL(m_engine->starts().size(), 2);
        QVERIFY(says(*client, "maindlg: srvdied\n"));
        endByExitMessage(*client);
    }

    void fullStandardErrorOfNonsenseIsOutlived()
    {
        const auto client = startReady();
        m_engine->flood(QByteArray("\0\xff{]\"\\u12\n{\"what\":7}\n", 21), 2000);
        // A read may cut a line of the flood's end in two, so it is said until it is heard.
        const bool heard = QTest::qWaitFor(
            [&] {
                m_engine->writeError("\n{\"what\":\"networkstate\",\"state\":\"ok\",\"uid\":5}\n");
                return allOutput(*client).contains("maindlg: network state  ok\n");
            },
            deadline());
        QVERIFY(heard);
        endByExitMessage(*client);
    }

    void dataDirectoryThatCannotBeMadeIsOutlived()
    {
        // Binds root as well, unlike a missing permission.
        writeFile(testHome() + QStringLiteral("/file"), "in the way");
        qputenv("XDG_DATA_HOME", QFile::encodeName(testHome() + QStringLiteral("/file")));
        const auto client = startReady();
        qputenv("XDG_DATA_HOME", QFile::encodeName(testHome() + QStringLiteral("/data")));
        QVERIFY(m_engine->input().contains("\"statedir\""));
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"ok\",\"uid\":5}");
        QVERIFY(says(*client, "maindlg: network state  ok\n"));
        endByExitMessage(*client);
        QCOMPARE(readFile(testHome() + QStringLiteral("/file")), QByteArray("in the way"));
    }

    void debugOutputCanBeSwitchedOff()
    {
        qputenv("QT_LOGGING_RULES", "default.debug=false");
        const auto client = startReady();
        qunsetenv("QT_LOGGING_RULES");
        endByExitMessage(*client);
        QVERIFY(!allOutput(*client).contains("servercomm:"));
    }
};

QTEST_GUILESS_MAIN(ClientTest)
#include "client_test.moc"
