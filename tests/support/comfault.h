// A CoInitializeEx that fails on demand.
#pragma once

#include <windows.h>

/// From now on every CoInitializeEx of the product returns this code, and does nothing; S_OK ends
/// that. False where the host's own call cannot be replaced: then nothing fails. Any thread.
bool failCoInitializeEx(HRESULT code);
