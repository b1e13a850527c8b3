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

/// The terminal's present size; 80 × 24 when it does not say.
TerminalSize terminalSize();
