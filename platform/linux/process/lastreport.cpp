#include "platform/linux/process/lastreport.h"

#include "platform/lastreport.h"
#include "platform/linux/process/threadstack.h"

#include <atomic>
#include <cstdlib>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int kTimeLimitSeconds = 5; // that a report has
constexpr char kNoReport[] = "Program crash: the report could not be finished";

std::atomic<pid_t> s_reporter {0}; // the thread that reports, 0 before any has failed
std::atomic<int> s_signal {0}; // what ends the process, 0 for exit code 1
std::atomic<std::uintptr_t> s_address {0};
std::atomic<std::uintptr_t> s_instruction {0};
std::atomic<bool> s_printed {false};
std::atomic<int> s_secondsLeft {kTimeLimitSeconds};

pid_t threadId()
{
    return static_cast<pid_t>(syscall(SYS_gettid));
}

void restoreDefault(int signal)
{
    struct sigaction action { };
    action.sa_handler = SIG_DFL;
    sigaction(signal, &action, nullptr);
}

void setBlocked(int signal, bool blocked)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    pthread_sigmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &set, nullptr);
}

[[noreturn]] void endBy(int signal)
{
    restoreDefault(signal);
    setBlocked(signal, false);
    syscall(SYS_tgkill, getpid(), threadId(), signal);
    std::_Exit(128 + signal);
}

// A text in a fixed place, put together without the library's help: its locks and its memory may be
// what has failed.
class LastLine {
public:
    void append(const char *text)
    {
        while (*text != '\0')
            append(*text++);
    }

    void appendDecimal(unsigned number)
    {
        if (number >= 10)
            appendDecimal(number / 10);
        append(static_cast<char>('0' + number % 10));
    }

    void appendAddress(std::uintptr_t address)
    {
        append("0x");
        for (int shift = 60; shift >= 0; shift -= 4)
            append("0123456789abcdef"[(address >> shift) & 0xF]);
    }

    void write() const
    {
        [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, m_text, m_length);
    }

private:
    void append(char character)
    {
        if (m_length < sizeof(m_text))
            m_text[m_length++] = character;
    }

    char m_text[192];
    std::size_t m_length = 0;
};

void sayThatThereIsNoReport()
{
    LastLine line;
    line.append(kNoReport);
    if (const int signal = s_signal) {
        line.append(" (signal ");
        line.appendDecimal(static_cast<unsigned>(signal));
        line.append(", address ");
        line.appendAddress(s_address);
        line.append(", instruction ");
        line.appendAddress(s_instruction);
        line.append(")");
    }
    line.append("\n");
    line.write();
}

// Second by second: of the time for which the process is stopped, one second counts at most.
void handleSecond(int)
{
    if (--s_secondsLeft <= 0)
        endNow();
    alarm(1);
}

void startTimeLimit()
{
    struct sigaction action { };
    action.sa_handler = handleSecond;
    action.sa_flags = SA_ONSTACK | SA_RESTART; // a report that is being written goes on
    sigaction(SIGALRM, &action, nullptr);
    setBlocked(SIGALRM, false);
    alarm(1);
}

} // namespace

void claimLastReport(const FaultFacts &facts)
{
    const pid_t self = threadId();
    pid_t reporter = 0;
    if (!s_reporter.compare_exchange_strong(reporter, self)) {
        if (reporter == self) // the report itself has failed
            endNow();
        while (true) // another thread is reporting; it ends the process
            pause();
    }
    s_signal = facts.signal;
    s_address = facts.address;
    s_instruction = facts.instruction;
    startTimeLimit();
}

void endNow()
{
    for (const int signal : kFaultSignals)
        restoreDefault(signal);
    // The reader of standard error may have stopped, and the report may hang for that very reason.
    // Then nothing is printed.
    pollfd errors {STDERR_FILENO, POLLOUT, 0};
    if (!s_printed && poll(&errors, 1, 0) == 1 && (errors.revents & POLLOUT) != 0) {
        setBlocked(SIGPIPE, true); // nobody may be reading standard error any more
        sayThatThereIsNoReport();
    }
    if (const int signal = s_signal)
        endBy(signal);
    std::_Exit(1);
}

void endAfterReturn(siginfo_t *info)
{
    restoreDefault(info->si_signo);
    setBlocked(info->si_signo, true); // undone by the return
    if (syscall(SYS_rt_tgsigqueueinfo, getpid(), threadId(), info->si_signo, info) != 0)
        endBy(info->si_signo);
}

void reserveCrashStack() { }

void beginLastReport()
{
    claimLastReport({0, 0, 0});
}

void setLastReportPrinted()
{
    s_printed = true;
}
