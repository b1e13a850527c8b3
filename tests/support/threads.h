// The threads of this process, for tests.
#pragma once

/// Threads of this process.
int threadCount();
