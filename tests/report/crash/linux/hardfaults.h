// Faults in surroundings that make a report hard.
#pragma once

/// Keep a lock that the report needs, each on a thread of its own that never ends: the lock of the
/// loader, the lock of standard error. They return when the lock is taken.
void holdLoaderLock();
void holdErrorsLock();

/// Fault by reading address 0: with nothing but one byte value in all frames of the callers; on a
/// thread that finds no memory for a stack for its handlers.
[[noreturn]] void faultOnOverwrittenStack();
[[noreturn]] void faultWithoutHandlerStack();

/// From now on the end of a report that has failed faults itself, by a division by zero.
void makeTheEndFault();
