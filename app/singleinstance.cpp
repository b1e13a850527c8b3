#include "app/singleinstance.h"

#include <QCoreApplication>
#include <QSharedMemory>
#include <QThread>

namespace {

constexpr int kLooks = 4;

// 10 to 50 ms; processes with neighbouring ids get times that lie far apart.
unsigned long pause(int look)
{
    return 10 + static_cast<unsigned long>(QCoreApplication::applicationPid() * 17 * look % 41);
}

} // namespace

bool attachToRunningCopy(QSharedMemory *memory)
{
    if (!memory->attach(QSharedMemory::ReadWrite))
        return false;
    // The last detach destroys the segment. A segment that is still there afterwards has another
    // holder: a copy that is just starting and looks at the same leftover, or a copy that runs.
    // Only the latter holds it at every look.
    for (int look = 0; look < kLooks; ++look) {
        memory->detach();
        if (look > 0)
            QThread::msleep(pause(look));
        if (!memory->attach(QSharedMemory::ReadWrite))
            return false;
    }
    return true;
}
