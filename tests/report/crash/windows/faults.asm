; The functions of faults.h for Microsoft's assembler; faults.S has the same for GNU's. The unwind
; tables let the stack be walked from the fault. A label in a procedure is known there alone, so the
; faulting instruction has a procedure of its own, whose table tells of the stack that is taken.

FAULT MACRO name:REQ, instruction:REQ
name PROC FRAME
    sub rsp, 40
    .allocstack 40
    .endprolog
    mov rbx, 1111111111111111h
    mov rdx, 2222222222222222h
    mov r8, 8888888888888888h
    mov r9, 9999999999999999h
    mov r10, 0aaaaaaaaaaaaaaaah
    mov r11, 0bbbbbbbbbbbbbbbbh
    mov r12, 0cccccccccccccccch
    mov r13, 0ddddddddddddddddh
    mov r14, 0eeeeeeeeeeeeeeeeh
    mov r15, 0ffffffffffffffffh
    mov rsi, rsp
    mov rdi, rbp
    xor eax, eax
    xor ecx, ecx
    jmp name&At
name ENDP

name&At PROC FRAME
    .allocstack 40
    .endprolog
    instruction
    hlt
name&At ENDP
ENDM

.code
FAULT faultRead, <mov ecx, dword ptr [rax]>
FAULT faultWrite, <mov dword ptr [rax], ecx>
FAULT faultDivide, <idiv ecx>
FAULT faultIllegal, <ud2>
FAULT faultNonCanonical, <mov ecx, dword ptr [rdx]>
FAULT faultBreakpoint, <int 3>
FAULT faultPrivileged, <cli>
END
