// A stack for signal handlers on every thread, so that the overflow of its own can be handled.
#pragma once

#include "machinecontext.h"

/// Gives the calling thread, for the rest of its life, a stack for signal handlers, and from then
/// on every thread that the process starts for the rest of theirs. Idempotent.
void useHandlerStacks();

/// The limits of the calling thread's own stack, zeros when it has no stack for handlers. Callable
/// in a signal handler.
StackLimits threadStackLimits();
