// Prints the report of a crash where dbghelp.dll cannot be loaded.
#include "report/crashhandlers.h"
#include "report/deliverreport.h"
#include "tests/report/fakehost.h"

#include <cstdio>

int main()
{
    setReportSink([](const QString &report) { std::fputs(report.toUtf8().constData(), stdout); });
    EXCEPTION_RECORD record {};
    record.ExceptionCode = EXCEPTION_ILLEGAL_INSTRUCTION;
    CONTEXT context;
    RtlCaptureContext(&context);
    EXCEPTION_POINTERS pointers {&record, &context};
    return crashFilter(&pointers) == EXCEPTION_EXECUTE_HANDLER ? 0 : 1;
}
