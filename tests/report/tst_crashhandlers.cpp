// The filter's report for every kind of exception, on records that the test makes up.
#include "report/crashhandlers.h"
#include "report/deliverreport.h"
#include "report/stacktrace.h"

#include <QtTest>

namespace {

QStringList s_reports;

QString line(const QString &name)
{
    const QString start = QStringLiteral("  %1: ").arg(name);
    for (const QString &text : s_reports.last().split(QLatin1Char('\n'))) {
        if (text.startsWith(start))
            return text.mid(start.size());
    }
    return QStringLiteral("no line of this name");
}

EXCEPTION_RECORD recordOf(DWORD code)
{
    EXCEPTION_RECORD record {};
    record.ExceptionCode = code;
    record.ExceptionAddress = reinterpret_cast<PVOID>(ULONG_PTR {0x7ff6a1b2c3d4});
    return record;
}

LONG filter(EXCEPTION_RECORD record, CONTEXT *context = nullptr)
{
    EXCEPTION_POINTERS pointers {&record, context};
    return crashFilter(&pointers);
}

const QString kSuffix = QStringLiteral(" (Address: 0x00007ff6a1b2c3d4)");

} // namespace

class TestCrashHandlers : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanupTestCase();
    void exceptionTable_data();
    void exceptionTable();
    void accessViolation_data();
    void accessViolation();
    void sectionsFollowTheReport();
    void registersAreListedInOrder();
    void withoutContext();
    void registersAreThoseBeforeTheWalk();
};

void TestCrashHandlers::initTestCase()
{
    setReportSink([](const QString &report) { s_reports.append(report); });
}

void TestCrashHandlers::init()
{
    s_reports.clear();
}

void TestCrashHandlers::cleanupTestCase()
{
    setReportSink(nullptr);
}

void TestCrashHandlers::exceptionTable_data()
{
    QTest::addColumn<uint>("code");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("message");
    QTest::newRow("misalignment") << 0x80000002U << "EXCEPTION_DATATYPE_MISALIGNMENT"
                                  << "Data type misalignment";
    QTest::newRow("bounds") << 0xC000008CU << "EXCEPTION_ARRAY_BOUNDS_EXCEEDED"
                            << "Array bounds exceeded";
    QTest::newRow("float division") << 0xC000008EU << "0xc000008e"
                                    << "Division by zero";
    QTest::newRow("integer division") << 0xC0000094U << "0xc0000094"
                                      << "Division by zero";
    QTest::newRow("privileged") << 0xC0000096U << "EXCEPTION_PRIV_INSTRUCTION"
                                << "Privileged instruction";
    QTest::newRow("stack overflow") << 0xC00000FDU << "EXCEPTION_STACK_OVERFLOW"
                                    << "Stack overflow";
    QTest::newRow("handle") << 0xC0000008U << "EXCEPTION_INVALID_HANDLE"
                            << "Invalid handle";
    QTest::newRow("illegal") << 0xC000001DU << "EXCEPTION_ILLEGAL_INSTRUCTION"
                             << "Illegal instruction";
    QTest::newRow("noncontinuable") << 0xC0000025U << "EXCEPTION_NONCONTINUABLE_EXCEPTION"
                                    << "Noncontinuable exception";
    QTest::newRow("C++") << 0xE06D7363U << "0xe06d7363"
                         << "Unknown exception";
    QTest::newRow("fast fail") << 0xC0000409U << "0xc0000409"
                               << "Unknown exception";
    QTest::newRow("small") << 0x1FU << "0x0000001f"
                           << "Unknown exception";
}

void TestCrashHandlers::exceptionTable()
{
    QFETCH(uint, code);
    QFETCH(QString, type);
    QFETCH(QString, message);
    QCOMPARE(filter(recordOf(code)), LONG {1});
    QCOMPARE(s_reports.size(), 1);
    QCOMPARE(line(QStringLiteral("Exception Type")), type);
    QCOMPARE(line(QStringLiteral("Exception Message")), message + kSuffix);
}

void TestCrashHandlers::accessViolation_data()
{
    QTest::addColumn<qulonglong>("access");
    QTest::addColumn<qulonglong>("address");
    QTest::addColumn<QString>("text");
    QTest::newRow("read of address 0") << 0ULL << 0ULL << "read at address 0x0000000000000000";
    QTest::newRow("write") << 1ULL << 0xABCULL << "write at address 0x0000000000000abc";
    QTest::newRow("execution counts as write")
        << 8ULL << 0x10ULL << "write at address 0x0000000000000010";
    QTest::newRow("highest address") << 0ULL << ~0ULL << "read at address 0xffffffffffffffff";
}

void TestCrashHandlers::accessViolation()
{
    QFETCH(qulonglong, access);
    QFETCH(qulonglong, address);
    QFETCH(QString, text);
    EXCEPTION_RECORD record = recordOf(0xC0000005U);
    record.NumberParameters = 2;
    record.ExceptionInformation[0] = access;
    record.ExceptionInformation[1] = address;
    QCOMPARE(filter(record), LONG {1});
    QCOMPARE(line(QStringLiteral("Exception Type")), QStringLiteral("EXCEPTION_ACCESS_VIOLATION"));
    QCOMPARE(line(QStringLiteral("Exception Message")),
             QStringLiteral("Memory access violation (Attempted %1)").arg(text) + kSuffix);
}

void TestCrashHandlers::sectionsFollowTheReport()
{
    CONTEXT context;
    RtlCaptureContext(&context);
    const QString registers = formatRegisters(&context);
    filter(recordOf(0xC000001DU), &context);
    const QString tail = s_reports.last().section(QStringLiteral("            End of Report\n"), 1);
    QVERIFY2(tail.startsWith(QStringLiteral("===========================================\n"
                                            "\n[Additional Context]\n")
                             + registers + QStringLiteral("\n[Stack Trace]\n  # 0 0x")),
             qPrintable(tail));
}

void TestCrashHandlers::registersAreListedInOrder()
{
    CONTEXT context {};
    context.Rip = 0x7ff6a1b2c3d4;
    context.Rsp = 1;
    context.Rbp = 2;
    context.Rax = 3;
    context.Rbx = 4;
    context.Rcx = 5;
    context.Rdx = 6;
    context.Rsi = 7;
    context.Rdi = 8;
    context.R8 = 9;
    context.R9 = 10;
    context.R10 = 11;
    context.R11 = 12;
    context.R12 = 13;
    context.R13 = 14;
    context.R14 = 15;
    context.R15 = 0xFEDCBA9876543210;
    QCOMPARE(formatRegisters(&context),
             QStringLiteral("  RIP: 0x00007ff6a1b2c3d4\n"
                            "  RSP: 0x0000000000000001\n"
                            "  RBP: 0x0000000000000002\n"
                            "  RAX: 0x0000000000000003\n"
                            "  RBX: 0x0000000000000004\n"
                            "  RCX: 0x0000000000000005\n"
                            "  RDX: 0x0000000000000006\n"
                            "  RSI: 0x0000000000000007\n"
                            "  RDI: 0x0000000000000008\n"
                            "  R8:  0x0000000000000009\n"
                            "  R9:  0x000000000000000a\n"
                            "  R10: 0x000000000000000b\n"
                            "  R11: 0x000000000000000c\n"
                            "  R12: 0x000000000000000d\n"
                            "  R13: 0x000000000000000e\n"
                            "  R14: 0x000000000000000f\n"
                            "  R15: 0xfedcba9876543210\n"));
}

void TestCrashHandlers::withoutContext()
{
    QCOMPARE(formatRegisters(nullptr), QStringLiteral("  Context unavailable\n"));
    filter(recordOf(0xC000001DU));
    QVERIFY(s_reports.last().endsWith(QStringLiteral("\n[Additional Context]\n"
                                                     "  Context unavailable\n"
                                                     "\n[Stack Trace]\n"
                                                     "  [No stack frames captured]\n")));
}

void TestCrashHandlers::registersAreThoseBeforeTheWalk()
{
    CONTEXT context;
    RtlCaptureContext(&context);
    const CONTEXT before = context;
    filter(recordOf(0xC000001DU), &context);
    QVERIFY(context.Rip != before.Rip); // the walk has been along this context
    QVERIFY(s_reports.last().contains(formatRegisters(&before)));
}

QTEST_GUILESS_MAIN(TestCrashHandlers)
#include "tst_crashhandlers.moc"
