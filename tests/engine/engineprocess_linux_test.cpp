#include "engine/engineprocess.h"
#include "tests/support/fakeengine.h"
#include "tests/support/test.h"

#include <poll.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>

namespace
{

void die()
{
    raise(SIGKILL);
}

/// What a client does that is killed while it starts its engine: right after the fork, before anything else.
[[noreturn]] void startEngineAndDie(const QString& program)
{
    pthread_atfork(nullptr, die, nullptr);
    makeEngineProcess()->start(program, QStringList());
    _exit(1);
}

} // namespace

class EngineProcessLinuxTest final : public Test
{
    Q_OBJECT

private slots:
    void forkThatStartsNoEngineGoesOn() // first: before any engine was started
    {
        constexpr int gone = 7;
        const auto engine = makeEngineProcess();
        const pid_t child = fork();
        if (child == 0)
            _exit(gone);
        int status = 0;
        QCOMPARE(waitpid(child, &status, 0), child);
        QVERIFY(WIFEXITED(status));
        QCOMPARE(WEXITSTATUS(status), gone);
    }

    void clientKilledWhileItStartsTheEngineLeavesNobodyBehind()
    {
        const FakeEngine engine;
        const QString program = engine.installDir() + QStringLiteral("/erlang/erts-9.0/bin/erl.exe");
        std::array<int, 2> held = {}; // at its end once nobody holds the other side any more
        QCOMPARE(pipe(held.data()), 0);
        const pid_t client = fork();
        if (client == 0)
            startEngineAndDie(program);
        close(held[1]);
        int status = 0;
        QCOMPARE(waitpid(client, &status, 0), client);
        QVERIFY(WIFSIGNALED(status));

        pollfd end = {held[0], POLLIN, 0};
        QCOMPARE(poll(&end, 1, deadline()), 1);
        QVERIFY((end.revents & POLLHUP) != 0);
        close(held[0]);
    }

    void writingToAnEngineThatClosedItsInputIsInVain()
    {
        qRegisterMetaType<QProcess::ProcessError>();
        const auto engine = makeEngineProcess();
        QSignalSpy errors(engine.get(), SIGNAL(errorOccurred(QProcess::ProcessError)));
        engine->start(QStringLiteral("/bin/sh"),
                      {QStringLiteral("-c"), QStringLiteral("exec <&-; echo; kill -STOP $$")});
        QVERIFY(engine->waitForReadyRead(deadline()));
        // After the first time Qt would wait for a pipe that it has closed, and warns of it.
        for (int write = 0; write < 20; ++write) {
            engine->write("x");
            QCoreApplication::processEvents();
            EVENTUALLY(errors.size() == 1);
        }
        QCOMPARE(errors.at(0).at(0).value<QProcess::ProcessError>(), QProcess::WriteError);
        QCOMPARE(engine->state(), QProcess::Running);
        engine->kill();
        QVERIFY(engine->waitForFinished(deadline()));

        // The next one reads.
        engine->start(QStringLiteral("/bin/cat"), QStringList());
        engine->write("heard");
        QByteArray output;
        EVENTUALLY((output += engine->readAllStandardOutput()) == "heard");
        engine->kill();
        QVERIFY(engine->waitForFinished(deadline()));
        QCOMPARE(errors.size(), 3); // the two kills
    }
};

QTEST_GUILESS_MAIN(EngineProcessLinuxTest)
#include "engineprocess_linux_test.moc"
