#include "app/endrequest.h"

#include <QSocketNotifier>

#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>

namespace
{

int wakeUp = -1;

/// Little is allowed in a signal's handler; writing to a descriptor is.
void handleSignal(int)
{
    const std::uint64_t one = 1;
    (void)!write(wakeUp, &one, sizeof one);
}

constexpr std::array<int, 3> ends = {SIGTERM, SIGINT, SIGHUP};

} // namespace

struct EndRequest::Private final
{
    explicit Private(EndRequest& request)
        : notifier(wakeUp, QSocketNotifier::Read)
    {
        connect(&notifier, SIGNAL(activated(QSocketDescriptor, QSocketNotifier::Type)), &request, SIGNAL(asked()));
        for (const int signal : ends)
            std::signal(signal, handleSignal);
    }

    QSocketNotifier notifier;
};

EndRequest::EndRequest()
{
    wakeUp = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    m_private = std::make_unique<Private>(*this);
}

EndRequest::~EndRequest()
{
    // The second request ends a client that hangs on its way out.
    for (const int signal : ends)
        std::signal(signal, SIG_DFL);
    m_private.reset();
    close(wakeUp);
}
