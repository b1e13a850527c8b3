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
/// What was taken is given back when the process is stopped from the keyboard (SIGTSTP), and by an
/// end that leaves no time for order: SIGQUIT, or a second request of a kind to end. (Not on
/// Windows, where there are neither and a console does not echo to a program that does not read.)
/// Both texts must outlive the process's use of the terminal. GUI thread only.
bool takeTerminal(const char *enter, const char *leave);

/// Writes `leave` and restores echo, if the terminal is taken.
void giveTerminalBack();

/// The terminal's present size; 80 × 24 when it does not say.
TerminalSize terminalSize();
