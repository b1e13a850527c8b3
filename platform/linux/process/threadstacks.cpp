#include "platform/threadstacks.h"

#include <cstddef>
#include <pthread.h>

namespace {
constexpr std::size_t kStackBytes = 1 << 20;
}

void useSmallThreadStacks()
{
    pthread_attr_t attributes;
    if (pthread_getattr_default_np(&attributes) != 0)
        return;
    if (pthread_attr_setstacksize(&attributes, kStackBytes) == 0)
        pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
}
