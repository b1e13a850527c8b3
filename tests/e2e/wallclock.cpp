// Loaded into the program before all other libraries, by test_surroundings.py: after SIGURG the
// wall clock is an hour behind, for this process alone. The clock that only counts on is left as it
// is.
//
// A wait until a time of the wall clock would last an hour longer then. The kernel's own clock does
// not change here, so such waits are not seen to last: each is told on standard error instead.
#include <atomic>
#include <csignal>
#include <ctime>
#include <dlfcn.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

constexpr time_t kHourSeconds = 3600;
// Later than any time since a machine was started, earlier than any date.
constexpr time_t kFirstDateSeconds = 1000000000;

std::atomic<bool> s_setBack {false};

template <typename Function> Function *next(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

time_t behind()
{
    return s_setBack ? kHourSeconds : 0;
}

bool isWallClock(clockid_t clock)
{
    return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
}

void checkWait(const timespec *until)
{
    constexpr char text[] = "a wait for the wall clock\n";
    if (until->tv_sec > kFirstDateSeconds) {
        [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text, sizeof(text) - 1);
    }
}

[[gnu::constructor]] void listen()
{
    std::signal(SIGURG, [](int) { s_setBack = true; });
}

} // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec *now) noexcept
{
    static auto *const real = next<decltype(clock_gettime)>("clock_gettime");
    const int result = real(clock, now);
    if (result == 0 && isWallClock(clock))
        now->tv_sec -= behind();
    return result;
}

int gettimeofday(timeval *now, void *zone) noexcept
{
    static auto *const real = next<decltype(gettimeofday)>("gettimeofday");
    const int result = real(now, zone);
    if (result == 0)
        now->tv_sec -= behind();
    return result;
}

time_t time(time_t *now) noexcept
{
    timespec clock = {};
    clock_gettime(CLOCK_REALTIME, &clock);
    if (now)
        *now = clock.tv_sec;
    return clock.tv_sec;
}

int pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *mutex, const timespec *until)
{
    static auto *const real = next<decltype(pthread_cond_timedwait)>("pthread_cond_timedwait");
    checkWait(until);
    return real(condition, mutex, until);
}

int pthread_cond_clockwait(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t clock,
                           const timespec *until)
{
    static auto *const real = next<decltype(pthread_cond_clockwait)>("pthread_cond_clockwait");
    checkWait(until);
    return real(condition, mutex, clock, until);
}

int pthread_mutex_timedlock(pthread_mutex_t *mutex, const timespec *until) noexcept
{
    static auto *const real = next<decltype(pthread_mutex_timedlock)>("pthread_mutex_timedlock");
    checkWait(until);
    return real(mutex, until);
}

int sem_timedwait(sem_t *semaphore, const timespec *until)
{
    static auto *const real = next<decltype(sem_timedwait)>("sem_timedwait");
    checkWait(until);
    return real(semaphore, until);
}

} // extern "C"
