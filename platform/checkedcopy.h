#pragma once

#include <cstddef>

/// Copies `size` bytes as the host's checked copy does. A null source fills the target with zeros
/// and, on Windows, raises the runtime library's invalid-parameter handler, which ends the process
/// unless someone has set another one; the handler has no counterpart elsewhere.
void checkedCopy(void *to, std::size_t size, const void *from);
