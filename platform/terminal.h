// The terminal that standard output may be.
#pragma once

#include <QByteArray>

/// Columns and rows, both at least 1.
struct TerminalSize {
    int columns;
    int rows;
};

/// Whether a terminal of the user's settings shows UTF-8: on Linux what the C library says of the
/// locale of the environment, on Windows the console's code page.
bool terminalShowsUtf8();

/// True when standard output is a terminal that understands ANSI control sequences, which on
/// Windows are switched on by this call.
bool standardOutputIsTerminal();

/// Whether this process may draw on the terminal that standard output is: not in the background.
/// The first call in the foreground, and the first after the process was stopped there, writes
/// `enter` and switches echo and the waiting for whole lines off, so that keys can be read. Call it
/// before each picture.
///
/// The terminal is given back when the process is stopped from the keyboard (SIGTSTP) and when it
/// has to end at once, by SIGQUIT or by a second request of the same kind. (Not on Windows: it has
/// neither, and a console does not echo to a program that does not read.)
/// Both texts must outlive the process's use of the terminal. GUI thread only.
bool takeTerminal(const char *enter, const char *leave);

/// Writes `leave` and gives the terminal back as it was, if it is taken.
void giveTerminalBack();

/// What was typed since the last call, as the terminal sends it; a key of several bytes can come in
/// two calls. Never waits. Empty while the terminal is not taken or standard input is another one
/// or none: what is there belongs to others then.
QByteArray readTypedBytes();

/// The terminal's present size; 80 × 24 when it does not say.
TerminalSize terminalSize();
