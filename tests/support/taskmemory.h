// Counts the task memory of the fakes: the product must free every block exactly once.
#pragma once

#include <cstddef>

/// CoTaskMemAlloc, remembered until the product frees the block (CoTaskMemFree, PropVariantClear).
void *taskAlloc(std::size_t size, const void *owner);

/// Blocks of this owner that are not freed yet; of every owner for null. Where the host's functions
/// cannot be watched (Windows) this is always 0.
int taskBlocksAlive(const void *owner = nullptr);
