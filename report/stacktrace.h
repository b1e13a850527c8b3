// Registers and call stack of a crash, as text.
#pragma once

#include <windows.h>
#include <QString>

/// One line "  RIP: 0x<16 digits>\n" a register, RIP, RSP, RBP, RAX, RBX, RCX, RDX, RSI, RDI and
/// R8 to R15; "  Context unavailable\n" when context is null.
QString formatRegisters(const CONTEXT *context);

/// At most 32 lines "  #<number> 0x<16 digits> (<module>)\n", innermost frame first, or one line
/// that says what is missing. Module names only: no symbols, files or line numbers. Loads
/// dbghelp.dll and starts its symbol handler once per process; the walk changes the context.
QString captureStackTrace(EXCEPTION_POINTERS *pointers);
