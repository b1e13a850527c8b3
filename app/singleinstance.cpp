#include "app/singleinstance.h"

#include <QCoreApplication>
#include <QSharedMemory>
#include <QThread>

namespace {

constexpr int kLooks = 4;

// 10 to 50 ms, far from each other for processes that were started one after the other.
unsigned long pause(int look)
{
    return 10 + static_cast<unsigned long>(QCoreApplication::applicationPid() * 17 * look % 41);
}

} // namespace

bool attachToRunningCopy(QSharedMemory *memory)
{
    if (!memory->attach(QSharedMemory::ReadWrite))
        return false;
    // The last detach destroys the segment: what is still there afterwards has another holder. That
    // may be another copy that is just starting and looks at the same leftover; only a copy that
    // runs is there every time.
    for (int look = 0; look < kLooks; ++look) {
        memory->detach();
        if (look > 0)
            QThread::msleep(pause(look));
        if (!memory->attach(QSharedMemory::ReadWrite))
            return false;
    }
    return true;
}
