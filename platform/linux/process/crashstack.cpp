#include "platform/crashstack.h"

void reserveCrashStack() { }
