// A stack for signal handlers on every thread, so that the overflow of its own can be handled.
#pragma once

#include "platform/linux/process/machinecontext.h"

#include <csignal>

/// The signals of faults and of abort().
constexpr int kFaultSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT};

/// Gives the calling thread, for the rest of its life, a stack for signal handlers, and from then
/// on every thread that the process starts for the rest of theirs. A thread for which the memory
/// cannot be had handles its faults on its own stack. Idempotent.
void useHandlerStacks();

/// Lets the signals of faults and of abort() reach the calling thread. Where such a signal is
/// blocked, the kernel ends the process at a fault without any handler. Threads are often started
/// with every signal blocked; those that the process starts after useHandlerStacks() are put right,
/// but not one whose own function blocks them.
void unblockFaultSignals();

/// The limits of the calling thread's own stack, zeros when it has no stack for handlers. Callable
/// in a signal handler.
StackLimits threadStackLimits();
