// From a render endpoint to an audio client that is initialised for loopback: steps 2 to 5 of a
// start, which are about that client alone.
//
// Free functions that log what they do. On failure they return the code of the call that failed and
// leave *out as it is; success without an object counts as E_POINTER. They run on the thread that
// starts, and some pause it.
#pragma once

#include <audioclient.h>
#include <mmdeviceapi.h>
#include <QString>

/// Activates the device's audio client, which the caller releases: once.
HRESULT tryActivate(IMMDevice *device, DWORD context, IAudioClient **out);

/// The same with a look at the device's state first: an absent or unplugged one fails with
/// AUDCLNT_E_DEVICE_INVALIDATED before it is activated. Tries CLSCTX_ALL second.
HRESULT activateClient(IMMDevice *device, IAudioClient **out);

/// Reads the client's mix format, which the caller frees with CoTaskMemFree.
HRESULT fetchMixFormat(IAudioClient *client, WAVEFORMATEX **out);

/// The same, and tells it for the device of that name.
HRESULT readMixFormat(IAudioClient *client, const QString &deviceName, WAVEFORMATEX **out);

/// Initialises the client for shared loopback with a buffer of one second: once.
HRESULT tryInitialize(IAudioClient *client, const WAVEFORMATEX *format);

/// The same with one more attempt when the buffer is not aligned, and up to three retries, 200 ms
/// apart, as long as the failure is a transient one.
HRESULT initializeWithRetries(IAudioClient *client, const WAVEFORMATEX *format);

/// Asks for the buffer's size, and tells it.
HRESULT readBufferSize(IAudioClient *client);

/// Rewrites a mix format to the format of the converted data: 16-bit stereo PCM at the same rate.
void makeDownstream(WAVEFORMATEX *format);
