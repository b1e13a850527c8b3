#pragma once

class QSharedMemory;

/// Attaches to the segment of the key if a process that still runs holds it; true if so.
///
/// Where a segment outlives a process that was killed (Linux), such a leftover is removed instead
/// and the answer is false, with the memory detached.
bool attachToRunningCopy(QSharedMemory *memory);
