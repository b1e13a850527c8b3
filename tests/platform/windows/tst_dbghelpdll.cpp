// dbghelp.dll as the report uses it: loaded at run time. Compares its walk with the system's own
// capture of the same stack, and its modules with the loader's.
#include "tests/support/noinline.h"

#include <windows.h>
#include <cstdint>
#include <dbghelp.h>
#include <QtTest>
#include <vector>

namespace {

int s_datum = 0; // lies in the program itself

template <typename Function> Function resolved(const char *name)
{
    const HMODULE library = LoadLibraryW(L"dbghelp.dll");
    return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(library, name)));
}

const auto kSymInitialize = resolved<decltype(&SymInitializeW)>("SymInitializeW");
const auto kSymGetModuleInfo = resolved<decltype(&SymGetModuleInfo64)>("SymGetModuleInfo64");
const auto kStackWalk = resolved<decltype(&StackWalk64)>("StackWalk64");

DWORD64 addressOf(const void *pointer)
{
    return static_cast<DWORD64>(reinterpret_cast<std::uintptr_t>(pointer));
}

QString moduleAt(DWORD64 address)
{
    IMAGEHLP_MODULE64 module {};
    module.SizeOfStruct = 1680;
    if (!kSymGetModuleInfo(GetCurrentProcess(), address, &module))
        return {};
    return QString::fromLatin1(module.ModuleName);
}

std::vector<DWORD64> walk(CONTEXT context)
{
    STACKFRAME64 frame {};
    frame.AddrPC.Offset = context.Rip;
    frame.AddrPC.Mode = AddrModeFlat;
    frame.AddrStack.Offset = context.Rsp;
    frame.AddrStack.Mode = AddrModeFlat;
    frame.AddrFrame.Offset = context.Rbp;
    frame.AddrFrame.Mode = AddrModeFlat;
    std::vector<DWORD64> addresses;
    while (addresses.size() < 64
           && kStackWalk(IMAGE_FILE_MACHINE_AMD64, GetCurrentProcess(), GetCurrentThread(), &frame,
                         &context, nullptr, nullptr, nullptr, nullptr)
           && frame.AddrPC.Offset)
        addresses.push_back(frame.AddrPC.Offset);
    return addresses;
}

struct Captured {
    std::vector<DWORD64> walked;
    void *callers[8] = {};
    int count = 0;
};

volatile int s_after = 0; // keeps calls from being jumps

TONEWELL_NOINLINE void captureHere(Captured *captured)
{
    CONTEXT context {};
    RtlCaptureContext(&context);
    captured->walked = walk(context);
    captured->count = RtlCaptureStackBackTrace(1, 8, captured->callers, nullptr);
    s_after = 1;
}

TONEWELL_NOINLINE void captureBelow(Captured *captured)
{
    captureHere(captured);
    s_after = 2;
}

} // namespace

class TestDbgHelp : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void structureSizes();
    void walkIsTheStack();
    void modules();
    void addressOutsideOfEveryModule();
};

void TestDbgHelp::initTestCase()
{
    QVERIFY(kSymInitialize);
    QVERIFY(kSymGetModuleInfo);
    QVERIFY(kStackWalk);
    QVERIFY(kSymInitialize(GetCurrentProcess(), nullptr, TRUE));
}

void TestDbgHelp::structureSizes()
{
    QCOMPARE(sizeof(IMAGEHLP_MODULE64), static_cast<std::size_t>(1680));
    QCOMPARE(sizeof(CONTEXT), static_cast<std::size_t>(1232));
}

void TestDbgHelp::walkIsTheStack()
{
    Captured captured;
    captureBelow(&captured);
    // The walk begins in captureHere, the other one with its caller; from there on both have the
    // same return addresses.
    QVERIFY2(captured.count >= 4, qPrintable(QString::number(captured.count)));
    QVERIFY(static_cast<int>(captured.walked.size()) > captured.count);
    for (int i = 0; i < captured.count; ++i)
        QCOMPARE(captured.walked[static_cast<std::size_t>(i) + 1], addressOf(captured.callers[i]));
}

void TestDbgHelp::modules()
{
    const auto named = [](const char *name, DWORD64 address) {
        return moduleAt(address).compare(QLatin1String(name), Qt::CaseInsensitive) == 0;
    };
    QVERIFY(named("tst_dbghelpdll", addressOf(&s_datum)));
    const auto inKernel = reinterpret_cast<void (*)()>(
        GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "LoadLibraryW"));
    QVERIFY(named("kernel32", addressOf(reinterpret_cast<const void *>(inKernel))));
}

void TestDbgHelp::addressOutsideOfEveryModule()
{
    QCOMPARE(moduleAt(0x10), QString());
}

QTEST_APPLESS_MAIN(TestDbgHelp)
#include "tst_dbghelpdll.moc"
