#include "tests/support/guardedmemory.h"

#include <cstdio>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

GuardedMemory::GuardedMemory(std::size_t size)
    : m_size(size)
{
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t pages = (size + page - 1) / page;
    m_regionSize = (pages + 2) * page;
    m_region = mmap(nullptr, m_regionSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    char *inner = static_cast<char *>(m_region) + page;
    if (m_region == MAP_FAILED
        || (pages && mprotect(inner, pages * page, PROT_READ | PROT_WRITE) != 0)) {
        std::perror("guarded memory");
        std::abort();
    }
    m_data = inner + pages * page - size;
}

GuardedMemory::~GuardedMemory()
{
    munmap(m_region, m_regionSize);
}
