// What a test says about threads.
#pragma once

/// Threads of this process.
int threadCount();
