#include "capture/workerthread.h"

void WorkerThread::terminateAtAPoint()
{
    if (m_state.exchange(State::Terminated) == State::InCall)
        terminate(); // it cannot leave the call any more
}

void WorkerThread::endIfTerminated()
{
    WorkerThread *const thread = current();
    if (thread && thread->m_state.load() == State::Terminated)
        thread->endHere();
}

WorkerThread *WorkerThread::current()
{
    return dynamic_cast<WorkerThread *>(QThread::currentThread());
}

void WorkerThread::enterCall()
{
    State before = State::Elsewhere;
    if (!m_state.compare_exchange_strong(before, State::InCall))
        endHere();
}

void WorkerThread::leaveCall()
{
    State before = State::InCall;
    if (m_state.compare_exchange_strong(before, State::Elsewhere))
        return;
    for (;;)
        sleep(1); // terminate() is on its way and finds it here
}

// Nobody else terminates this thread: it was not in a call. Its own request waits while requests
// are switched off.
void WorkerThread::endHere()
{
    setTerminationEnabled(false);
    terminate();
    setTerminationEnabled(true);
}
