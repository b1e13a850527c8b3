#include "platform/linux/process/machinecontext.h"

#include "platform/linux/process/instruction.h"

#include <cstring>

#if !defined(__x86_64__)
#error "CONTEXT is laid out for x86-64"
#endif

namespace {

// Trap numbers and page-fault error bits of the processor.
constexpr greg_t kBreakpoint = 3;
constexpr greg_t kGeneralProtection = 13;
constexpr greg_t kPageFault = 14;
constexpr greg_t kPageFaultWrite = 0x2;
constexpr greg_t kPageFaultFetch = 0x10;

constexpr ULONG_PTR kAccessRead = 0;
constexpr ULONG_PTR kAccessWrite = 1;
constexpr ULONG_PTR kAccessExecute = 8;

// How far beyond the low end of a stack one frame may reach.
constexpr std::uintptr_t kLargestFrameBytes = 16UL * 1024 * 1024;
constexpr std::uintptr_t kPageBytes = 4096;

DWORD64 fromGreg(greg_t value)
{
    return static_cast<DWORD64>(value);
}

bool isStackOverflow(std::uintptr_t address, std::uintptr_t stackPointer, const StackLimits &stack)
{
    return stack.low != 0 && address < stack.low && stack.low - address < kLargestFrameBytes
        && address + kPageBytes >= stackPointer;
}

void describeAccess(const siginfo_t &info, const ucontext_t &machine, const StackLimits &stack,
                    EXCEPTION_RECORD *record)
{
    const greg_t *registers = machine.uc_mcontext.gregs;
    record->ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
    record->NumberParameters = 2;
    if (registers[REG_TRAPNO] != kPageFault) {
        // A non-canonical address: the processor tells neither the address nor the kind of access.
        record->ExceptionInformation[0] = kAccessRead;
        record->ExceptionInformation[1] = ~ULONG_PTR {0};
        return;
    }
    const auto address = reinterpret_cast<std::uintptr_t>(info.si_addr);
    const greg_t error = registers[REG_ERR];
    record->ExceptionInformation[0] = (error & kPageFaultFetch) ? kAccessExecute
        : (error & kPageFaultWrite)                             ? kAccessWrite
                                                                : kAccessRead;
    record->ExceptionInformation[1] = address;
    if (isStackOverflow(address, static_cast<std::uintptr_t>(registers[REG_RSP]), stack))
        record->ExceptionCode = EXCEPTION_STACK_OVERFLOW;
}

std::uintptr_t programCounter(const ucontext_t &machine)
{
    return static_cast<std::uintptr_t>(machine.uc_mcontext.gregs[REG_RIP]);
}

// A quotient that does not fit raises the same trap as a division by zero.
DWORD integerDivisionCode(const ucontext_t &machine)
{
    CONTEXT context;
    toContext(machine, &context);
    return divisorOf(instructionAt(programCounter(machine)), context) == Divisor::Other
        ? EXCEPTION_INT_OVERFLOW
        : EXCEPTION_INT_DIVIDE_BY_ZERO;
}

DWORD arithmeticCode(int code, const ucontext_t &machine)
{
    switch (code) {
    case FPE_INTDIV:
        return integerDivisionCode(machine);
    case FPE_INTOVF:
        return EXCEPTION_INT_OVERFLOW;
    case FPE_FLTDIV:
        return EXCEPTION_FLT_DIVIDE_BY_ZERO;
    case FPE_FLTOVF:
        return EXCEPTION_FLT_OVERFLOW;
    case FPE_FLTUND:
        return EXCEPTION_FLT_UNDERFLOW;
    case FPE_FLTRES:
        return EXCEPTION_FLT_INEXACT_RESULT;
    case FPE_FLTSUB:
        return EXCEPTION_ARRAY_BOUNDS_EXCEEDED;
    default:
        return EXCEPTION_FLT_INVALID_OPERATION;
    }
}

} // namespace

void toContext(const ucontext_t &machine, CONTEXT *context)
{
    const greg_t *registers = machine.uc_mcontext.gregs;
    *context = CONTEXT {};
    context->ContextFlags = CONTEXT_FULL | CONTEXT_SEGMENTS;
    context->Rax = fromGreg(registers[REG_RAX]);
    context->Rcx = fromGreg(registers[REG_RCX]);
    context->Rdx = fromGreg(registers[REG_RDX]);
    context->Rbx = fromGreg(registers[REG_RBX]);
    context->Rsp = fromGreg(registers[REG_RSP]);
    context->Rbp = fromGreg(registers[REG_RBP]);
    context->Rsi = fromGreg(registers[REG_RSI]);
    context->Rdi = fromGreg(registers[REG_RDI]);
    context->R8 = fromGreg(registers[REG_R8]);
    context->R9 = fromGreg(registers[REG_R9]);
    context->R10 = fromGreg(registers[REG_R10]);
    context->R11 = fromGreg(registers[REG_R11]);
    context->R12 = fromGreg(registers[REG_R12]);
    context->R13 = fromGreg(registers[REG_R13]);
    context->R14 = fromGreg(registers[REG_R14]);
    context->R15 = fromGreg(registers[REG_R15]);
    context->Rip = fromGreg(registers[REG_RIP]);
    context->EFlags = static_cast<DWORD>(registers[REG_EFL]);

    const DWORD64 segments = fromGreg(registers[REG_CSGSFS]);
    context->SegCs = static_cast<WORD>(segments);
    context->SegGs = static_cast<WORD>(segments >> 16);
    context->SegFs = static_cast<WORD>(segments >> 32);
    context->SegSs = static_cast<WORD>(segments >> 48);

    if (const auto *state = machine.uc_mcontext.fpregs) {
        static_assert(sizeof(*state) == sizeof(context->FltSave), "both are the FXSAVE area");
        std::memcpy(&context->FltSave, state, sizeof(context->FltSave));
        context->MxCsr = context->FltSave.MxCsr;
    }
}

void fromContext(const CONTEXT &context, ucontext_t *machine)
{
    greg_t *registers = machine->uc_mcontext.gregs;
    registers[REG_RAX] = static_cast<greg_t>(context.Rax);
    registers[REG_RCX] = static_cast<greg_t>(context.Rcx);
    registers[REG_RDX] = static_cast<greg_t>(context.Rdx);
    registers[REG_RBX] = static_cast<greg_t>(context.Rbx);
    registers[REG_RSP] = static_cast<greg_t>(context.Rsp);
    registers[REG_RBP] = static_cast<greg_t>(context.Rbp);
    registers[REG_RSI] = static_cast<greg_t>(context.Rsi);
    registers[REG_RDI] = static_cast<greg_t>(context.Rdi);
    registers[REG_R8] = static_cast<greg_t>(context.R8);
    registers[REG_R9] = static_cast<greg_t>(context.R9);
    registers[REG_R10] = static_cast<greg_t>(context.R10);
    registers[REG_R11] = static_cast<greg_t>(context.R11);
    registers[REG_R12] = static_cast<greg_t>(context.R12);
    registers[REG_R13] = static_cast<greg_t>(context.R13);
    registers[REG_R14] = static_cast<greg_t>(context.R14);
    registers[REG_R15] = static_cast<greg_t>(context.R15);
    registers[REG_RIP] = static_cast<greg_t>(context.Rip);
}

void toExceptionRecord(const siginfo_t &info, const ucontext_t &machine, const StackLimits &stack,
                       EXCEPTION_RECORD *record)
{
    *record = EXCEPTION_RECORD {};
    const std::uintptr_t instruction = programCounter(machine);
    const greg_t trap = machine.uc_mcontext.gregs[REG_TRAPNO];
    record->ExceptionAddress = reinterpret_cast<PVOID>(instruction);
    switch (info.si_signo) {
    case SIGSEGV:
        if (trap == kGeneralProtection && isPrivileged(instructionAt(instruction)))
            record->ExceptionCode = EXCEPTION_PRIV_INSTRUCTION;
        else
            describeAccess(info, machine, stack, record);
        break;
    case SIGBUS:
        if (info.si_code == BUS_ADRALN)
            record->ExceptionCode = EXCEPTION_DATATYPE_MISALIGNMENT;
        else
            describeAccess(info, machine, stack, record);
        break;
    case SIGFPE:
        record->ExceptionCode = arithmeticCode(info.si_code, machine);
        break;
    case SIGILL:
        record->ExceptionCode = info.si_code == ILL_PRVOPC || info.si_code == ILL_PRVREG
            ? EXCEPTION_PRIV_INSTRUCTION
            : EXCEPTION_ILLEGAL_INSTRUCTION;
        break;
    case SIGTRAP:
        record->ExceptionCode =
            info.si_code == TRAP_TRACE ? EXCEPTION_SINGLE_STEP : EXCEPTION_BREAKPOINT;
        if (trap == kBreakpoint) // which has been run: the processor names what follows it
            record->ExceptionAddress = reinterpret_cast<PVOID>(instruction - 1);
        break;
    default: // abort(), which ends a process of the API by this code
        record->ExceptionCode = STATUS_STACK_BUFFER_OVERRUN;
        break;
    }
}
