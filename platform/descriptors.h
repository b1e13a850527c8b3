// What the process may still open.
#pragma once

/// How many more files and sockets the process may open before the host refuses; a large number
/// where there is no such limit. Callable from any thread.
int freeDescriptors();
