// Output that nobody reads any more.
#pragma once

/// False when standard output is a pipe or a socket whose other end is closed. Always true on
/// Windows: there the next write tells.
bool standardOutputHasReader();

/// While it lives, writing to a pipe without a reader fails on the calling thread, where it would
/// end the process otherwise. Made and destroyed on the same thread, in any thread state, a
/// crashing one included. On Windows there is nothing to do.
class BrokenPipeGuard {
public:
    BrokenPipeGuard();
    ~BrokenPipeGuard();

    BrokenPipeGuard(const BrokenPipeGuard &) = delete;
    BrokenPipeGuard &operator=(const BrokenPipeGuard &) = delete;

private:
    [[maybe_unused]] bool m_wasBlocked = false;
    [[maybe_unused]] bool m_wasPending = false;
};
