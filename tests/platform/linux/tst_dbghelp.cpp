// The stack walk and the module look-up, beside what the C library says of the same stack.
#include <windows.h>
#include <dbghelp.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <QtTest>
#include <vector>

namespace {

int s_datum = 0; // lies in the program itself

std::vector<DWORD64> walk(CONTEXT context, int limit = 64)
{
    STACKFRAME64 frame {};
    frame.AddrPC.Offset = context.Rip;
    frame.AddrStack.Offset = context.Rsp;
    frame.AddrFrame.Offset = context.Rbp;
    std::vector<DWORD64> addresses;
    while (static_cast<int>(addresses.size()) < limit
           && StackWalk64(IMAGE_FILE_MACHINE_AMD64, GetCurrentProcess(), GetCurrentThread(), &frame,
                          &context, nullptr, nullptr, nullptr, nullptr)) {
        addresses.push_back(frame.AddrPC.Offset);
    }
    return addresses;
}

IMAGEHLP_MODULE64 emptyModule()
{
    IMAGEHLP_MODULE64 module {};
    module.SizeOfStruct = sizeof(module);
    return module;
}

DWORD64 addressOf(const void *pointer)
{
    return static_cast<DWORD64>(reinterpret_cast<std::uintptr_t>(pointer));
}

} // namespace

class TestDbgHelp : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void moduleNeedsInitialization();
    void onlyThisProcess();
    void libraries();
    void walkIsTheCLibrarysBacktrace();
    void capturedContextIsTheCallers();
    void callOfABadPointer();
    void wildContextEnds();
    void wrongArguments();
    void moduleOfTheProgram();
    void moduleOfALibrary();
    void addressOutsideOfEveryModule();
    void wrongStructureSize();
};

void TestDbgHelp::moduleNeedsInitialization()
{
    IMAGEHLP_MODULE64 module = emptyModule();
    QVERIFY(!SymGetModuleInfo64(GetCurrentProcess(), addressOf(&s_datum), &module));
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    QVERIFY(SymInitializeW(GetCurrentProcess(), nullptr, TRUE));
    QVERIFY(SymGetModuleInfo64(GetCurrentProcess(), addressOf(&s_datum), &module));
}

void TestDbgHelp::onlyThisProcess()
{
    SetLastError(ERROR_SUCCESS);
    QVERIFY(!SymInitializeW(nullptr, nullptr, TRUE));
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

void TestDbgHelp::libraries()
{
    const HMODULE library = LoadLibraryW(L"dbghelp.dll");
    QVERIFY(library);
    QCOMPARE(LoadLibraryW(L"dbghelp.dll"), library);
    const auto is = [library](const char *name, void (*function)()) {
        return reinterpret_cast<void (*)()>(GetProcAddress(library, name)) == function;
    };
    QVERIFY(is("SymInitializeW", reinterpret_cast<void (*)()>(SymInitializeW)));
    QVERIFY(is("SymGetModuleInfo64", reinterpret_cast<void (*)()>(SymGetModuleInfo64)));
    QVERIFY(is("StackWalk64", reinterpret_cast<void (*)()>(StackWalk64)));
    QVERIFY(!GetProcAddress(library, "SymFromAddrW"));
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_PROC_NOT_FOUND));
    QVERIFY(!GetProcAddress(nullptr, "StackWalk64"));
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    QVERIFY(!LoadLibraryW(L"kernel32.dll"));
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
}

void TestDbgHelp::walkIsTheCLibrarysBacktrace()
{
    CONTEXT context;
    RtlCaptureContext(&context);
    void *expected[64];
    const int count = backtrace(expected, 64);
    const std::vector<DWORD64> addresses = walk(context);
    QVERIFY2(count >= 5, qPrintable(QString::number(count)));
    // Both calls were made here; from here outwards the frames are the same. A sanitizer puts one
    // of its own before them.
    const int here = count - static_cast<int>(addresses.size());
    QVERIFY2(here >= 0 && here <= 2, qPrintable(QString::number(here)));
    for (std::size_t i = 1; i < addresses.size(); ++i)
        QCOMPARE(addresses[i], addressOf(expected[here + static_cast<int>(i)]));
}

namespace {

struct Captured {
    CONTEXT context;
    std::vector<DWORD64> addresses;
    DWORD64 frame;
    DWORD64 caller;
};

[[gnu::noinline]] void captureHere(Captured *captured)
{
    RtlCaptureContext(&captured->context);
    captured->addresses = walk(captured->context, 2);
    captured->frame = addressOf(__builtin_dwarf_cfa());
    captured->caller = addressOf(__builtin_return_address(0));
}

} // namespace

void TestDbgHelp::capturedContextIsTheCallers()
{
    Captured captured {};
    captureHere(&captured);
    const CONTEXT &context = captured.context;
    const DWORD64 start = addressOf(reinterpret_cast<const void *>(&captureHere));
    QVERIFY(context.Rip > start && context.Rip < start + 256);
    QVERIFY(context.Rsp < captured.frame && context.Rsp > captured.frame - 4096);
    QCOMPARE(captured.addresses.size(), static_cast<std::size_t>(2));
    QCOMPARE(captured.addresses[0], context.Rip);
    QCOMPARE(captured.addresses[1], captured.caller);
}

// As after the call of a pointer that points nowhere: the return address is all there is.
void TestDbgHelp::callOfABadPointer()
{
    const DWORD64 caller = addressOf(reinterpret_cast<const void *>(&captureHere)) + 1;
    DWORD64 stack[64] = {caller};
    CONTEXT context {};
    context.Rip = 0x10;
    context.Rsp = addressOf(stack);
    const std::vector<DWORD64> addresses = walk(context, 2);
    QCOMPARE(addresses, std::vector<DWORD64>({0x10, caller}));
    QCOMPARE(walk(context, 1), std::vector<DWORD64>({0x10}));
}

void TestDbgHelp::wildContextEnds()
{
    CONTEXT context {};
    context.Rip = 0x10;
    context.Rsp = 0x20;
    context.Rbp = 0x30;
    QCOMPARE(walk(context), std::vector<DWORD64>({0x10}));
    context.Rip = addressOf(reinterpret_cast<const void *>(&walk)); // true code, wild stack
    QVERIFY(walk(context).size() <= 2);
}

void TestDbgHelp::wrongArguments()
{
    CONTEXT context {};
    STACKFRAME64 frame {};
    const HANDLE process = GetCurrentProcess();
    const HANDLE thread = GetCurrentThread();
    QVERIFY(
        !StackWalk64(0x14c, process, thread, &frame, &context, nullptr, nullptr, nullptr, nullptr));
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    QVERIFY(!StackWalk64(IMAGE_FILE_MACHINE_AMD64, nullptr, thread, &frame, &context, nullptr,
                         nullptr, nullptr, nullptr));
    QVERIFY(!StackWalk64(IMAGE_FILE_MACHINE_AMD64, process, thread, &frame, nullptr, nullptr,
                         nullptr, nullptr, nullptr));
}

void TestDbgHelp::moduleOfTheProgram()
{
    QVERIFY(SymInitializeW(GetCurrentProcess(), nullptr, TRUE));
    IMAGEHLP_MODULE64 module = emptyModule();
    QVERIFY(SymGetModuleInfo64(GetCurrentProcess(), addressOf(&s_datum), &module));
    const QString path = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
    QCOMPARE(QString::fromLatin1(module.ModuleName), QFileInfo(path).fileName().left(31));
    QCOMPARE(QString::fromLocal8Bit(module.ImageName), path.left(255));
    Dl_info info {};
    QVERIFY(dladdr(&s_datum, &info));
    QCOMPARE(module.BaseOfImage, addressOf(info.dli_fbase));
    QVERIFY(addressOf(&s_datum) - module.BaseOfImage < module.ImageSize);
}

void TestDbgHelp::moduleOfALibrary()
{
    QVERIFY(SymInitializeW(GetCurrentProcess(), nullptr, TRUE));
    const void *inside = reinterpret_cast<const void *>(&qVersion);
    Dl_info info {};
    QVERIFY(dladdr(inside, &info));
    IMAGEHLP_MODULE64 module = emptyModule();
    QVERIFY(SymGetModuleInfo64(GetCurrentProcess(), addressOf(inside), &module));
    QVERIFY(
        QByteArray(module.ModuleName).startsWith("libQt" QT_STRINGIFY(QT_VERSION_MAJOR) "Core.so"));
    QCOMPARE(QByteArray(module.ImageName), QByteArray(info.dli_fname));
    QCOMPARE(module.BaseOfImage, addressOf(info.dli_fbase));
}

void TestDbgHelp::addressOutsideOfEveryModule()
{
    QVERIFY(SymInitializeW(GetCurrentProcess(), nullptr, TRUE));
    const int local = 0;
    IMAGEHLP_MODULE64 module = emptyModule();
    QVERIFY(!SymGetModuleInfo64(GetCurrentProcess(), addressOf(&local), &module));
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
    QVERIFY(!SymGetModuleInfo64(GetCurrentProcess(), 0x10, &module));
}

void TestDbgHelp::wrongStructureSize()
{
    QVERIFY(SymInitializeW(GetCurrentProcess(), nullptr, TRUE));
    IMAGEHLP_MODULE64 module {};
    module.SizeOfStruct = 1679;
    QVERIFY(!SymGetModuleInfo64(GetCurrentProcess(), addressOf(&s_datum), &module));
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

QTEST_APPLESS_MAIN(TestDbgHelp)
#include "tst_dbghelp.moc"
