// The thread of a capture worker, which can be ended by force at chosen points only.
#pragma once

#include <windows.h>
#include <atomic>
#include <QThread>

/// Runs an event loop. A terminated thread unwinds or stops wherever it happens to be: the process
/// aborts when a function there is noexcept (a destructor, the thread's own end), and hangs when
/// a lock is held there. So force takes effect on this one only within terminable() and
/// endIfTerminated(); elsewhere it waits for the next of them. A thread that comes to neither is
/// not ended by it.
///
/// What an audio call pays for that is two atomic operations, and no lock: Qt's own switch takes
/// one on Windows.
class WorkerThread : public QThread {
public:
    /// terminate(), at the points named above. Callable from any other thread, and again.
    void terminateAtAPoint();

    /// Ends the calling thread here if it has been terminated. Does nothing on a thread of another
    /// class. The worker may have been destroyed by then, so a session comes here after what can
    /// last, before it touches the worker again.
    static void endIfTerminated();

    /// Makes an audio call that may hang, the one thing that a terminated session is cut off in,
    /// and returns its code. Call is callable without arguments and returns an HRESULT; when the
    /// thread ends in here, what it acquired is lost. On a thread of another class it is a plain
    /// call.
    template <typename Call> static HRESULT terminable(Call call)
    {
        WorkerThread *const thread = current();
        if (thread)
            thread->enterCall();
        const HRESULT hr = call();
        if (thread)
            thread->leaveCall();
        return hr;
    }

private:
    enum class State { Elsewhere, InCall, Terminated };

    static WorkerThread *current();
    void enterCall();
    void leaveCall();
    void endHere();

    std::atomic<State> m_state {State::Elsewhere};
};
