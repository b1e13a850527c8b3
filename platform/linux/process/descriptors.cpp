#include "platform/descriptors.h"

#include <algorithm>
#include <dirent.h>
#include <limits>
#include <sys/resource.h>

int freeDescriptors()
{
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return std::numeric_limits<int>::max();
    DIR *const open = opendir("/dev/fd");
    if (!open)
        return 0; // not even one for looking
    long count = -3; // this one, "." and ".."
    while (readdir(open))
        ++count;
    closedir(open);
    return static_cast<int>(std::clamp(static_cast<long>(limit.rlim_cur) - count, 0L,
                                       static_cast<long>(std::numeric_limits<int>::max())));
}
