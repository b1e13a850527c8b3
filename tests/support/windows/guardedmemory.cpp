#include "tests/support/guardedmemory.h"

#include <windows.h>
#include <cstdlib>

GuardedMemory::GuardedMemory(std::size_t size)
    : m_size(size)
{
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    const std::size_t page = info.dwPageSize;
    const std::size_t pages = (size + page - 1) / page;
    m_regionSize = (pages + 2) * page;
    m_region = VirtualAlloc(nullptr, m_regionSize, MEM_RESERVE, PAGE_NOACCESS);
    char *inner = static_cast<char *>(m_region) + page;
    if (!m_region || (pages && !VirtualAlloc(inner, pages * page, MEM_COMMIT, PAGE_READWRITE)))
        std::abort();
    m_data = inner + pages * page - size;
}

GuardedMemory::~GuardedMemory()
{
    VirtualFree(m_region, 0, MEM_RELEASE);
}
