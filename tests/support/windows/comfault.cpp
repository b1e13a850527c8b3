#include "tests/support/comfault.h"

bool failCoInitializeEx(HRESULT)
{
    return false;
}
