// The terminal that standard output may be.
#pragma once

/// Columns and rows, both at least 1.
struct TerminalSize {
    int columns;
    int rows;
};

/// True when standard output is a terminal that understands ANSI control sequences, which on
/// Windows are switched on by this call.
bool standardOutputIsTerminal();

/// Whether this process may draw on the terminal that standard output is: not in the background.
/// The first call in the foreground, and the first after the process was stopped there, writes
/// `enter` and switches echo off. Call it before each picture.
///
/// The terminal is given back when the process is stopped from the keyboard (SIGTSTP) and when it
/// has to end at once, by SIGQUIT or by a second request of the same kind. (Not on Windows: it has
/// neither, and a console does not echo to a program that does not read.)
/// Both texts must outlive the process's use of the terminal. GUI thread only.
bool takeTerminal(const char *enter, const char *leave);

/// Writes `leave` and restores echo, if the terminal is taken.
void giveTerminalBack();

/// The terminal's present size; 80 × 24 when it does not say.
TerminalSize terminalSize();
