#include "report/crashhandlers.h"

#include "platform/brokenpipe.h"
#include "platform/lastreport.h"
#include "report/deliverreport.h"
#include "report/errorreport.h"
#include "report/hextext.h"
#include "report/stacktrace.h"

#include <cstdio>
#include <cstdlib>

namespace {

struct Description {
    QString type;
    QString message;
};

QString accessViolationMessage(const EXCEPTION_RECORD &record)
{
    // Every access but a read counts as a write, an execution fault too.
    const QString access =
        record.ExceptionInformation[0] == 0 ? QStringLiteral("read") : QStringLiteral("write");
    return QStringLiteral("Memory access violation (Attempted %1 at address 0x%2)")
        .arg(access, hexText(record.ExceptionInformation[1], 16));
}

Description describe(const EXCEPTION_RECORD &record)
{
    const QString number = QStringLiteral("0x%1").arg(hexText(record.ExceptionCode, 8));
    switch (record.ExceptionCode) {
    case EXCEPTION_ACCESS_VIOLATION:
        return {QStringLiteral("EXCEPTION_ACCESS_VIOLATION"), accessViolationMessage(record)};
    case EXCEPTION_DATATYPE_MISALIGNMENT:
        return {QStringLiteral("EXCEPTION_DATATYPE_MISALIGNMENT"),
                QStringLiteral("Data type misalignment")};
    case EXCEPTION_ARRAY_BOUNDS_EXCEEDED:
        return {QStringLiteral("EXCEPTION_ARRAY_BOUNDS_EXCEEDED"),
                QStringLiteral("Array bounds exceeded")};
    case EXCEPTION_FLT_DIVIDE_BY_ZERO: // both divisions go by their number on purpose
    case EXCEPTION_INT_DIVIDE_BY_ZERO:
        return {number, QStringLiteral("Division by zero")};
    case EXCEPTION_PRIV_INSTRUCTION:
        return {QStringLiteral("EXCEPTION_PRIV_INSTRUCTION"),
                QStringLiteral("Privileged instruction")};
    case EXCEPTION_STACK_OVERFLOW:
        return {QStringLiteral("EXCEPTION_STACK_OVERFLOW"), QStringLiteral("Stack overflow")};
    case EXCEPTION_INVALID_HANDLE:
        return {QStringLiteral("EXCEPTION_INVALID_HANDLE"), QStringLiteral("Invalid handle")};
    case EXCEPTION_ILLEGAL_INSTRUCTION:
        return {QStringLiteral("EXCEPTION_ILLEGAL_INSTRUCTION"),
                QStringLiteral("Illegal instruction")};
    case EXCEPTION_NONCONTINUABLE_EXCEPTION:
        return {QStringLiteral("EXCEPTION_NONCONTINUABLE_EXCEPTION"),
                QStringLiteral("Noncontinuable exception")};
    default:
        return {number, QStringLiteral("Unknown exception")};
    }
}

void printAndDeliver(const QString &report)
{
    const BrokenPipeGuard guard; // nobody may be reading standard error any more
    std::fprintf(stderr, "Program crash:\n%s\n", report.toLocal8Bit().constData());
    std::fflush(stderr); // the process may end without it
    setLastReportPrinted();
    deliverReport(report);
}

} // namespace

LONG WINAPI crashFilter(EXCEPTION_POINTERS *pointers)
{
    const EXCEPTION_RECORD &record = *pointers->ExceptionRecord;
    Description description = describe(record);
    const auto address = reinterpret_cast<quintptr>(record.ExceptionAddress);
    description.message += QStringLiteral(" (Address: 0x%1)").arg(hexText(address, 16));

    // The walk changes the context, so the registers are read first.
    const QString registers = formatRegisters(pointers->ContextRecord);
    const QString stackTrace = captureStackTrace(pointers);

    QString report = buildErrorReport(description.type, description.message);
    report += QStringLiteral("\n[Additional Context]\n") + registers;
    report += QStringLiteral("\n[Stack Trace]\n") + stackTrace;
    printAndDeliver(report);
    return EXCEPTION_EXECUTE_HANDLER;
}

void terminateHandler()
{
    beginLastReport();
    try {
        printAndDeliver(buildErrorReport(QStringLiteral("std::terminate"),
                                         QStringLiteral("Uncaught C++ exception")));
    } catch (...) {
        // No memory for the report: end without it, and never enter this handler again.
    }
    std::_Exit(1);
}
