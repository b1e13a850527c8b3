// What the bytes at a fault say about it: the forms of a division's operand, and which instructions
// are the system's alone.
#include "platform/linux/process/instruction.h"
#include "platform/linux/process/memory.h"

#include <cstring>
#include <QtTest>
#include <sys/mman.h>

namespace {

Instruction instruction(const QByteArray &hexadecimal)
{
    const QByteArray bytes = QByteArray::fromHex(hexadecimal);
    Instruction instruction;
    instruction.size = static_cast<std::size_t>(bytes.size());
    std::memcpy(instruction.bytes.data(), bytes.constData(), instruction.size);
    return instruction;
}

} // namespace

class TestInstruction : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void privileged_data();
    void privileged();
    void registerDivisor_data();
    void registerDivisor();
    void memoryDivisor_data();
    void memoryDivisor();
    void shortAddressHasNoUpperHalf();
    void operandOfTheThreadIsUnknown();
    void operandThatCannotBeReadIsUnknown();
    void noDivisionHasNoDivisor_data();
    void noDivisionHasNoDivisor();
    void cutOffInstructionSaysNothing();
    void readsUpToTheEndOfMemory();
};

void TestInstruction::privileged_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("expected");
    const auto row = [](const char *name, const char *bytes, bool expected) {
        QTest::newRow(name) << QByteArray(bytes) << expected;
    };
    row("hlt", "f4", true);
    row("cli", "fa", true);
    row("sti", "fb", true);
    row("clc is not", "f8", false);
    row("std is not", "fd", false);
    row("insb", "6c", true);
    row("rep outsd", "f36f", true);
    row("in al, imm8", "e460", true);
    row("out imm8, eax", "e780", true);
    row("call is not", "e800000000", false);
    row("jmp rel8 is not", "eb00", false);
    row("in al, dx", "ec", true);
    row("66 out dx, ax", "66ef", true);
    row("lldt ax", "0f00d0", true);
    row("ltr ax", "0f00d8", true);
    row("sldt eax is not", "0f00c0", false);
    row("verr ax is not", "0f00e0", false);
    row("lgdt [rax]", "0f0110", true);
    row("lidt [rax]", "0f0118", true);
    row("sgdt [rax] is not", "0f0100", false);
    row("lmsw [rax]", "0f0130", true);
    row("lmsw ax", "0f01f0", true);
    row("smsw eax is not", "0f01e0", false);
    row("invlpg [rax]", "0f0138", true);
    row("swapgs", "0f01f8", true);
    row("rdtscp is not", "0f01f9", false);
    row("xsetbv", "0f01d1", true);
    row("xgetbv is not", "0f01d0", false);
    row("clts", "0f06", true);
    row("syscall is not", "0f05", false);
    row("sysret", "480f07", true);
    row("invd", "0f08", true);
    row("wbinvd", "0f09", true);
    row("ud2 is not", "0f0b", false);
    row("mov rax, cr0", "0f20c0", true);
    row("mov rax, dr0", "0f21c0", true);
    row("mov cr8, rax", "440f22c0", true);
    row("mov dr7, rax", "0f23f8", true);
    row("movaps is not", "0f28c0", false);
    row("wrmsr", "0f30", true);
    row("rdtsc is not", "0f31", false);
    row("rdmsr", "0f32", true);
    row("rdpmc", "0f33", true);
    row("sysexit", "0f35", true);
    row("mov ecx, [rdx] is not", "8b0a", false);
    row("prefixes do not hide", "2e3e26366465f0f2f367fa", true);
    row("nothing", "", false);
}

void TestInstruction::privileged()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, expected);
    QCOMPARE(isPrivileged(instruction(bytes)), expected);
}

void TestInstruction::registerDivisor_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("number"); // of the register
    QTest::addColumn<qulonglong>("zero"); // a value of it whose part that divides is 0
    QTest::addColumn<qulonglong>("other");
    const auto row = [](const char *name, const char *bytes, int number, qulonglong zero,
                        qulonglong other) {
        QTest::newRow(name) << QByteArray(bytes) << number << zero << other;
    };
    row("div cl", "f6f1", 1, 0xFFFFFFFFFFFFFF00, 0x01);
    row("idiv ch", "f6fd", 1, 0xFFFFFFFFFFFF00FF, 0x0100);
    row("idiv bpl", "40f6fd", 5, 0xFFFFFFFFFFFFFF00, 0x01);
    row("div cx", "66f7f1", 1, 0xFFFFFFFFFFFF0000, 0x8000);
    row("idiv ecx", "f7f9", 1, 0xFFFFFFFF00000000, 0x80000000);
    row("idiv rcx", "48f7f9", 1, 0, 0x100000000);
    row("div r9d", "41f7f1", 9, 0xFFFFFFFF00000000, 0x80000000);
    row("idiv r15", "49f7ff", 15, 0, 0x8000000000000000);
}

void TestInstruction::registerDivisor()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, number);
    QFETCH(qulonglong, zero);
    QFETCH(qulonglong, other);
    CONTEXT context {};
    DWORD64 *const registers = &context.Rax;
    for (int i = 0; i < 16; ++i)
        registers[i] = i == number ? zero : ~DWORD64 {0};
    QCOMPARE(divisorOf(instruction(bytes), context), Divisor::Zero);
    for (int i = 0; i < 16; ++i)
        registers[i] = i == number ? other : 0;
    QCOMPARE(divisorOf(instruction(bytes), context), Divisor::Other);
}

void TestInstruction::memoryDivisor_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("base"); // number of the register that holds the address, or -1
    QTest::addColumn<qlonglong>("displacement"); // what has to be added to it
    QTest::addColumn<int>("index"); // number of the register that is 3, or -1
    QTest::addColumn<int>("size"); // of the divisor
    const auto row = [](const char *name, const char *bytes, int base, qlonglong displacement,
                        int index, int size) {
        QTest::newRow(name) << QByteArray(bytes) << base << displacement << index << size;
    };
    row("idiv dword [rax]", "f738", 0, 0, -1, 4);
    row("idiv qword [rax]", "48f738", 0, 0, -1, 8);
    row("div word [rbx]", "66f733", 3, 0, -1, 2);
    row("div byte [r9]", "41f631", 9, 0, -1, 1);
    row("idiv dword [rdx-8]", "f77af8", 2, -8, -1, 4);
    row("idiv dword [rdx+0x12345678]", "f7ba78563412", 2, 0x12345678, -1, 4);
    row("idiv dword [rsp]", "f73c24", 4, 0, -1, 4);
    row("idiv dword [rbp+0]", "f77d00", 5, 0, -1, 4);
    row("idiv dword [r12]", "41f73c24", 12, 0, -1, 4);
    row("idiv dword [r13+0]", "41f77d00", 13, 0, -1, 4);
    row("idiv dword [rax+rcx*4]", "f73c88", 0, 12, 1, 4);
    row("idiv dword [rax+r12*8+16]", "42f77ce010", 0, 40, 12, 4);
    row("idiv dword [rcx*2+0x1000]", "f73c4d00100000", -1, 0, 1, 4);
    row("idiv dword [0x10000000]", "f73c2500000010", -1, 0, -1, 4);
    row("idiv dword [rip+0x20]", "f73d20000000", 16, 0x20 + 6, -1, 4);
    row("idiv qword [rip-0x30]", "48f73dd0ffffff", 16, -0x30 + 7, -1, 8);
    row("idiv dword [eax]", "67f738", 0, 0, -1, 4);
}

void TestInstruction::memoryDivisor()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, base);
    QFETCH(qlonglong, displacement);
    QFETCH(int, index);
    QFETCH(int, size);
    // Low, so that absolute forms and 32-bit addresses reach it as well.
    constexpr quintptr kMemory = 0x10000000;
    constexpr std::size_t kMemoryBytes = 4096;
    void *const memory =
        mmap(reinterpret_cast<void *>(kMemory), kMemoryBytes, PROT_READ | PROT_WRITE,
             MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    QCOMPARE(reinterpret_cast<quintptr>(memory), kMemory);

    CONTEXT context {};
    DWORD64 *const registers = &context.Rax; // and RIP as number 16
    if (index >= 0)
        registers[index] = base >= 0 ? 3 : (kMemory - 0x1000) / 2;
    if (base >= 0)
        registers[base] = kMemory - static_cast<DWORD64>(displacement);
    auto *const data = static_cast<unsigned char *>(memory);
    std::memset(data, 0xFF, 16);
    std::memset(data, 0, static_cast<std::size_t>(size));
    QCOMPARE(divisorOf(instruction(bytes), context), Divisor::Zero);
    data[size - 1] = 0x80;
    QCOMPARE(divisorOf(instruction(bytes), context), Divisor::Other);
    munmap(memory, kMemoryBytes);
}

void TestInstruction::shortAddressHasNoUpperHalf()
{
    constexpr std::size_t kMemoryBytes = 4096;
    void *const memory = mmap(nullptr, kMemoryBytes, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_32BIT, -1, 0);
    QVERIFY(memory != MAP_FAILED);
    CONTEXT context {};
    context.Rax = reinterpret_cast<DWORD64>(memory) | 0xFFFFFFFF00000000;
    QCOMPARE(divisorOf(instruction("67f738"), context), Divisor::Zero);
    QCOMPARE(divisorOf(instruction("67f2f738"), context), Divisor::Zero);
    QCOMPARE(divisorOf(instruction("f2f738"), context), Divisor::Unknown);
    munmap(memory, kMemoryBytes);
}

void TestInstruction::operandOfTheThreadIsUnknown()
{
    const quint64 value = 0;
    CONTEXT context {};
    context.Rax = reinterpret_cast<DWORD64>(&value);
    QCOMPARE(divisorOf(instruction("f738"), context), Divisor::Zero);
    QCOMPARE(divisorOf(instruction("64f738"), context), Divisor::Unknown);
    QCOMPARE(divisorOf(instruction("65f738"), context), Divisor::Unknown);
}

void TestInstruction::operandThatCannotBeReadIsUnknown()
{
    QCOMPARE(divisorOf(instruction("f738"), CONTEXT {}), Divisor::Unknown);
}

void TestInstruction::noDivisionHasNoDivisor_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("imul ecx") << QByteArray("f7e9");
    QTest::newRow("test cl, imm8") << QByteArray("f6c101");
    QTest::newRow("inc ecx") << QByteArray("ffc1");
    QTest::newRow("divsd") << QByteArray("f20f5ec1");
}

void TestInstruction::noDivisionHasNoDivisor()
{
    QFETCH(QByteArray, bytes);
    QCOMPARE(divisorOf(instruction(bytes), CONTEXT {}), Divisor::Unknown);
}

void TestInstruction::cutOffInstructionSaysNothing()
{
    for (const char *bytes : {"", "48", "f7", "66f7", "41f7"})
        QCOMPARE(divisorOf(instruction(bytes), CONTEXT {}), Divisor::Unknown);
    for (const char *bytes : {"", "f3", "0f", "0f00", "0f01"})
        QVERIFY(!isPrivileged(instruction(bytes)));
    // The displacement is missing, while the memory at the base could be read.
    const quint64 value = 0;
    CONTEXT context {};
    context.Rdx = reinterpret_cast<DWORD64>(&value);
    QCOMPARE(divisorOf(instruction("f77a"), context), Divisor::Unknown);
    QCOMPARE(divisorOf(instruction("f77a00"), context), Divisor::Zero);
}

void TestInstruction::readsUpToTheEndOfMemory()
{
    constexpr std::size_t kPageBytes = 4096;
    void *const memory =
        mmap(nullptr, 3 * kPageBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    QVERIFY(memory != MAP_FAILED);
    auto *const bytes = static_cast<unsigned char *>(memory);
    for (std::size_t i = 0; i < 2 * kPageBytes; ++i)
        bytes[i] = static_cast<unsigned char>(i % 251);
    QCOMPARE(mprotect(bytes + 2 * kPageBytes, kPageBytes, PROT_NONE), 0);
    const auto end = reinterpret_cast<std::uintptr_t>(bytes + 2 * kPageBytes);

    const Instruction last = instructionAt(end - 3);
    QCOMPARE(last.size, std::size_t {3});
    QCOMPARE(std::memcmp(last.bytes.data(), bytes + 2 * kPageBytes - 3, 3), 0);
    QCOMPARE(instructionAt(end - 15).size, std::size_t {15});
    QCOMPARE(instructionAt(end).size, std::size_t {0});

    QByteArray copy(static_cast<int>(2 * kPageBytes), '\0');
    const std::size_t wanted = static_cast<std::size_t>(copy.size());
    QCOMPARE(readMemory(end - kPageBytes - 7, copy.data(), wanted), kPageBytes + 7);
    QCOMPARE(std::memcmp(copy.constData(), bytes + kPageBytes - 7, kPageBytes + 7), 0);
    munmap(memory, 3 * kPageBytes);
}

QTEST_APPLESS_MAIN(TestInstruction)
#include "tst_instruction.moc"
