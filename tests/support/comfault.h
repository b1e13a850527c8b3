// A CoInitializeEx that fails on demand.
#pragma once

#include <windows.h>

/// From now on every CoInitializeEx of the product returns this code, and does nothing; S_OK ends
/// that. Any thread.
void failCoInitializeEx(HRESULT code);
