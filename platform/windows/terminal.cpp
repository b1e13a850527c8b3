#include "platform/terminal.h"

#include <windows.h>

bool standardOutputIsTerminal()
{
    const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0; // only a console has one
    return GetConsoleMode(output, &mode)
        && SetConsoleMode(output, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

TerminalSize terminalSize()
{
    CONSOLE_SCREEN_BUFFER_INFO info {};
    if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info))
        return {80, 24};
    const SMALL_RECT &window = info.srWindow;
    if (window.Right < window.Left || window.Bottom < window.Top)
        return {80, 24};
    return {window.Right - window.Left + 1, window.Bottom - window.Top + 1};
}
