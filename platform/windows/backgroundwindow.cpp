#include "platform/backgroundwindow.h"

#include <windows.h>
#include <QWidget>

// Qt shows a tool window without activating it and leaves it out of the task bar and the switcher.
// When the foreground window closes, though, the system looks for another one to activate.
void keepInBackground(QWidget *window)
{
    const HWND handle = reinterpret_cast<HWND>(window->winId());
    SetWindowLongPtrW(handle, GWL_EXSTYLE,
                      GetWindowLongPtrW(handle, GWL_EXSTYLE) | WS_EX_NOACTIVATE);
}
