// The process's own memory, read with care.
#pragma once

#include <cstddef>
#include <cstdint>

/// Copies up to `size` bytes from an address that may be no memory at all, and returns how many
/// there were before the first that cannot be read. The kernel does the reading, so nothing faults.
/// Callable in a signal handler.
std::size_t readMemory(std::uintptr_t address, void *to, std::size_t size);
