#include "platform/brokenpipe.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <poll.h>
#include <unistd.h>

namespace {

sigset_t pipeSignal()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
}

bool isPending()
{
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

} // namespace

bool standardOutputHasReader()
{
    pollfd output {STDOUT_FILENO, 0, 0}; // of the answers, only those that always come
    return poll(&output, 1, 0) != 1 || (output.revents & (POLLERR | POLLHUP)) == 0;
}

BrokenPipeGuard::BrokenPipeGuard()
    : m_wasPending(isPending())
{
    const sigset_t set = pipeSignal();
    sigset_t before;
    sigemptyset(&before);
    pthread_sigmask(SIG_BLOCK, &set, &before);
    m_wasBlocked = sigismember(&before, SIGPIPE) == 1;
}

BrokenPipeGuard::~BrokenPipeGuard()
{
    const sigset_t set = pipeSignal();
    if (!m_wasPending && isPending()) {
        const timespec now {0, 0};
        while (sigtimedwait(&set, nullptr, &now) < 0 && errno == EINTR) { }
    }
    if (!m_wasBlocked)
        pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}
