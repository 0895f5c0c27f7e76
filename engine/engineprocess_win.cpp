#include "engine/engineprocess.h"

#include <windows.h>

#include <array>
#include <vector>

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

/// Lets a child inherit its three standard handles and no other: one that this process happens to have
/// open as inheritable would stay open as long as the child lives.
class StandardHandles final
{
    Q_DISABLE_COPY_MOVE(StandardHandles)
public:
    StandardHandles() = default;
    ~StandardHandles()
    {
        release();
    }

    /// What is put into the arguments is good until the next call.
    void applyTo(QProcess::CreateProcessArguments& arguments)
    {
        release();
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        m_memory.resize(size);
        auto* list = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(m_memory.data());
        if (!InitializeProcThreadAttributeList(list, 1, 0, &size))
            return;
        m_startup.lpAttributeList = list;
        m_startup.StartupInfo = *arguments.startupInfo;
        m_startup.StartupInfo.cb = sizeof m_startup;
        const STARTUPINFOW& plain = m_startup.StartupInfo;
        m_handles = {plain.hStdInput, plain.hStdOutput, plain.hStdError};
        if (!UpdateProcThreadAttribute(list, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, m_handles.data(), sizeof m_handles,
                                       nullptr, nullptr))
            return;
        arguments.startupInfo = &m_startup.StartupInfo;
        arguments.flags |= EXTENDED_STARTUPINFO_PRESENT;
    }

private:
    void release()
    {
        if (m_startup.lpAttributeList != nullptr)
            DeleteProcThreadAttributeList(m_startup.lpAttributeList);
        m_startup = {};
    }

    std::vector<char> m_memory;
    std::array<HANDLE, 3> m_handles = {};
    STARTUPINFOEXW m_startup = {};
};

class EngineProcess final : public QProcess
{
    Q_OBJECT

public:
    EngineProcess()
    {
        setCreateProcessArgumentsModifier([this](CreateProcessArguments* arguments) {
            arguments->flags |= CREATE_NO_WINDOW;
            m_handles.applyTo(*arguments);
        });
        connect(this, SIGNAL(started()), this, SLOT(joinJob()));
    }

private slots:
    void joinJob()
    {
        m_job.add(processId());
    }

private:
    KillOnCloseJob m_job;
    StandardHandles m_handles;
};

} // namespace

std::unique_ptr<QProcess> makeEngineProcess()
{
    return std::make_unique<EngineProcess>();
}

#include "engineprocess_win.moc"
