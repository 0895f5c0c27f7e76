#include "engine/engineprocess.h"

#include <windows.h>

namespace
{

/// Windows ends every process of the job when the last handle to it is closed, which is at the latest
/// when this process is gone.
class KillOnCloseJob final
{
    Q_DISABLE_COPY_MOVE(KillOnCloseJob)
public:
    KillOnCloseJob()
        : m_job(CreateJobObjectW(nullptr, nullptr))
    {
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
        limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
        SetInformationJobObject(m_job, JobObjectExtendedLimitInformation, &limits, sizeof limits);
    }

    ~KillOnCloseJob()
    {
        CloseHandle(m_job);
    }

    void add(qint64 processId) const
    {
        const HANDLE process = OpenProcess(PROCESS_SET_QUOTA | PROCESS_TERMINATE, FALSE, static_cast<DWORD>(processId));
        if (process == nullptr)
            return;
        AssignProcessToJobObject(m_job, process);
        CloseHandle(process);
    }

private:
    HANDLE m_job;
};

class EngineProcess final : public QProcess
{
    Q_OBJECT

public:
    EngineProcess()
    {
        setCreateProcessArgumentsModifier(
            [](CreateProcessArguments* arguments) { arguments->flags |= CREATE_NO_WINDOW; });
        connect(this, SIGNAL(started()), this, SLOT(joinJob()));
    }

private slots:
    void joinJob()
    {
        m_job.add(processId());
    }

private:
    KillOnCloseJob m_job;
};

} // namespace

std::unique_ptr<QProcess> makeEngineProcess()
{
    return std::make_unique<EngineProcess>();
}

#include "engineprocess_win.moc"
