// Notifications about the user's session.
#pragma once

#include <windef.h>

#define NOTIFY_FOR_THIS_SESSION 0U

#define WTS_CONSOLE_CONNECT 0x1U
#define WTS_CONSOLE_DISCONNECT 0x2U
#define WTS_SESSION_LOGON 0x5U
#define WTS_SESSION_LOCK 0x7U
#define WTS_SESSION_UNLOCK 0x8U

/// Asks for WM_WTSSESSION_CHANGE messages about the session of this process, delivered to the
/// window. False, with nothing registered, when the host's session service cannot be reached.
BOOL WTSRegisterSessionNotification(HWND window, DWORD flags);
