// Wave formats.
#pragma once

#include <guiddef.h>

#pragma pack(push, 1)
struct WAVEFORMATEX {
    WORD wFormatTag;
    WORD nChannels;
    DWORD nSamplesPerSec;
    DWORD nAvgBytesPerSec;
    WORD nBlockAlign;
    WORD wBitsPerSample;
    WORD cbSize;
};

struct WAVEFORMATEXTENSIBLE {
    WAVEFORMATEX Format;
    union {
        WORD wValidBitsPerSample;
        WORD wSamplesPerBlock;
        WORD wReserved;
    } Samples;
    DWORD dwChannelMask;
    GUID SubFormat;
};
#pragma pack(pop)

static_assert(sizeof(WAVEFORMATEX) == 18, "the structure is packed");
static_assert(sizeof(WAVEFORMATEXTENSIBLE) == 40, "the structure is packed");
static_assert(offsetof(WAVEFORMATEX, nBlockAlign) == 12 && offsetof(WAVEFORMATEX, cbSize) == 16,
              "field order is the API's");

#define WAVE_FORMAT_PCM 0x0001
#define WAVE_FORMAT_IEEE_FLOAT 0x0003
#define WAVE_FORMAT_EXTENSIBLE 0xFFFE

/// {00000003-0000-0010-8000-00AA00389B71}
extern const GUID KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
