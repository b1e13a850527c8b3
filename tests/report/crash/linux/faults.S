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
FAULT faultFloatDivision, "divsd %xmm1, %xmm0"
FAULT faultAlignment, "movl 1(%rsp), %ecx", "pushfq; orl $0x40000, (%rsp); popfq"
FAULT faultQuotient, "idivl %ecx", "movl $0x80000000, %eax; cltd; movl $-1, %ecx"
FAULT faultLostStack, "movl (%rax), %ecx", "movl $16, %esp"

    .section .note.GNU-stack, "", @progbits
