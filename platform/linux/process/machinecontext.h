// The host's signal context in the API's terms, and back. x86-64 only.
#pragma once

#include <windows.h>
#include <signal.h>
#include <ucontext.h>

/// The addresses between which a thread's stack may grow, low <= sp < high; both 0 when unknown.
struct StackLimits {
    std::uintptr_t low;
    std::uintptr_t high;
};

/// The registers, flags and floating-point state of an interrupted thread. Takes no lock.
void toContext(const ucontext_t &machine, CONTEXT *context);

/// The general registers of a context; everything else of the machine context is left alone.
void fromContext(const CONTEXT &context, ucontext_t *machine);

/// What a fault is called, where it happened and, for an access violation, on what data. An
/// access outside of the stack's limits but close to the stack pointer is a stack overflow. Where
/// the processor raises one trap for two faults, the instruction tells which. Takes no lock.
void toExceptionRecord(const siginfo_t &info, const ucontext_t &machine, const StackLimits &stack,
                       EXCEPTION_RECORD *record);
