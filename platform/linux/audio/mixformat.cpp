#include "platform/linux/audio/mixformat.h"

#include <objbase.h>

WAVEFORMATEXTENSIBLE mixFormatOf(const SoundEndpoint &endpoint)
{
    WAVEFORMATEXTENSIBLE format {};
    format.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    format.Format.nChannels = endpoint.channels.channels;
    format.Format.nSamplesPerSec = endpoint.rate;
    format.Format.nBlockAlign = static_cast<WORD>(endpoint.channels.channels * sizeof(float));
    format.Format.nAvgBytesPerSec = endpoint.rate * format.Format.nBlockAlign;
    format.Format.wBitsPerSample = 32;
    format.Format.cbSize = sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX);
    format.Samples.wValidBitsPerSample = 32;
    format.dwChannelMask = endpoint.channelMask;
    format.SubFormat = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
    return format;
}

bool isMixFormat(const WAVEFORMATEX &format, const WAVEFORMATEXTENSIBLE &mix)
{
    const WAVEFORMATEX &own = mix.Format;
    if (format.nChannels != own.nChannels || format.nSamplesPerSec != own.nSamplesPerSec
        || format.nBlockAlign != own.nBlockAlign || format.wBitsPerSample != own.wBitsPerSample
        || format.nAvgBytesPerSec != own.nAvgBytesPerSec)
        return false;
    if (format.wFormatTag == WAVE_FORMAT_IEEE_FLOAT)
        return true;
    if (format.wFormatTag != WAVE_FORMAT_EXTENSIBLE || format.cbSize < own.cbSize)
        return false;
    WAVEFORMATEXTENSIBLE extensible {};
    std::memcpy(&extensible, &format, sizeof extensible);
    const WORD validBits = extensible.Samples.wValidBitsPerSample;
    return extensible.SubFormat == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT && validBits == 32
        && extensible.dwChannelMask == mix.dwChannelMask;
}

WAVEFORMATEX *copyFormat(const WAVEFORMATEXTENSIBLE &format)
{
    void *const copy = CoTaskMemAlloc(sizeof format);
    if (copy)
        std::memcpy(copy, &format, sizeof format);
    return static_cast<WAVEFORMATEX *>(copy);
}
