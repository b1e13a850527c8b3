// Instructions that fault, in functions whose registers are known at that moment.
#pragma once

extern "C" {

// Each function first fills registers with one hexadecimal digit, sixteen times: RBX with 1, RDX
// with 2, R8 to R15 with 8 to f. It copies RSP to RSI and RBP to RDI. At the fault, RAX and RCX
// are 0.
[[noreturn]] void faultRead(); // reads address 0
[[noreturn]] void faultWrite(); // writes address 0
[[noreturn]] void faultDivide(); // divides by ECX
[[noreturn]] void faultIllegal(); // is no instruction
[[noreturn]] void faultNonCanonical(); // reads an address that no page can have
[[noreturn]] void faultBreakpoint(); // a debugger's instruction, of one byte
[[noreturn]] void faultPrivileged(); // is for the system alone
[[noreturn]] void faultFloatDivision(double dividend, double divisor); // divides them
[[noreturn]] void faultAlignment(); // reads across two words while that is forbidden
[[noreturn]] void faultQuotient(); // divides the lowest number by -1; sets RAX, RCX and RDX
[[noreturn]] void faultLostStack(); // reads address 0; RSP is 16

// The faulting instruction of each.
extern const char faultReadAt[];
extern const char faultWriteAt[];
extern const char faultDivideAt[];
extern const char faultIllegalAt[];
extern const char faultNonCanonicalAt[];
extern const char faultBreakpointAt[];
extern const char faultPrivilegedAt[];
extern const char faultFloatDivisionAt[];
extern const char faultAlignmentAt[];
extern const char faultQuotientAt[];
extern const char faultLostStackAt[];

} // extern "C"
