#include <windows.h>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

// Reads by system calls: the caller may be a crashing process whose C library is not to be trusted.
bool readFile(const char *path, char *text, std::size_t size)
{
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    std::size_t length = 0;
    ssize_t count = 0;
    while (length + 1 < size && (count = read(file, text + length, size - 1 - length)) > 0)
        length += static_cast<std::size_t>(count);
    close(file);
    text[length] = '\0';
    return length > 0;
}

// Bytes of one line of /proc/meminfo; the name comes with its colon.
bool memoryLine(const char *text, const char *name, DWORDLONG *bytes)
{
    const char *line = std::strstr(text, name);
    unsigned long long kibibytes = 0;
    if (!line || std::sscanf(line + std::strlen(name), "%llu", &kibibytes) != 1)
        return false;
    *bytes = kibibytes * 1024;
    return true;
}

} // namespace

BOOL GetVersionExW(OSVERSIONINFOW *)
{
    SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
    return FALSE;
}

void GetSystemInfo(SYSTEM_INFO *info)
{
    *info = SYSTEM_INFO {};
#if defined(__x86_64__)
    info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_AMD64;
#elif defined(__i386__)
    info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_INTEL;
#elif defined(__aarch64__)
    info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_ARM64;
#else
    info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_UNKNOWN;
#endif
    info->dwPageSize = static_cast<DWORD>(sysconf(_SC_PAGESIZE));
    info->dwAllocationGranularity = info->dwPageSize;
    info->dwNumberOfProcessors = static_cast<DWORD>(sysconf(_SC_NPROCESSORS_ONLN));
}

BOOL GlobalMemoryStatusEx(MEMORYSTATUSEX *status)
{
    if (!status || status->dwLength != sizeof(MEMORYSTATUSEX)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    char text[8192];
    DWORDLONG total = 0;
    DWORDLONG available = 0;
    DWORDLONG swapTotal = 0;
    DWORDLONG swapFree = 0;
    if (!readFile("/proc/meminfo", text, sizeof(text)) || !memoryLine(text, "MemTotal:", &total)
        || !memoryLine(text, "MemAvailable:", &available) || total == 0
        || !memoryLine(text, "SwapTotal:", &swapTotal)
        || !memoryLine(text, "SwapFree:", &swapFree)) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    *status = MEMORYSTATUSEX {};
    status->dwLength = sizeof(MEMORYSTATUSEX);
    status->dwMemoryLoad = static_cast<DWORD>((total - available) * 100 / total);
    status->ullTotalPhys = total;
    status->ullAvailPhys = available;
    status->ullTotalPageFile = total + swapTotal;
    status->ullAvailPageFile = available + swapFree;
    return TRUE;
}
