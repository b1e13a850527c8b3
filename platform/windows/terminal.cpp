#include "platform/terminal.h"

#include <windows.h>
#include <cstdio>

namespace {

const char *s_leave = nullptr; // set while the console is taken

void print(const char *text)
{
    std::fputs(text, stdout);
    std::fflush(stdout);
}

} // namespace

bool standardOutputIsTerminal()
{
    const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0; // only a console has one
    return GetConsoleMode(output, &mode)
        && SetConsoleMode(output, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

bool takeTerminal(const char *enter, const char *leave)
{
    if (!s_leave)
        print(enter);
    s_leave = leave;
    return true;
}

void giveTerminalBack()
{
    if (s_leave)
        print(s_leave);
    s_leave = nullptr;
}

bool terminalShowsUtf8()
{
    return GetConsoleOutputCP() == CP_UTF8;
}

QByteArray readTypedBytes()
{
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD waiting = 0; // only a console has any
    if (!s_leave || !GetNumberOfConsoleInputEvents(input, &waiting))
        return {};
    QByteArray typed;
    for (INPUT_RECORD event {}; waiting > 0; --waiting) {
        DWORD read = 0;
        if (!ReadConsoleInputW(input, &event, 1, &read) || read == 0)
            break;
        const KEY_EVENT_RECORD &key = event.Event.KeyEvent;
        if (event.EventType == KEY_EVENT && key.bKeyDown && key.uChar.UnicodeChar != 0
            && key.uChar.UnicodeChar < 0x80)
            typed.append(static_cast<char>(key.uChar.UnicodeChar));
    }
    return typed;
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
