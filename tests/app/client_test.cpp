// Starts the built client as a process of its own, with the engine played by the test.

#include "tests/support/endclient.h"
#include "tests/support/fakeengine.h"
#include "tests/support/test.h"

#include <QLocalSocket>
#include <QProcess>
#include <QRegularExpression>

#include <memory>

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
    std::unique_ptr<QProcess> start() const
    {
        auto client = std::make_unique<QProcess>();
        client->setWorkingDirectory(m_engine->installDir());
        client->start(QStringLiteral(ORVEL_CLIENT), QStringList());
        return client;
    }

    /// A client whose engine has its configuration.
    std::unique_ptr<QProcess> startReady()
    {
        const int before = m_engine->starts().size();
        auto client = start();
        const bool ready = QTest::qWaitFor(
            [&] { return m_engine->starts().size() > before && m_engine->input().endsWith("}\n"); }, deadline());
        if (!ready)
            qFatal("the client did not start its engine: %s", client->readAllStandardError().constData());
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

#ifndef Q_OS_WIN
    void neitherClientNorEngineLeavesACoreFile()
    {
        const auto client = startReady();
        for (const qint64 process : {client->processId(), m_engine->starts().constLast().processId}) {
            const QByteArray limits = readFile(QStringLiteral("/proc/%1/limits").arg(process));
            QVERIFY2(QRegularExpression(QStringLiteral("Max core file size +0 "))
                         .match(QString::fromLatin1(limits))
                         .hasMatch(),
                     limits.constData());
        }
        endByExitMessage(*client);
    }
#endif

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
