// The memory that the process has freed and the host has not got back.
#pragma once

/// Gives back to the host what is free on the heap, also below what is in use: an allocator by
/// itself gives back at most what is free at the end. Takes well below a millisecond for a few
/// megabytes. Callable from any thread.
void returnFreeMemory();
