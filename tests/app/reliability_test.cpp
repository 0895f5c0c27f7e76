// What the client promises for its files and its starts when it is killed at any moment, as a program of its own.

#include "tests/app/killingtest.h"
#include "tests/support/endclient.h"

#include <QDir>
#include <QElapsedTimer>
#include <QLocalSocket>
#include <QRandomGenerator>
#include <QThread>

#include <vector>

class ReliabilityTest final : public KillingTest
{
    Q_OBJECT

    /// How often, unless the environment asks for more.
    static int times(const char* variable, int usual)
    {
        return qMax(usual, qEnvironmentVariableIntValue(variable));
    }

    /// A random moment within @p longest microseconds.
    static void waitAMoment(QRandomGenerator& random, int longest)
    {
        QThread::usleep(random.bounded(static_cast<quint32>(longest)));
    }

private slots:
    void filesAreWholeWheneverTheClientIsKilledWhileItChangesThem()
    {
#ifdef Q_OS_WIN
        QSKIP("of what is killed while it starts, Wine can leave a console, or a file in use");
#endif
        const QString data = dataDirectory(QStringLiteral("filewriter"));
        const QString config = data + QStringLiteral("/config.json");
        const QString roots = data + QStringLiteral("/5.json");
        const QByteArray first = R"([ { "id" : 7, "name" : "gone", "path" : "/nowhere" } ])";
        m_engine->uninstall();
        QByteArrayList configs;
        QByteArrayList rootsFiles{first};
        for (const char* count : {"1", "2"}) {
            writeFile(roots, first);
            const auto writer = start(QStringLiteral(ORVEL_FILEWRITER), {QLatin1String(count)});
            QVERIFY(ended(*writer));
            QCOMPARE(writer->exitCode(), 0);
            configs << readFile(config);
            rootsFiles << readFile(roots);
        }
        QVERIFY(configs.at(0).size() > 10000 && configs.at(0) != configs.at(1));
        QVERIFY(rootsFiles.at(1).size() > 10000 && rootsFiles.at(1) != rootsFiles.at(2));
        // At its start the writer has no home yet.
        QDir(data).removeRecursively();
        QVERIFY(ended(*start(QStringLiteral(ORVEL_FILEWRITER), {QStringLiteral("-1")})));
        configs << readFile(config);
        writeFile(roots, first);

        QRandomGenerator random(QRandomGenerator::global()->generate());
        const int kills = times("ORVEL_TEST_KILLS", 50);
        for (int i = 0; i < kills; ++i) {
            const auto writer = start(QStringLiteral(ORVEL_FILEWRITER), {QStringLiteral("0")});
            QVERIFY(writer->waitForReadyRead(deadline()));
            waitAMoment(random, 20000);
            writer->kill();
            QVERIFY(ended(*writer));
            QVERIFY2(configs.contains(readFile(config)), readFile(config).left(200).constData());
            QVERIFY2(rootsFiles.contains(readFile(roots)), readFile(roots).left(200).constData());
        }
        // What the killed ones left behind goes with the next start.
        QVERIFY(ended(*start(QStringLiteral(ORVEL_FILEWRITER), {QStringLiteral("1")})));
        QCOMPARE(QDir(data).entryList(QDir::Files | QDir::Hidden),
                 (QStringList{QStringLiteral("5.json"), QStringLiteral("config.json")}));
    }

    void configurationIsWholeAndTheNextOneStartsWheneverAClientIsKilledAtItsStart()
    {
#ifdef Q_OS_WIN
        QSKIP("of what is killed while it starts, Wine can leave a console, or a file in use");
#endif
        const QString data = dataDirectory(QStringLiteral("orvel"));
        const QString config = data + QStringLiteral("/config.json");
        const QByteArray seed = "{\"port\": 4444, \"password\": \"" + QByteArray(20000, 'p') + "\"}";
        writeFile(m_engine->installDir() + QStringLiteral("/config.json"), seed);
        QElapsedTimer clock;
        clock.start();
        const auto whole = start(QStringLiteral(ORVEL_CLIENT));
        EVENTUALLY(isConfigured());
        const int longest = static_cast<int>(clock.elapsed()) * 1500; // us; half as long again as a start takes
        const QByteArray settled = readFile(config);
        QVERIFY(settled.size() > 20000 && settled != seed);
        whole->kill();
        QVERIFY(ended(*whole));

        QRandomGenerator random(QRandomGenerator::global()->generate());
        const int kills = times("ORVEL_TEST_KILLS", 20);
        int seeded = 0;
        std::unique_ptr<QProcess> last;
        QByteArray output; // what the engines say may still come from one whose client is gone
        const auto hasStarted = [&] {
            // What the one before has forked may hold its locks a moment longer.
            if (!last || last->state() == QProcess::NotRunning)
                last = start(QStringLiteral(ORVEL_CLIENT));
            output += logOf(*last);
            return output.contains("servercomm: Server Started!");
        };
        for (int i = 0; i < kills; ++i) {
            if (i % 3 == 0)
                QFile::remove(config); // a first start
            else if (i % 3 == 1)
                writeFile(config, seed); // one after an update
            const bool fresh = i % 3 == 0;
            const auto client = start(QStringLiteral(ORVEL_CLIENT));
            QVERIFY(client->waitForStarted(deadline()));
            waitAMoment(random, longest);
            client->kill();
            QVERIFY(ended(*client));
            const QByteArray content = readFile(config);
            QVERIFY2((fresh && !QFileInfo::exists(config)) || content == seed || content == settled,
                     content.left(200).constData());
            seeded += i % 3 != 2 && content == settled ? 1 : 0;
            output.clear();
            last.reset();
            QVERIFY2(QTest::qWaitFor(hasStarted, deadline()), (output.right(1000) + stateOf(*last)).constData());
            if (i + 1 < kills) {
                last->kill();
                QVERIFY(ended(*last));
            }
        }
        QVERIFY(seeded > 0);
        const QStringList left = QDir(data).entryList(QDir::Files | QDir::Hidden);
        QCOMPARE(left.filter(QStringLiteral("config.json")), QStringList{QStringLiteral("config.json")});
        QCOMPARE(left.filter(QStringLiteral("unfinished")), QStringList());
        askToEnd(*last);
        QVERIFY(ended(*last));
    }

    void fiftyStartsAtTheSameMomentGiveOneClient()
    {
        fiftyStarts(1);
    }

    void fiftyStartsAfterAKillGiveOneClient()
    {
        const auto killed = start(QStringLiteral(ORVEL_CLIENT));
        EVENTUALLY(isConfigured());
        killed->kill();
        QVERIFY(ended(*killed));
        EVENTUALLY(!m_engine->isConnected());
        fiftyStarts(2);
    }

    void clientEndsWithinThreeSecondsWhateverTheEngineDoes_data()
    {
        QTest::addColumn<QString>("habit");
#ifndef Q_OS_WIN // where Qt reads ahead, so that a request waits until all that was read is worked off
        QTest::newRow("floods") << QStringLiteral("floods");
#endif
        for (const char* habit : {"does not read", "is silent", "starts slowly", "breaks off in a line", "keeps dying",
                                  "is not there", "is about to be started"})
            QTest::newRow(habit) << QString::fromLatin1(habit);
    }
    void clientEndsWithinThreeSecondsWhateverTheEngineDoes()
    {
        QFETCH(QString, habit);
        if (habit == QLatin1String("is not there"))
            m_engine->uninstall();
        else if (habit == QLatin1String("starts slowly"))
            m_engine->startSlowly();
        const auto client = start(QStringLiteral(ORVEL_CLIENT));
        QByteArray output;
        const auto says = [&](const char* line) {
            return QTest::qWaitFor([&] { return (output += logOf(*client)).contains(line); }, deadline());
        };
        if (habit == QLatin1String("is not there")) {
            QVERIFY(says("Process start error  0"));
        } else if (habit == QLatin1String("starts slowly")) {
            EVENTUALLY(m_engine->isConnected());
        } else if (habit == QLatin1String("is about to be started")) {
            QVERIFY(says("servercomm: ServerComm created"));
        } else {
            QVERIFY2(QTest::qWaitFor([this] { return isConfigured(); }, deadline()), stateOf(*client).constData());
        }
        if (habit == QLatin1String("floods")) {
            m_engine->flood("{\"what\":\"networkstate\",\"state\":\"ok\",\"uid\":5}\n", 1000000);
            QVERIFY(says("maindlg: network state  ok"));
        } else if (habit == QLatin1String("does not read")) {
            // More than its pipe takes, so that some of it waits in the client.
            m_engine->stopReading();
            const QString path(60000, u'p');
            for (int query = 1; query <= 20; ++query) {
                QLocalSocket shell;
                shell.connectToServer(QStringLiteral("kestaextcommands"));
                QVERIFY(shell.waitForConnected(deadline()));
                const QString command = QStringLiteral("revs|") + path;
                shell.write(QByteArray(reinterpret_cast<const char*>(command.utf16()), command.size() * 2));
                QVERIFY(shell.waitForBytesWritten(deadline()));
                shell.disconnectFromServer();
                EVENTUALLY((output += logOf(*client)).count("Shell command  revs") == query);
            }
        } else if (habit == QLatin1String("breaks off in a line")) {
            m_engine->writeError("{\"what\":\"networkstate\",\"state\":\"o");
            QVERIFY(says("networkstate"));
        } else if (habit == QLatin1String("keeps dying")) {
            for (int death = 1; death <= 5; ++death) {
                EVENTUALLY(m_engine->starts().size() == death && isConfigured());
                m_engine->crash();
            }
            QVERIFY(says("Engine keeps dying, next start in 1000 ms, exit code 9"));
        }
        QElapsedTimer clock;
        clock.start();
        askToEnd(*client);
        QVERIFY(ended(*client));
        QVERIFY2(clock.elapsed() < 3000, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(client->exitCode(), 0);
        EVENTUALLY(!m_engine->isConnected());
    }

private:
    void fiftyStarts(int engineStarts)
    {
        std::vector<std::unique_ptr<QProcess>> clients;
        clients.reserve(50);
        for (int i = 0; i < 50; ++i)
            clients.push_back(start(QStringLiteral(ORVEL_CLIENT)));
        const auto running = [&] {
            int count = 0;
            for (const auto& client : clients)
                count += client->state() != QProcess::NotRunning ? 1 : 0;
            return count;
        };
        const int patience = 6 * deadline(); // fifty share the computer
        QVERIFY(QTest::qWaitFor([&] { return m_engine->starts().size() == engineStarts && isConfigured(); }, patience));
        QVERIFY(QTest::qWaitFor([&] { return running() == 1; }, patience));
        for (const auto& client : clients) {
            if (client->state() == QProcess::NotRunning) {
                QCOMPARE(client->exitCode(), 1);
                QVERIFY(logOf(*client).endsWith("shared memory exists\n"));
            }
        }
        m_engine->say("{\"what\":\"exit\"}");
        QVERIFY(QTest::qWaitFor([&] { return running() == 0; }, deadline()));
        QCOMPARE(m_engine->starts().size(), engineStarts);
    }
};

QTEST_GUILESS_MAIN(ReliabilityTest)
#include "reliability_test.moc"
