// Stack for the report of a stack overflow.
#pragma once

/// Keeps room on the calling thread's stack in which the unhandled-exception filter can run when
/// the stack has overflowed; call it once at the start of a thread. On Linux every thread has a
/// stack of its own for that, and there is nothing to do.
void reserveCrashStack();
