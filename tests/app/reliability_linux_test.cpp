// What only a Unix can do to the client: signals, other users, full and cleaned directories, floods
// that wait in its pipe.

#include "tests/app/killingtest.h"
#include "tests/support/endclient.h"
#include "tests/support/fulldisk.h"

#include <QDir>
#include <QLocalSocket>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

/// A program of another user of the computer; only root can start one.
class OtherUser final : public QProcess
{
    Q_OBJECT

public:
    static constexpr uid_t id = 65534;

protected:
    void setupChildProcess() override
    {
        if (setgid(id) != 0 || setuid(id) != 0)
            _exit(1);
    }
};

class ReliabilityLinuxTest final : public KillingTest
{
    Q_OBJECT

    /// In KiB; 0 once it has ended.
    static qint64 mostMemoryOf(const QProcess& process)
    {
        const QByteArray status = readFile(QStringLiteral("/proc/%1/status").arg(process.processId()));
        const QByteArray field = "VmHWM:";
        const int at = status.indexOf(field);
        return at < 0 ? 0 : status.mid(at + field.size()).trimmed().split(' ').first().toLongLong();
    }

private slots:
    void lockThatAKilledClientLeftBesideTheSettingsHoldsNobodyUpAndGoes()
    {
        // Killed before its name was in it.
        const QDir settings(testHome() + QStringLiteral("/config/Velmora d.d."));
        const QString file = QStringLiteral("Orvel Storage.conf");
        for (const char* leftOver : {".lock", ".lock.rmlock"})
            writeFile(settings.filePath(file + QLatin1String(leftOver)), QByteArray());
        const QString foreign = file + QStringLiteral(".broken");
        writeFile(settings.filePath(foreign), "the user's");

        const auto client = start(QStringLiteral(ORVEL_CLIENT));
        QVERIFY2(QTest::qWaitFor([this] { return isConfigured(); }, deadline()), stateOf(*client).constData());
        askToEnd(*client);
        QVERIFY(ended(*client));
        QCOMPARE(settings.entryList(QDir::Files | QDir::Hidden), (QStringList{file, foreign}));
        QVERIFY(QFile::remove(settings.filePath(foreign)));
    }

    void fullDiskAtTheStartLeavesSettingsAndIconsAsTheyAre()
    {
        const auto run = [this](QByteArray& output) {
            output.clear();
            const auto client = start(QStringLiteral(ORVEL_CLIENT));
            EVENTUALLY((output += client->readAllStandardError()).contains("servercomm: Server Started!"));
            askToEnd(*client);
            QVERIFY(ended(*client));
            QCOMPARE(client->exitCode(), 0);
        };
        QByteArray output;
        run(output);
        QVERIFY(!output.contains("Unable to write"));
        const QString settings = testHome() + QStringLiteral("/config/Velmora d.d./Orvel Storage.conf");
        const QString icon = dataDirectory(QStringLiteral("orvel")) + QStringLiteral("/quota.ico");
        const QByteArray settled = readFile(settings);
        const QByteArray earlier(1000, 'i');
        QVERIFY(settled.contains("runnum=1"));
        writeFile(icon, earlier);
        {
            const FullDisk full(160); // enough for the lock beside the settings
            run(output);
        }
        QCOMPARE(readFile(settings), settled);
        QCOMPARE(readFile(icon), earlier);
        for (const QString& file : {settings, icon})
            QVERIFY2(output.contains("Unable to write " + file.toUtf8() + ' '), output.constData());
        run(output);
        QVERIFY(readFile(settings).contains("runnum=2"));
        QVERIFY(readFile(icon) != earlier);
    }

    void twoUsersOfOneComputerEachHaveTheirClientAndPipe()
    {
        const QTemporaryDir computer(QStringLiteral("/tmp/computer-XXXXXX")); // the test's own is for its user alone
        const QString home = computer.filePath(QStringLiteral("home"));
        const QString runtime = home + QStringLiteral("/runtime");
        QVERIFY(QDir().mkpath(runtime));
        for (const QString& path : {home, runtime}) {
            QCOMPARE(chmod(QFile::encodeName(path).constData(), 0700), 0);
            if (chown(QFile::encodeName(path).constData(), OtherUser::id, OtherUser::id) != 0)
                QSKIP("only root can be two users");
        }
        const QString temporary = computer.filePath(QStringLiteral("tmp"));
        const QString program = computer.filePath(QStringLiteral("orvel"));
        QVERIFY(QDir().mkpath(temporary) && QFile::copy(QStringLiteral(ORVEL_CLIENT), program));
        for (const QString& path : {computer.path(), program})
            QCOMPARE(chmod(QFile::encodeName(path).constData(), 0755), 0);
        QCOMPARE(chmod(QFile::encodeName(temporary).constData(), 01777), 0);
        const QStringList shared{QStringLiteral("TMPDIR=") + temporary};
        QStringList own = shared;
        own << QStringLiteral("XDG_RUNTIME_DIR=") + runtime;
        own << QStringLiteral("LSAN_OPTIONS=detect_leaks=0"); // the file of exceptions may be out of its reach
        for (const char* name : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"})
            own << QLatin1String(name) + QLatin1Char('=') + home;
        const auto startAsOther = [&] {
            auto process = std::make_unique<OtherUser>();
            process->setEnvironment(QProcess::systemEnvironment() + own);
            process->setWorkingDirectory(home);
            process->start(program, QStringList());
            return process;
        };
        const auto leaves = [](QProcess& client) {
            return ended(client) && client.exitCode() == 1 &&
                   client.readAllStandardError().endsWith("\nshared memory exists\n");
        };

        const auto client = start(program, {}, shared);
        QVERIFY2(QTest::qWaitFor([this] { return isConfigured(); }, deadline()), stateOf(*client).constData());
        const auto others = startAsOther();
        QByteArray output;
        EVENTUALLY((output += others->readAllStandardError()).contains("Process start error  0")); // there is no engine
        const QString pipe = QStringLiteral("/kestaextcommands");
        QCOMPARE(QFileInfo(temporary + pipe).ownerId(), 0U);
        QCOMPARE(QFileInfo(runtime + pipe).ownerId(), OtherUser::id);
        QVERIFY(leaves(*start(program, {}, shared)));
        QVERIFY(leaves(*startAsOther()));
        for (QProcess* each : {static_cast<QProcess*>(others.get()), client.get()}) {
            askToEnd(*each);
            QVERIFY(ended(*each));
            QCOMPARE(each->exitCode(), 0);
        }
    }

    void startsAndPipeBehaveAfterTheTemporaryDirectoryWasCleaned()
    {
        const auto client = start(QStringLiteral(ORVEL_CLIENT));
        EVENTUALLY(isConfigured());
        QDir temporary(QDir::tempPath());
        const QStringList names = temporary.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
        for (const QString& name : names) {
            // The test's own road to the engine, and where that is installed.
            if (name.startsWith(QLatin1String("fake-")) || m_engine->installDir().endsWith(name))
                continue;
            const QFileInfo entry(temporary.filePath(name));
            QVERIFY(entry.isDir() ? QDir(entry.filePath()).removeRecursively() : QFile::remove(entry.filePath()));
        }
        QByteArray output;
        EVENTUALLY((output += client->readAllStandardError()).contains("Pipe was removed"));
        const auto reachesPipe = [] {
            QLocalSocket shell;
            shell.connectToServer(QStringLiteral("kestaextcommands"));
            return shell.waitForConnected(deadline());
        };
        EVENTUALLY(reachesPipe());
        const auto second = start(QStringLiteral(ORVEL_CLIENT));
        QVERIFY(ended(*second));
        QCOMPARE(second->exitCode(), 1);
        QVERIFY(second->readAllStandardError().endsWith("\nshared memory exists\n"));
        // The client and its engine go on, and it ends as ever.
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"ok\",\"uid\":5}");
        EVENTUALLY((output += client->readAllStandardError()).contains("maindlg: network state  ok"));
        askToEnd(*client);
        QVERIFY(ended(*client));
        QCOMPARE(client->exitCode(), 0);

        const auto next = start(QStringLiteral(ORVEL_CLIENT));
        EVENTUALLY(m_engine->starts().size() == 2 && isConfigured());
        QVERIFY(reachesPipe());
        askToEnd(*next);
        QVERIFY(ended(*next));
    }

    void floodTakesNoMemoryAlong()
    {
        const auto client = start(QStringLiteral(ORVEL_CLIENT), {}, {QStringLiteral("QT_LOGGING_RULES=*=false")});
        QVERIFY2(QTest::qWaitFor([this] { return isConfigured(); }, deadline()), stateOf(*client).constData());
        const qint64 before = mostMemoryOf(*client);
        qint64 most = before;
        m_engine->flood("{\"what\":\"networkstate\",\"state\":\"ok\",\"uid\":5}\n", 1000000);
        m_engine->say("{\"what\":\"exit\"}");
        const auto hasEnded = [&] {
            most = qMax(most, mostMemoryOf(*client));
            return client->state() == QProcess::NotRunning;
        };
        QVERIFY(QTest::qWaitFor(hasEnded, 6 * deadline()));
        QCOMPARE(client->exitStatus(), QProcess::NormalExit);
        QCOMPARE(client->exitCode(), 1); // what the engine's last line asks for
        QVERIFY(before > 0);
#ifndef __SANITIZE_ADDRESS__ // it keeps what was freed for a while
        const QString figures = QStringLiteral("%1 KiB, then %2").arg(before).arg(most);
        QVERIFY2(most - before < 4096, qPrintable(figures));
#endif
    }

    void noSignalLeavesAnEngineBehindOrKeepsTheNextClientFromStarting_data()
    {
        QTest::addColumn<int>("signal");
        QTest::addColumn<bool>("asks");
        for (const int signal : {SIGTERM, SIGINT, SIGHUP})
            QTest::newRow(strsignal(signal)) << signal << true;
        for (const int signal : {SIGQUIT, SIGABRT, SIGALRM, SIGUSR1, SIGKILL})
            QTest::newRow(strsignal(signal)) << signal << false;
    }
    void noSignalLeavesAnEngineBehindOrKeepsTheNextClientFromStarting()
    {
        QFETCH(int, signal);
        QFETCH(bool, asks);
        const auto client = start(QStringLiteral(ORVEL_CLIENT));
        EVENTUALLY(isConfigured());
        QCOMPARE(::kill(static_cast<pid_t>(client->processId()), signal), 0);
        QVERIFY(ended(*client));
        QCOMPARE(client->exitStatus(), asks ? QProcess::NormalExit : QProcess::CrashExit);
        QVERIFY(!asks || client->exitCode() == 0);
        EVENTUALLY(!m_engine->isConnected());
        const auto next = start(QStringLiteral(ORVEL_CLIENT));
        EVENTUALLY(m_engine->starts().size() == 2 && isConfigured());
        const QStringList left = QDir(dataDirectory(QStringLiteral("orvel"))).entryList(QDir::Files | QDir::Hidden);
        QCOMPARE(left.filter(QRegularExpression(QStringLiteral("\\.[A-Za-z]{6}$"))), QStringList());
        askToEnd(*next);
        QVERIFY(ended(*next));
    }
};

QTEST_GUILESS_MAIN(ReliabilityLinuxTest)
#include "reliability_linux_test.moc"
