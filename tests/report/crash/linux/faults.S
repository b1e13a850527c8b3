// See faults.h. The frames keep RSP and RBP, so that the stack can be walked from the fault.

.macro BEGIN name
    .text
    .globl \name
    .type \name, @function
\name:
    .cfi_startproc
.endm

.macro END name
    .cfi_endproc
    .size \name, . - \name
.endm

#include "tests/report/crash/faults.inc"
FAULT faultFloatDivision, divsd %xmm1, %xmm0

    .section .note.GNU-stack, "", @progbits
