// See faults.h. Like the functions of the other host, with unwind tables as well: the frames keep
// RSP and RBP, so that the stack can be walked from the fault.

.macro BEGIN name
    .text
    .globl \name
    .def \name; .scl 2; .type 32; .endef
    .seh_proc \name
\name:
    subq $40, %rsp
    .seh_stackalloc 40
    .seh_endprologue
.endm

.macro END name
    .seh_endproc
.endm

#include "tests/report/crash/faults.inc"
