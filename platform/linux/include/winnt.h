// Machine-level structures: exceptions and thread contexts, as the API lays them out on x86-64.
#pragma once

#include <windef.h>

#define EXCEPTION_MAXIMUM_PARAMETERS 15

#define CONTEXT_AMD64 0x00100000U
#define CONTEXT_CONTROL (CONTEXT_AMD64 | 0x1U)
#define CONTEXT_INTEGER (CONTEXT_AMD64 | 0x2U)
#define CONTEXT_SEGMENTS (CONTEXT_AMD64 | 0x4U)
#define CONTEXT_FLOATING_POINT (CONTEXT_AMD64 | 0x8U)
#define CONTEXT_FULL (CONTEXT_CONTROL | CONTEXT_INTEGER | CONTEXT_FLOATING_POINT)

#define IMAGE_FILE_MACHINE_AMD64 0x8664U

#define PROCESSOR_ARCHITECTURE_INTEL 0U
#define PROCESSOR_ARCHITECTURE_AMD64 9U
#define PROCESSOR_ARCHITECTURE_ARM64 12U
#define PROCESSOR_ARCHITECTURE_UNKNOWN 0xFFFFU

struct EXCEPTION_RECORD {
    DWORD ExceptionCode;
    DWORD ExceptionFlags;
    EXCEPTION_RECORD *ExceptionRecord;
    PVOID ExceptionAddress;
    DWORD NumberParameters;
    ULONG_PTR ExceptionInformation[EXCEPTION_MAXIMUM_PARAMETERS];
};
static_assert(sizeof(EXCEPTION_RECORD) == 152, "size on x86-64");
static_assert(offsetof(EXCEPTION_RECORD, ExceptionAddress) == 16, "layout on x86-64");
static_assert(offsetof(EXCEPTION_RECORD, ExceptionInformation) == 32, "layout on x86-64");

struct alignas(16) M128A {
    ULONGLONG Low;
    LONGLONG High;
};

/// The 512 bytes that the FXSAVE instruction writes.
struct alignas(16) XMM_SAVE_AREA32 {
    WORD ControlWord;
    WORD StatusWord;
    BYTE TagWord;
    BYTE Reserved1;
    WORD ErrorOpcode;
    DWORD ErrorOffset;
    WORD ErrorSelector;
    WORD Reserved2;
    DWORD DataOffset;
    WORD DataSelector;
    WORD Reserved3;
    DWORD MxCsr;
    DWORD MxCsr_Mask;
    M128A FloatRegisters[8];
    M128A XmmRegisters[16];
    BYTE Reserved4[96];
};
static_assert(sizeof(XMM_SAVE_AREA32) == 512, "the FXSAVE area");

struct alignas(16) CONTEXT {
    DWORD64 P1Home;
    DWORD64 P2Home;
    DWORD64 P3Home;
    DWORD64 P4Home;
    DWORD64 P5Home;
    DWORD64 P6Home;
    DWORD ContextFlags;
    DWORD MxCsr;
    WORD SegCs;
    WORD SegDs;
    WORD SegEs;
    WORD SegFs;
    WORD SegGs;
    WORD SegSs;
    DWORD EFlags;
    DWORD64 Dr0;
    DWORD64 Dr1;
    DWORD64 Dr2;
    DWORD64 Dr3;
    DWORD64 Dr6;
    DWORD64 Dr7;
    DWORD64 Rax;
    DWORD64 Rcx;
    DWORD64 Rdx;
    DWORD64 Rbx;
    DWORD64 Rsp;
    DWORD64 Rbp;
    DWORD64 Rsi;
    DWORD64 Rdi;
    DWORD64 R8;
    DWORD64 R9;
    DWORD64 R10;
    DWORD64 R11;
    DWORD64 R12;
    DWORD64 R13;
    DWORD64 R14;
    DWORD64 R15;
    DWORD64 Rip;
    XMM_SAVE_AREA32 FltSave;
    M128A VectorRegister[26];
    DWORD64 VectorControl;
    DWORD64 DebugControl;
    DWORD64 LastBranchToRip;
    DWORD64 LastBranchFromRip;
    DWORD64 LastExceptionToRip;
    DWORD64 LastExceptionFromRip;
};
static_assert(sizeof(CONTEXT) == 1232, "size on x86-64");
static_assert(offsetof(CONTEXT, ContextFlags) == 48 && offsetof(CONTEXT, EFlags) == 68,
              "layout on x86-64");
static_assert(offsetof(CONTEXT, Rax) == 120 && offsetof(CONTEXT, Rsp) == 152
                  && offsetof(CONTEXT, R15) == 240 && offsetof(CONTEXT, Rip) == 248,
              "layout on x86-64");
static_assert(offsetof(CONTEXT, FltSave) == 256 && offsetof(CONTEXT, VectorRegister) == 768,
              "layout on x86-64");

struct EXCEPTION_POINTERS {
    EXCEPTION_RECORD *ExceptionRecord;
    CONTEXT *ContextRecord;
};

extern "C" {

/// Fills the context with the registers that the caller has after the call returns.
void RtlCaptureContext(CONTEXT *context);

} // extern "C"
