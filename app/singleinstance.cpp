#include "app/singleinstance.h"

#include <QSharedMemory>

bool attachToRunningCopy(QSharedMemory *memory)
{
    if (!memory->attach(QSharedMemory::ReadWrite))
        return false;
    // The last detach destroys the segment: what is still there afterwards has another holder.
    memory->detach();
    return memory->attach(QSharedMemory::ReadWrite);
}
