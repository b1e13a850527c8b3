#include "platform/display.h"

void chooseDisplay() { }
