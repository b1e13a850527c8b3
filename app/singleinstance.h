#pragma once

class QSharedMemory;

/// Attaches to the segment of the key if a process that still runs holds it; true if so.
///
/// On Linux a segment outlives a process that was killed. The call removes such a leftover and
/// returns false, with the memory detached. Processes that find the same leftover at the same
/// moment look again at different times, and so do not take each other for a running copy. The call
/// takes up to 150 ms while a copy runs, and next to no time otherwise.
bool attachToRunningCopy(QSharedMemory *memory);
