#include "platform/termination.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <QCoreApplication>
#include <QSocketNotifier>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int s_wakeUp = -1; // the handler's end of the pipe

// Only calls that are safe in a signal handler.
void handleSignal(int)
{
    const int before = errno;
    const char byte = 1;
    // A full pipe loses nothing: the loop is being woken already.
    [[maybe_unused]] const ssize_t written = write(s_wakeUp, &byte, sizeof byte);
    errno = before;
}

void install(int signal)
{
    struct sigaction before = {};
    sigaction(signal, nullptr, &before);
    if (before.sa_handler == SIG_IGN)
        return;
    struct sigaction action = {};
    action.sa_handler = handleSignal;
    sigemptyset(&action.sa_mask);
    // One chance to end in order: the next one has the default effect.
    action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
    sigaction(signal, &action, nullptr);
}

} // namespace

void endEventLoopOnTermination()
{
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0)
        return;
    s_wakeUp = ends[1];
    auto *const notifier =
        new QSocketNotifier(ends[0], QSocketNotifier::Read, QCoreApplication::instance());
    // The byte is left where it is, so that the request stands: a quit that comes in a loop of the
    // start-up, before the application's own loop runs, ends only that one.
    QObject::connect(notifier, &QSocketNotifier::activated, notifier,
                     [] { QCoreApplication::quit(); });
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        install(signal);
}
