// What the instruction at a fault tells about the fault; x86-64 only.
#pragma once

#include <windows.h>
#include <array>
#include <cstddef>
#include <cstdint>

/// The bytes at a program counter, as many of the 15 that an instruction may have as can be read.
struct Instruction {
    std::array<std::uint8_t, 15> bytes {};
    std::size_t size = 0;
};

/// What a division divided by. Unknown where the operand cannot be decoded or read.
enum class Divisor { Unknown, Zero, Other };

/// Reads the instruction at an address; its size is 0 where no memory is. Takes no lock.
Instruction instructionAt(std::uintptr_t address);

/// Whether only the system may run the instruction. The processor raises the same fault for an
/// address that cannot exist.
bool isPrivileged(const Instruction &instruction);

/// The divisor of DIV or IDIV, with the registers of the context. The processor raises the same
/// fault for a division by zero and for a quotient that does not fit. Takes no lock.
Divisor divisorOf(const Instruction &instruction, const CONTEXT &context);
