#include "platform/terminal.h"

#include <array>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstring>
#include <langinfo.h>
#include <poll.h>
#include <QByteArray>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace {

// Written by the GUI thread and by signal handlers.
volatile sig_atomic_t s_taken = 0;
volatile sig_atomic_t s_continued = 0; // a shell may have changed the terminal meanwhile
const char *s_enter = nullptr;
const char *s_leave = nullptr;
termios s_before {};

struct End {
    int signal;
    void (*first)(int); // handles the first request; null: the first one ends the process
};
std::array<End, 4> s_ends {
    {{SIGQUIT, nullptr}, {SIGINT, nullptr}, {SIGTERM, nullptr}, {SIGHUP, nullptr}}};

// What follows up to install runs in signal handlers: only calls that are safe there.

bool isInBackground()
{
    const pid_t foreground = tcgetpgrp(STDOUT_FILENO);
    return foreground != -1 && foreground != getpgrp(); // -1: not the terminal of our session
}

/// As it was before, or so that keys come one by one and are not shown.
void setLineInput(bool on)
{
    if (isInBackground()) // where it would stop the process; the shell has its own settings
        return;
    termios now = s_before;
    if (!on) {
        now.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON);
        now.c_cc[VMIN] = 1;
        now.c_cc[VTIME] = 0;
    }
    tcsetattr(STDOUT_FILENO, TCSANOW, &now);
}

void print(const char *text)
{
    std::size_t length = std::strlen(text);
    while (length > 0) {
        const ssize_t written = write(STDOUT_FILENO, text, length);
        if (written < 0 && errno != EINTR)
            return;
        if (written > 0) {
            text += written;
            length -= static_cast<std::size_t>(written);
        }
    }
}

void giveBackInHandler()
{
    if (!s_taken)
        return;
    s_taken = 0;
    setLineInput(true);
    pollfd output {STDOUT_FILENO, POLLOUT, 0};
    if (poll(&output, 1, 0) == 1 && (output.revents & POLLOUT) != 0) // nobody may be reading
        print(s_leave);
}

/// The default effect, as soon as the handler that calls this has returned.
void raiseWithDefaultEffect(int signal)
{
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigaction(signal, &action, nullptr);
    raise(signal);
}

void handleEnd(int signal)
{
    const int before = errno;
    for (End &end : s_ends) {
        if (end.signal != signal)
            continue;
        if (end.first) {
            end.first(signal);
            end.first = nullptr;
        } else {
            giveBackInHandler();
            raiseWithDefaultEffect(signal);
        }
    }
    errno = before;
}

void handleStop(int signal)
{
    const int before = errno;
    giveBackInHandler();
    raiseWithDefaultEffect(signal);
    errno = before;
}

void handleContinue(int)
{
    s_continued = 1;
}

/// Returns the handler that was there; SIG_IGN stays.
void (*install(int signal, void (*handler)(int)))(int)
{
    struct sigaction before = {};
    sigaction(signal, nullptr, &before);
    if (before.sa_handler == SIG_IGN)
        return SIG_IGN;
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, nullptr);
    return before.sa_handler;
}

void installHandlers()
{
    static bool s_installed = false;
    if (!s_installed) {
        s_installed = true;
        for (End &end : s_ends) {
            const auto before = install(end.signal, handleEnd);
            end.first = before == SIG_IGN || before == SIG_DFL ? nullptr : before;
        }
        install(SIGCONT, handleContinue);
    }
    install(SIGTSTP, handleStop); // which the last stop has removed
}

bool isSameTerminal(int a, int b)
{
    struct stat first = {};
    struct stat second = {};
    return isatty(a) == 1 && isatty(b) == 1 && fstat(a, &first) == 0 && fstat(b, &second) == 0
        && first.st_rdev == second.st_rdev;
}

} // namespace

bool standardOutputIsTerminal()
{
    return isatty(STDOUT_FILENO) == 1 && qgetenv("TERM") != "dumb";
}

bool takeTerminal(const char *enter, const char *leave)
{
    if (isInBackground())
        return false;
    const bool continued = s_continued;
    s_continued = 0;
    if (s_taken && !continued)
        return true;
    s_enter = enter;
    s_leave = leave;
    if (!s_taken && tcgetattr(STDOUT_FILENO, &s_before) != 0)
        return false;
    s_taken = 1;
    setLineInput(false);
    print(s_enter);
    installHandlers();
    return true;
}

void giveTerminalBack()
{
    if (!s_taken)
        return;
    s_taken = 0;
    setLineInput(true);
    print(s_leave);
}

bool terminalShowsUtf8()
{
    // A locale of its own: nobody has to call setlocale first. One that is not installed is C's.
    const locale_t locale = newlocale(LC_CTYPE_MASK, "", nullptr);
    if (!locale)
        return false;
    const QByteArray codeset = nl_langinfo_l(CODESET, locale);
    freelocale(locale);
    return codeset == "UTF-8";
}

QByteArray readTypedBytes()
{
    // In the background a read would stop the process.
    if (!s_taken || isInBackground() || !isSameTerminal(STDIN_FILENO, STDOUT_FILENO))
        return {};
    pollfd input {STDIN_FILENO, POLLIN, 0};
    if (poll(&input, 1, 0) != 1 || (input.revents & POLLIN) == 0)
        return {};
    char bytes[256];
    const ssize_t count = read(STDIN_FILENO, bytes, sizeof bytes);
    return count > 0 ? QByteArray(bytes, static_cast<int>(count)) : QByteArray();
}

TerminalSize terminalSize()
{
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0)
        return {80, 24};
    return {size.ws_col, size.ws_row};
}
