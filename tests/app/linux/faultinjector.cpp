// Loaded into the program before all other libraries, by tst_programcrash: the program then fails
// in its own process, under its own hooks. SIGUSR1 reads address 0, SIGUSR2 calls std::terminate().
// TONEWELL_INJECT names a place where something happens without a signal:
//
// early-fault, early-terminate  in the constructor of the application object
// loop-fault, loop-overflow     on the thread of the sound server's library
// names                         when the event loop begins, prints what the application is called
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <exception>
#include <QCoreApplication>
#include <sys/prctl.h>
#include <sys/resource.h>

namespace {

bool isWanted(const char *place)
{
    const char *const wanted = std::getenv("TONEWELL_INJECT");
    return wanted && std::strcmp(wanted, place) == 0;
}

[[gnu::noinline]] void readNothing()
{
    volatile int *volatile nowhere = nullptr;
    [[maybe_unused]] const int value = *nowhere;
}

[[gnu::noinline]] int overflow(int depth)
{
    volatile char frame[512];
    frame[0] = static_cast<char>(depth);
    return depth < 0 ? frame[0] : overflow(depth + 1) + frame[0];
}

bool isSoundServerThread()
{
    char name[16] = {};
    prctl(PR_GET_NAME, name);
    return std::strcmp(name, "sound-server") == 0;
}

template <typename Function> Function *next(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

[[gnu::constructor]] void listen()
{
    const rlimit noCore {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    std::signal(SIGUSR1, [](int) { readNothing(); });
    std::signal(SIGUSR2, [](int) { std::terminate(); });
}

} // namespace

extern "C" {

// Called by the constructor of the application object before there is one.
char *setlocale(int category, const char *locale) noexcept
{
    if (isWanted("early-fault"))
        readNothing();
    if (isWanted("early-terminate"))
        std::terminate();
    return next<char *(int, const char *)>("setlocale")(category, locale);
}

// Called on the loop's thread after a connection has failed.
void pa_context_unref(void *context)
{
    if (isWanted("loop-fault") && isSoundServerThread())
        readNothing();
    if (isWanted("loop-overflow") && isSoundServerThread())
        overflow(0);
    next<void(void *)>("pa_context_unref")(context);
}

int executeApplication() asm("_ZN12QApplication4execEv");
int executeApplication()
{
    if (isWanted("names")) {
        std::printf("%s|%s|%s\n", qPrintable(QCoreApplication::applicationName()),
                    qPrintable(QCoreApplication::applicationVersion()),
                    qPrintable(QCoreApplication::organizationName()));
        std::fflush(stdout);
    }
    return next<int()>("_ZN12QApplication4execEv")();
}

} // extern "C"
