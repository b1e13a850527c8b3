// Memory that ends where reading must end.
#pragma once

#include <cstddef>

/// `size` bytes that are followed by a page that cannot be read, and preceded by one.
class GuardedMemory {
public:
    explicit GuardedMemory(std::size_t size);
    ~GuardedMemory();
    GuardedMemory(const GuardedMemory &) = delete;
    GuardedMemory &operator=(const GuardedMemory &) = delete;

    char *data() const { return m_data; }
    std::size_t size() const { return m_size; }

private:
    void *m_region = nullptr;
    std::size_t m_regionSize = 0;
    char *m_data = nullptr;
    std::size_t m_size;
};
