// The one place where the audio system is entered.
#pragma once

#include <mmdeviceapi.h>

/// Makes a new device enumerator (CLSCTX_INPROC_SERVER) that the caller releases. Returns the
/// code of the creation; *enumerator is null on failure. Callable from any thread that has
/// initialised COM.
HRESULT createDeviceEnumerator(IMMDeviceEnumerator **enumerator);

/// A function with the contract of createDeviceEnumerator.
using DeviceEnumeratorFactory = HRESULT (*)(IMMDeviceEnumerator **enumerator);

/// Replaces the host's audio system for every later createDeviceEnumerator of the process; null
/// brings the host's own back. Meant for tests; callable from any thread. Returns what was set.
DeviceEnumeratorFactory setDeviceEnumeratorFactory(DeviceEnumeratorFactory factory);
