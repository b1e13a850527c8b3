// See faults.h. The frames keep RSP and RBP, so that the stack can be walked from the fault.

.macro FAULT name, instruction:vararg
    .text
    .globl \name
    .type \name, @function
\name:
    .cfi_startproc
    movabsq $0x1111111111111111, %rbx
    movabsq $0x2222222222222222, %rdx
    movabsq $0x8888888888888888, %r8
    movabsq $0x9999999999999999, %r9
    movabsq $0xaaaaaaaaaaaaaaaa, %r10
    movabsq $0xbbbbbbbbbbbbbbbb, %r11
    movabsq $0xcccccccccccccccc, %r12
    movabsq $0xdddddddddddddddd, %r13
    movabsq $0xeeeeeeeeeeeeeeee, %r14
    movabsq $0xffffffffffffffff, %r15
    movq %rsp, %rsi
    movq %rbp, %rdi
    xorl %eax, %eax
    xorl %ecx, %ecx
    .globl \name\()At
\name\()At:
    \instruction
    hlt
    .cfi_endproc
    .size \name, . - \name
.endm

FAULT faultRead, movl (%rax), %ecx
FAULT faultWrite, movl %ecx, (%rax)
FAULT faultDivide, idivl %ecx
FAULT faultIllegal, ud2
FAULT faultNonCanonical, movl (%rdx), %ecx
FAULT faultBreakpoint, int3
FAULT faultFloatDivision, divsd %xmm1, %xmm0

    .section .note.GNU-stack, "", @progbits
