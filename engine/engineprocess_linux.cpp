#include "engine/engineprocess.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

namespace
{

class EngineProcess final : public QProcess
{
protected:
    void setupChildProcess() override
    {
        // A client that is killed cannot end its engine; the kernel does it instead.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != m_client) // it died before the line above
            _exit(1);
    }

private:
    const pid_t m_client = getpid();
};

} // namespace

std::unique_ptr<QProcess> makeEngineProcess()
{
    return std::make_unique<EngineProcess>();
}
