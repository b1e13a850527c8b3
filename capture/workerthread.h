// The thread of a capture worker, which can be ended by force at chosen points only.
#pragma once

#include <windows.h>
#include <QThread>

/// Runs an event loop. A terminated thread unwinds wherever it happens to wait, and the process
/// aborts when a function there is noexcept: a destructor, or the thread's own end. So terminate()
/// takes effect on this one only within terminable() and endIfTerminated(); elsewhere, and before
/// its event loop, it waits for the next of them. A thread that comes to neither is not ended by
/// it.
class WorkerThread : public QThread {
public:
    /// Ends the calling thread here if it has been terminated; called on a WorkerThread. The worker
    /// may have been destroyed by then, so a session comes here after what can last, before it
    /// touches the worker again.
    static void endIfTerminated();

    /// Makes an audio call that may hang, the one thing that a terminated session is cut off in,
    /// and returns its code; called on a WorkerThread. Call is callable without arguments and
    /// returns an HRESULT; when the thread ends in here, what it acquired is lost.
    template <typename Call> static HRESULT terminable(Call call)
    {
        setTerminationEnabled(true);
        const HRESULT hr = call();
        endIfTerminated();
        return hr;
    }

protected:
    void run() override;
};
