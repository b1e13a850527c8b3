// The format in which an endpoint's sound is captured.
#pragma once

#include "platform/linux/audio/soundendpoint.h"

#include <mmreg.h>

/// 32-bit float, extensible, at the endpoint's rate and channels.
WAVEFORMATEXTENSIBLE mixFormatOf(const SoundEndpoint &endpoint);

/// Whether a format, extensible or plain float, describes the same bytes as the mix format.
bool isMixFormat(const WAVEFORMATEX &format, const WAVEFORMATEXTENSIBLE &mix);

/// A copy in task memory, or null without memory.
WAVEFORMATEX *copyFormat(const WAVEFORMATEXTENSIBLE &format);
