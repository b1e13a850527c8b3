#include "platform/brokenpipe.h"

bool standardOutputHasReader()
{
    return true;
}

BrokenPipeGuard::BrokenPipeGuard() = default;

BrokenPipeGuard::~BrokenPipeGuard() = default;
