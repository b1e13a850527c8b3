// Strings that the caller of an API frees with CoTaskMemFree.
#pragma once

#include <objbase.h>
#include <string>

/// A terminated copy in task memory, or null without memory.
inline LPWSTR copyToTaskMemory(const std::wstring &text)
{
    const std::size_t bytes = (text.size() + 1) * sizeof(WCHAR);
    void *const copy = CoTaskMemAlloc(bytes);
    if (copy)
        std::memcpy(copy, text.c_str(), bytes);
    return static_cast<LPWSTR>(copy);
}
