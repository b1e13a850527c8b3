#include "capture/workerthread.h"

void WorkerThread::endIfTerminated()
{
    setTerminationEnabled(true);
    setTerminationEnabled(false);
}

// Whether a thread can be terminated is its own setting, and Qt allows it right before run().
void WorkerThread::run()
{
    setTerminationEnabled(false);
    exec();
}
