#include "platform/linux/process/memory.h"

#include <algorithm>
#include <sys/uio.h>
#include <unistd.h>

namespace {

constexpr std::uintptr_t kPageBytes = 4096;

} // namespace

std::size_t readMemory(std::uintptr_t address, void *to, std::size_t size)
{
    std::size_t done = 0;
    while (done < size) {
        // A piece lies in one page, so that it is either read as a whole or not at all.
        const std::size_t piece =
            std::min<std::size_t>(size - done, kPageBytes - address % kPageBytes);
        iovec local {static_cast<char *>(to) + done, piece};
        iovec remote {reinterpret_cast<void *>(address), piece};
        if (process_vm_readv(getpid(), &local, 1, &remote, 1, 0) != static_cast<ssize_t>(piece))
            break;
        done += piece;
        address += piece;
    }
    return done;
}
