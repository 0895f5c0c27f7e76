#pragma once

#include <sys/resource.h>

#include <csignal>

/// While one lives, no file of this process and its children can grow beyond a few bytes, which is how a full disk
/// shows, too: in a write that fails. Not on Windows.
class FullDisk final
{
public:
    explicit FullDisk(rlim_t bytes = 16)
        : m_handler(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &m_limit);
        const rlimit small = {bytes, m_limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
    }
    ~FullDisk()
    {
        setrlimit(RLIMIT_FSIZE, &m_limit);
        std::signal(SIGXFSZ, m_handler);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    rlimit m_limit = {};
    void (*m_handler)(int);
};
