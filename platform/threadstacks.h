// How much address space the stacks of threads take.
#pragma once

/// Gives every thread that is started from now on a stack of 1 MiB, which is what Windows gives
/// them. Elsewhere it is 8 MiB each: more than the rest of the program where a limit counts what a
/// process has set aside. The main thread keeps its own. Call it before there are others.
void useSmallThreadStacks();
