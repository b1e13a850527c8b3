// Window messages.
#pragma once

#include <windef.h>

struct POINT {
    LONG x;
    LONG y;
};

struct MSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD time;
    POINT pt;
};

#define WM_WTSSESSION_CHANGE 0x02B1U
