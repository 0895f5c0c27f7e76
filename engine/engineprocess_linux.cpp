#include "engine/engineprocess.h"

#include <QAbstractEventDispatcher>
#include <QSocketNotifier>

#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

namespace
{

/// The client while it forks its engine, otherwise 0.
pid_t forkingClient = 0;

/// A client that is killed cannot end its engine; the kernel does it instead. This runs first of all in the
/// child: Qt's child then waits for a word from its parent, and would do so for ever if that one is gone,
/// holding all that the client held.
void endWithClient()
{
    if (forkingClient == 0)
        return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != forkingClient) // it died before the line above
        _exit(1);
}

class EngineProcess final : public QProcess
{
    Q_OBJECT

public:
    EngineProcess()
    {
        static const int registered = pthread_atfork(nullptr, nullptr, endWithClient);
        Q_UNUSED(registered)
        connect(this, SIGNAL(stateChanged(QProcess::ProcessState)), this, SLOT(noteFork(QProcess::ProcessState)));
        connect(this, SIGNAL(errorOccurred(QProcess::ProcessError)), this,
                SLOT(forgetClosedPipe(QProcess::ProcessError)));
    }

private slots:
    void noteFork(QProcess::ProcessState state)
    {
        forkingClient = state == Starting ? getpid() : 0;
    }

    /// After a failed write Qt has closed the pipe but goes on waiting for it, which its event loop complains about
    /// and, where it is not that of GLib, does not survive for certain. The loop is told to forget it behind the
    /// notifier's back: one that counts as enabled is not enabled again, as Qt would do on return and with each further
    /// write.
    void forgetClosedPipe(QProcess::ProcessError error)
    {
        if (error != WriteError)
            return;
        for (auto* notifier : findChildren<QSocketNotifier*>()) {
            if (notifier->type() == QSocketNotifier::Write && notifier->isEnabled())
                QAbstractEventDispatcher::instance()->unregisterSocketNotifier(notifier);
        }
    }
};

} // namespace

std::unique_ptr<QProcess> makeEngineProcess()
{
    return std::make_unique<EngineProcess>();
}

#include "engineprocess_linux.moc"
