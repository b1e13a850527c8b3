// The linker leads the product's frees here first (--wrap).
#include "tests/support/taskmemory.h"

#include <mutex>
#include <objbase.h>
#include <propidl.h>
#include <unordered_map>

namespace {

std::mutex s_mutex;

std::unordered_map<void *, const void *> &blocks()
{
    static auto *const map = new std::unordered_map<void *, const void *>; // outlives every static
    return *map;
}

void forget(void *memory)
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    blocks().erase(memory);
}

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names are the linker's.
extern "C" {
void __real__Z13CoTaskMemFreePv(void *memory);
void __wrap__Z13CoTaskMemFreePv(void *memory)
{
    forget(memory);
    __real__Z13CoTaskMemFreePv(memory);
}

HRESULT __real__Z16PropVariantClearP11PROPVARIANT(PROPVARIANT *value);
HRESULT __wrap__Z16PropVariantClearP11PROPVARIANT(PROPVARIANT *value)
{
    if (value && value->vt == VT_LPWSTR)
        forget(value->pwszVal);
    return __real__Z16PropVariantClearP11PROPVARIANT(value);
}
}
// NOLINTEND(bugprone-reserved-identifier)

void *taskAlloc(std::size_t size, const void *owner)
{
    void *memory = CoTaskMemAlloc(size);
    const std::lock_guard<std::mutex> lock(s_mutex);
    blocks().emplace(memory, owner);
    return memory;
}

int taskBlocksAlive(const void *owner)
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    int alive = 0;
    for (const auto &block : blocks())
        alive += !owner || block.second == owner ? 1 : 0;
    return alive;
}
