// Display settings.
#pragma once

#include <windef.h>

#define ENUM_CURRENT_SETTINGS 0xFFFFFFFFU

#define DM_BITSPERPEL 0x00040000U
#define DM_PELSWIDTH 0x00080000U
#define DM_PELSHEIGHT 0x00100000U
#define DM_DISPLAYFREQUENCY 0x00400000U

/// A display mode. The caller sets dmSize to the size of the structure; with the two-byte WCHAR of
/// the original host that is 220.
struct DEVMODEW {
    WCHAR dmDeviceName[32];
    WORD dmSpecVersion;
    WORD dmDriverVersion;
    WORD dmSize;
    WORD dmDriverExtra;
    DWORD dmFields;
    LONG dmPositionX;
    LONG dmPositionY;
    DWORD dmDisplayOrientation;
    DWORD dmDisplayFixedOutput;
    SHORT dmColor;
    SHORT dmDuplex;
    SHORT dmYResolution;
    SHORT dmTTOption;
    SHORT dmCollate;
    WCHAR dmFormName[32];
    WORD dmLogPixels;
    DWORD dmBitsPerPel;
    DWORD dmPelsWidth;
    DWORD dmPelsHeight;
    DWORD dmDisplayFlags;
    DWORD dmDisplayFrequency;
    DWORD dmICMMethod;
    DWORD dmICMIntent;
    DWORD dmMediaType;
    DWORD dmDitherType;
    DWORD dmReserved1;
    DWORD dmReserved2;
    DWORD dmPanningWidth;
    DWORD dmPanningHeight;
};
// Ninety-two bytes besides the two names, and the padding that a four-byte WCHAR brings.
static_assert(offsetof(DEVMODEW, dmFields) == 32 * sizeof(WCHAR) + 8, "field order");
static_assert(sizeof(DEVMODEW) == 92 + 64 * sizeof(WCHAR) + 4, "size");

extern "C" {

/// Current settings of the primary display (device null, mode ENUM_CURRENT_SETTINGS). Fails with
/// ERROR_NOT_SUPPORTED for anything else, without a GUI application, when no display can be seen
/// and off the GUI thread. Takes no lock.
BOOL EnumDisplaySettingsW(LPCWSTR device, DWORD mode, DEVMODEW *settings);

} // extern "C"
