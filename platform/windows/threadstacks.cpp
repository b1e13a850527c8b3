#include "platform/threadstacks.h"

void useSmallThreadStacks() { }
