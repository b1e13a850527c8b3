// From a signal to an exception record and a context.
#include "platform/linux/process/machinecontext.h"

#include <cstring>
#include <QtTest>

namespace {

constexpr greg_t kPageFault = 14;
constexpr greg_t kGeneralProtection = 13;
constexpr std::uintptr_t kLow = 0x7f0000100000; // of the stack
constexpr StackLimits kStack {kLow, kLow + 0x800000};

struct Fault {
    siginfo_t info {};
    ucontext_t machine {};

    Fault(int signal, int code)
    {
        info.si_signo = signal;
        info.si_code = code;
        machine.uc_mcontext.gregs[REG_RIP] = 0x401234;
        machine.uc_mcontext.gregs[REG_RSP] = kLow + 0x4000;
    }

    EXCEPTION_RECORD record(const StackLimits &stack = kStack) const
    {
        EXCEPTION_RECORD record;
        toExceptionRecord(info, machine, stack, &record);
        return record;
    }
};

Fault pageFault(std::uintptr_t address, greg_t error)
{
    Fault fault(SIGSEGV, SEGV_MAPERR);
    fault.info.si_addr = reinterpret_cast<void *>(address);
    fault.machine.uc_mcontext.gregs[REG_TRAPNO] = kPageFault;
    fault.machine.uc_mcontext.gregs[REG_ERR] = error;
    return fault;
}

} // namespace

class TestMachineContext : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void code_data();
    void code();
    void access_data();
    void access();
    void nonCanonicalAddressIsUnknown();
    void instructionTellsWhatTheTrapDoesNot_data();
    void instructionTellsWhatTheTrapDoesNot();
    void breakpointIsWhereItStands();
    void stackOverflow_data();
    void stackOverflow();
    void busError();
    void registers();
    void registersThereAndBack();
};

void TestMachineContext::code_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<int>("code");
    QTest::addColumn<uint>("exception");
    const auto row = [](const char *name, int signal, int code, uint exception) {
        QTest::newRow(name) << signal << code << exception;
    };
    row("integer division", SIGFPE, FPE_INTDIV, 0xC0000094U);
    row("integer overflow", SIGFPE, FPE_INTOVF, 0xC0000095U);
    row("float division", SIGFPE, FPE_FLTDIV, 0xC000008EU);
    row("float overflow", SIGFPE, FPE_FLTOVF, 0xC0000091U);
    row("float underflow", SIGFPE, FPE_FLTUND, 0xC0000093U);
    row("float inexact", SIGFPE, FPE_FLTRES, 0xC000008FU);
    row("float invalid", SIGFPE, FPE_FLTINV, 0xC0000090U);
    row("bounds", SIGFPE, FPE_FLTSUB, 0xC000008CU);
    row("illegal operand", SIGILL, ILL_ILLOPN, 0xC000001DU);
    row("illegal opcode", SIGILL, ILL_ILLOPC, 0xC000001DU);
    row("privileged opcode", SIGILL, ILL_PRVOPC, 0xC0000096U);
    row("privileged register", SIGILL, ILL_PRVREG, 0xC0000096U);
    row("breakpoint", SIGTRAP, SI_KERNEL, 0x80000003U);
    row("single step", SIGTRAP, TRAP_TRACE, 0x80000004U);
    row("misaligned", SIGBUS, BUS_ADRALN, 0x80000002U);
    row("abort", SIGABRT, SI_TKILL, 0xC0000409U);
}

void TestMachineContext::code()
{
    QFETCH(int, signal);
    QFETCH(int, code);
    QFETCH(uint, exception);
    const EXCEPTION_RECORD record = Fault(signal, code).record();
    QCOMPARE(record.ExceptionCode, exception);
    QCOMPARE(record.ExceptionAddress, reinterpret_cast<PVOID>(ULONG_PTR {0x401234}));
    QCOMPARE(record.NumberParameters, 0U);
}

void TestMachineContext::access_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<qulonglong>("access");
    QTest::newRow("read, no page") << 0x4 << 0ULL;
    QTest::newRow("read, protected") << 0x5 << 0ULL;
    QTest::newRow("write, no page") << 0x6 << 1ULL;
    QTest::newRow("write, protected") << 0x7 << 1ULL;
    QTest::newRow("fetch") << 0x15 << 8ULL;
}

void TestMachineContext::access()
{
    QFETCH(int, error);
    QFETCH(qulonglong, access);
    const EXCEPTION_RECORD record = pageFault(0xABC, error).record();
    QCOMPARE(record.ExceptionCode, 0xC0000005U);
    QCOMPARE(record.NumberParameters, 2U);
    QCOMPARE(static_cast<qulonglong>(record.ExceptionInformation[0]), access);
    QCOMPARE(static_cast<qulonglong>(record.ExceptionInformation[1]), 0xABCULL);
}

void TestMachineContext::nonCanonicalAddressIsUnknown()
{
    for (const int signal : {SIGSEGV, SIGBUS}) {
        Fault fault(signal, SI_KERNEL);
        fault.machine.uc_mcontext.gregs[REG_TRAPNO] = kGeneralProtection;
        const EXCEPTION_RECORD record = fault.record();
        QCOMPARE(record.ExceptionCode, 0xC0000005U);
        QCOMPARE(static_cast<qulonglong>(record.ExceptionInformation[0]), 0ULL);
        QCOMPARE(static_cast<qulonglong>(record.ExceptionInformation[1]), ~0ULL);
    }
}

void TestMachineContext::instructionTellsWhatTheTrapDoesNot_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("signal");
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("divisor"); // RCX
    QTest::addColumn<uint>("exception");
    const QByteArray privileged = QByteArray::fromHex("fa");
    const QByteArray read = QByteArray::fromHex("8b0a");
    const QByteArray division = QByteArray::fromHex("f7f9");
    QTest::newRow("privileged") << privileged << SIGSEGV << static_cast<int>(SI_KERNEL) << 0
                                << 0xC0000096U;
    QTest::newRow("no such address")
        << read << SIGSEGV << static_cast<int>(SI_KERNEL) << 0 << 0xC0000005U;
    QTest::newRow("division by zero")
        << division << SIGFPE << static_cast<int>(FPE_INTDIV) << 0 << 0xC0000094U;
    QTest::newRow("overflow of a quotient")
        << division << SIGFPE << static_cast<int>(FPE_INTDIV) << -1 << 0xC0000095U;
}

void TestMachineContext::instructionTellsWhatTheTrapDoesNot()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, signal);
    QFETCH(int, code);
    QFETCH(int, divisor);
    QFETCH(uint, exception);
    Fault fault(signal, code);
    greg_t *registers = fault.machine.uc_mcontext.gregs;
    registers[REG_TRAPNO] = kGeneralProtection;
    registers[REG_RIP] = reinterpret_cast<greg_t>(bytes.constData());
    registers[REG_RCX] = divisor;
    const EXCEPTION_RECORD record = fault.record();
    QCOMPARE(record.ExceptionCode, exception);
    QCOMPARE(record.ExceptionAddress, reinterpret_cast<PVOID>(registers[REG_RIP]));
    // In place of a trap that has only one meaning, the instruction says nothing.
    if (signal == SIGSEGV) {
        registers[REG_TRAPNO] = kPageFault;
        QCOMPARE(fault.record().ExceptionCode, 0xC0000005U);
    }
}

void TestMachineContext::breakpointIsWhereItStands()
{
    Fault fault(SIGTRAP, SI_KERNEL);
    fault.machine.uc_mcontext.gregs[REG_TRAPNO] = 3;
    QCOMPARE(fault.record().ExceptionAddress, reinterpret_cast<PVOID>(ULONG_PTR {0x401233}));
    fault.machine.uc_mcontext.gregs[REG_TRAPNO] = 1; // a step, or a watched address
    QCOMPARE(fault.record().ExceptionAddress, reinterpret_cast<PVOID>(ULONG_PTR {0x401234}));
}

void TestMachineContext::stackOverflow_data()
{
    QTest::addColumn<qulonglong>("stackPointer");
    QTest::addColumn<qulonglong>("address");
    QTest::addColumn<bool>("known"); // the stack's limits
    QTest::addColumn<bool>("overflow");
    QTest::newRow("push at the end")
        << static_cast<qulonglong>(kLow) << static_cast<qulonglong>(kLow - 8) << true << true;
    QTest::newRow("inside a large frame")
        << static_cast<qulonglong>(kLow - 0x100000) << static_cast<qulonglong>(kLow - 0x80000)
        << true << true;
    QTest::newRow("below the pointer") << static_cast<qulonglong>(kLow - 64)
                                       << static_cast<qulonglong>(kLow - 128) << true << true;
    QTest::newRow("wild pointer while the stack is fine")
        << static_cast<qulonglong>(kLow + 0x4000) << static_cast<qulonglong>(kLow - 8) << true
        << false;
    QTest::newRow("null") << static_cast<qulonglong>(kLow) << 0ULL << true << false;
    QTest::newRow("inside of the stack")
        << static_cast<qulonglong>(kLow) << static_cast<qulonglong>(kLow + 8) << true << false;
    QTest::newRow("limits unknown")
        << static_cast<qulonglong>(kLow) << static_cast<qulonglong>(kLow - 8) << false << false;
}

void TestMachineContext::stackOverflow()
{
    QFETCH(qulonglong, stackPointer);
    QFETCH(qulonglong, address);
    QFETCH(bool, known);
    QFETCH(bool, overflow);
    Fault fault = pageFault(address, 0x6);
    fault.machine.uc_mcontext.gregs[REG_RSP] = static_cast<greg_t>(stackPointer);
    const EXCEPTION_RECORD record = fault.record(known ? kStack : StackLimits {0, 0});
    QCOMPARE(record.ExceptionCode, overflow ? 0xC00000FDU : 0xC0000005U);
}

void TestMachineContext::busError()
{
    Fault fault = pageFault(0x7f1234, 0x4);
    fault.info.si_signo = SIGBUS;
    fault.info.si_code = BUS_ADRERR;
    const EXCEPTION_RECORD record = fault.record();
    QCOMPARE(record.ExceptionCode, 0xC0000005U);
    QCOMPARE(static_cast<qulonglong>(record.ExceptionInformation[1]), 0x7f1234ULL);
}

void TestMachineContext::registers()
{
    Fault fault(SIGSEGV, SEGV_MAPERR);
    greg_t *registers = fault.machine.uc_mcontext.gregs;
    const int numbers[] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP,
                           REG_RSI, REG_RDI, REG_R8,  REG_R9,  REG_R10, REG_R11,
                           REG_R12, REG_R13, REG_R14, REG_R15, REG_RIP};
    for (int i = 0; i < 17; ++i)
        registers[numbers[i]] = 0x1000 + i;
    registers[REG_EFL] = 0x10246;
    registers[REG_CSGSFS] = 0x002b006300530033;
    _libc_fpstate state {};
    state.mxcsr = 0x1f80;
    state._xmm[3].element[0] = 0xdeadbeef;
    fault.machine.uc_mcontext.fpregs = &state;

    CONTEXT context;
    toContext(fault.machine, &context);
    // The general registers lie one after the other in this very order.
    const DWORD64 *general = &context.Rax;
    for (int i = 0; i < 17; ++i)
        QCOMPARE(general[i], static_cast<DWORD64>(0x1000 + i));
    QCOMPARE(context.EFlags, 0x10246U);
    QCOMPARE(context.SegCs, static_cast<WORD>(0x33));
    QCOMPARE(context.SegGs, static_cast<WORD>(0x53));
    QCOMPARE(context.SegFs, static_cast<WORD>(0x63));
    QCOMPARE(context.SegSs, static_cast<WORD>(0x2b));
    QCOMPARE(context.MxCsr, 0x1f80U);
    QCOMPARE(static_cast<DWORD>(context.FltSave.XmmRegisters[3].Low), 0xdeadbeefU);
    QCOMPARE(context.ContextFlags & CONTEXT_FULL, static_cast<DWORD>(CONTEXT_FULL));
}

void TestMachineContext::registersThereAndBack()
{
    CONTEXT context {};
    DWORD64 *general = &context.Rax;
    for (int i = 0; i < 17; ++i)
        general[i] = 0x2000 + static_cast<DWORD64>(i);
    ucontext_t machine {};
    fromContext(context, &machine);
    CONTEXT back;
    toContext(machine, &back);
    QCOMPARE(std::memcmp(&back.Rax, &context.Rax, 17 * sizeof(DWORD64)), 0);
}

QTEST_APPLESS_MAIN(TestMachineContext)
#include "tst_machinecontext.moc"
