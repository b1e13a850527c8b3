#include "platform/terminal.h"

#include <QByteArray>

#include <sys/ioctl.h>
#include <unistd.h>

bool standardOutputIsTerminal()
{
    return isatty(STDOUT_FILENO) == 1 && qgetenv("TERM") != "dumb";
}

TerminalSize terminalSize()
{
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0)
        return {80, 24};
    return {size.ws_col, size.ws_row};
}
