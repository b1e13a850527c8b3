#include "platform/backgroundwindow.h"

#include <windows.h>
#include <QWidget>

namespace {

/// Windows 11 takes the fine resolution of timers, 1 ms, from a program of which no window can be
/// seen; ticks would then come every 15.6 ms. Windows 10 does not know the request and takes
/// nothing: it may fail.
void keepTimerResolution()
{
    PROCESS_POWER_THROTTLING_STATE state {};
    state.Version = PROCESS_POWER_THROTTLING_CURRENT_VERSION;
    state.ControlMask = PROCESS_POWER_THROTTLING_IGNORE_TIMER_RESOLUTION;
    state.StateMask = 0; // never ignore it
    SetProcessInformation(GetCurrentProcess(), ProcessPowerThrottling, &state, sizeof(state));
}

} // namespace

// Qt shows a tool window without activating it and leaves it out of the task bar and the switcher.
// When the foreground window closes, though, the system looks for another one to activate.
void keepInBackground(QWidget *window)
{
    const HWND handle = reinterpret_cast<HWND>(window->winId());
    SetWindowLongPtrW(handle, GWL_EXSTYLE,
                      GetWindowLongPtrW(handle, GWL_EXSTYLE) | WS_EX_NOACTIVATE);
    keepTimerResolution();
}
