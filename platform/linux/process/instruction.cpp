#include "platform/linux/process/instruction.h"

#include "platform/linux/process/memory.h"

#include <cstring>

namespace {

constexpr int kStackPointer = 4; // numbers of registers
constexpr int kBasePointer = 5;

struct ModRm {
    int mode; // 3 for a register, else memory with a displacement of 0, 1 or 4 bytes
    int extension; // selects one of the instructions that share an opcode
    int operand; // register
};

/// Takes an instruction apart, byte by byte; zeros follow the last one.
class Decoder {
public:
    explicit Decoder(const Instruction &instruction)
        : m_instruction(instruction)
    {
        for (m_opcode = next(); isPrefix(m_opcode); m_opcode = next())
            notePrefix(m_opcode);
        if ((m_opcode & 0xF0) == 0x40) { // REX, always the last prefix
            m_rex = m_opcode;
            m_opcode = next();
        }
    }

    std::uint8_t opcode() const { return m_opcode; }
    bool ended() const { return m_at > m_instruction.size; }
    std::size_t length() const { return m_at; }
    bool hasRex() const { return m_rex != 0; }
    bool hasWideOperand() const { return (m_rex & 0x08) != 0; }
    bool hasShortOperand() const { return m_shortOperand; }
    bool hasShortAddress() const { return m_shortAddress; }
    bool hasSegmentOfThread() const { return m_segmentOfThread; }
    /// The fourth bit of an index register's number, and of a base's or operand's.
    int indexBit() const { return (m_rex & 0x02) != 0 ? 8 : 0; }
    int baseBit() const { return (m_rex & 0x01) != 0 ? 8 : 0; }

    std::uint8_t next()
    {
        const std::size_t at = m_at++;
        return at < m_instruction.size ? m_instruction.bytes[at] : std::uint8_t {0};
    }

    ModRm nextModRm()
    {
        const std::uint8_t byte = next();
        return {byte >> 6, (byte >> 3) & 7, byte & 7};
    }

    std::int64_t nextDisplacement(int size)
    {
        std::uint32_t value = 0;
        for (int i = 0; i < size; ++i)
            value |= static_cast<std::uint32_t>(next()) << (8 * i);
        return size == 1 ? static_cast<std::int8_t>(value) : static_cast<std::int32_t>(value);
    }

private:
    static bool isPrefix(std::uint8_t byte)
    {
        switch (byte) {
        case 0x26:
        case 0x2E:
        case 0x36:
        case 0x3E:
        case 0x64:
        case 0x65:
        case 0x66:
        case 0x67:
        case 0xF0:
        case 0xF2:
        case 0xF3:
            return true;
        default:
            return false;
        }
    }

    void notePrefix(std::uint8_t byte)
    {
        m_shortOperand = m_shortOperand || byte == 0x66;
        m_shortAddress = m_shortAddress || byte == 0x67;
        m_segmentOfThread = m_segmentOfThread || byte == 0x64 || byte == 0x65;
    }

    const Instruction &m_instruction;
    std::size_t m_at = 0;
    std::uint8_t m_opcode = 0;
    std::uint8_t m_rex = 0;
    bool m_shortOperand = false;
    bool m_shortAddress = false;
    bool m_segmentOfThread = false;
};

// The two-byte opcodes, behind 0F.
bool isPrivilegedSystemInstruction(Decoder *decoder)
{
    switch (decoder->next()) {
    case 0x06: // CLTS
    case 0x07: // SYSRET
    case 0x08: // INVD
    case 0x09: // WBINVD
    case 0x20: // MOV from and to control and debug registers
    case 0x21:
    case 0x22:
    case 0x23:
    case 0x30: // WRMSR
    case 0x32: // RDMSR
    case 0x33: // RDPMC
    case 0x35: // SYSEXIT
        return true;
    case 0x00: { // LLDT, LTR
        const ModRm operand = decoder->nextModRm();
        return operand.extension == 2 || operand.extension == 3;
    }
    case 0x01: { // LGDT, LIDT, LMSW, INVLPG; of those without memory LMSW, SWAPGS and XSETBV
        const ModRm operand = decoder->nextModRm();
        if (operand.mode == 3)
            return operand.extension == 6 || (operand.extension == 7 && operand.operand == 0)
                || (operand.extension == 2 && operand.operand == 1);
        return operand.extension == 2 || operand.extension == 3 || operand.extension >= 6;
    }
    default:
        return false;
    }
}

std::uint64_t registerValue(const CONTEXT &context, int number)
{
    return (&context.Rax)[number]; // they lie in the order of their numbers
}

// The operand's address; false where it depends on the thread's own segment.
bool memoryOperand(Decoder *decoder, const ModRm &operand, const CONTEXT &context,
                   std::uint64_t *address)
{
    if (decoder->hasSegmentOfThread())
        return false;
    std::uint64_t sum = 0;
    bool hasBase = true;
    int base = operand.operand;
    if (operand.operand == kStackPointer) { // a byte for scale, index and base follows
        const ModRm parts = decoder->nextModRm();
        base = parts.operand;
        const int index = parts.extension + decoder->indexBit();
        if (index != kStackPointer)
            sum += registerValue(context, index) << parts.mode;
        hasBase = base != kBasePointer || operand.mode != 0;
        if (!hasBase)
            sum += static_cast<std::uint64_t>(decoder->nextDisplacement(4));
    } else if (operand.operand == kBasePointer && operand.mode == 0) { // from the next instruction
        hasBase = false;
        sum += static_cast<std::uint64_t>(decoder->nextDisplacement(4));
        sum += context.Rip + decoder->length();
    }
    if (hasBase)
        sum += registerValue(context, base + decoder->baseBit());
    if (operand.mode != 0)
        sum += static_cast<std::uint64_t>(decoder->nextDisplacement(operand.mode == 1 ? 1 : 4));
    *address = decoder->hasShortAddress() ? sum & 0xFFFFFFFFU : sum;
    return true;
}

std::uint64_t registerOperand(const Decoder &decoder, const ModRm &operand, const CONTEXT &context,
                              std::size_t size)
{
    // Without REX, the last four one-byte registers are the second bytes of the first four.
    if (size == 1 && !decoder.hasRex() && operand.operand >= 4)
        return registerValue(context, operand.operand - 4) >> 8;
    return registerValue(context, operand.operand + decoder.baseBit());
}

std::size_t operandSize(const Decoder &decoder)
{
    if (decoder.opcode() == 0xF6)
        return 1;
    if (decoder.hasWideOperand())
        return 8;
    return decoder.hasShortOperand() ? 2 : 4;
}

} // namespace

Instruction instructionAt(std::uintptr_t address)
{
    Instruction instruction;
    instruction.size = readMemory(address, instruction.bytes.data(), instruction.bytes.size());
    return instruction;
}

bool isPrivileged(const Instruction &instruction)
{
    Decoder decoder(instruction);
    bool privileged = false;
    switch (decoder.opcode()) {
    case 0x6C: // INS, OUTS
    case 0x6D:
    case 0x6E:
    case 0x6F:
    case 0xE4: // IN, OUT
    case 0xE5:
    case 0xE6:
    case 0xE7:
    case 0xEC:
    case 0xED:
    case 0xEE:
    case 0xEF:
    case 0xF4: // HLT
    case 0xFA: // CLI
    case 0xFB: // STI
        privileged = true;
        break;
    case 0x0F:
        privileged = isPrivilegedSystemInstruction(&decoder);
        break;
    default:
        break;
    }
    return privileged && !decoder.ended();
}

Divisor divisorOf(const Instruction &instruction, const CONTEXT &context)
{
    Decoder decoder(instruction);
    if (decoder.opcode() != 0xF6 && decoder.opcode() != 0xF7)
        return Divisor::Unknown;
    const ModRm operand = decoder.nextModRm();
    if (operand.extension < 6) // neither DIV nor IDIV
        return Divisor::Unknown;

    const std::size_t size = operandSize(decoder);
    std::uint64_t value = 0;
    if (operand.mode == 3) {
        const std::uint64_t whole = registerOperand(decoder, operand, context, size);
        std::memcpy(&value, &whole, size); // its low bytes
    } else {
        std::uint64_t address = 0;
        if (!memoryOperand(&decoder, operand, context, &address)
            || readMemory(address, &value, size) != size)
            return Divisor::Unknown;
    }
    if (decoder.ended())
        return Divisor::Unknown;
    return value == 0 ? Divisor::Zero : Divisor::Other;
}
