#pragma once

class QSharedMemory;

/// Attaches to the segment of the key if a process that still runs holds it; true if so.
///
/// Where a segment outlives a process that was killed (Linux), such a leftover is removed instead
/// and the answer is false, with the memory detached. Processes that find the same leftover at the
/// same moment look again at different times, so as not to take each other for a running copy.
/// While one runs the call takes up to 150 ms, otherwise no time to speak of.
bool attachToRunningCopy(QSharedMemory *memory);
