// Prints the stack trace of a made-up stack, walked with functions that fail in the way that the
// argument names. A program of its own for each way: what has been loaded stays loaded.
#include "report/stacktrace.h"
#include "tests/report/fakehost.h"

#include <cstdio>
#include <cstring>
#include <dbghelp.h>
#include <string>

namespace {

std::string s_way;
int s_frames = 0;
int s_initializations = 0;

BOOL initialize(HANDLE process, LPCWSTR path, BOOL invade)
{
    ++s_initializations;
    const bool right = process == GetCurrentProcess() && !path && invade == TRUE;
    return right && s_way != "failed-symbols" ? TRUE : FALSE;
}

BOOL moduleInfo(HANDLE process, DWORD64 address, IMAGEHLP_MODULE64 *module)
{
    if (process != GetCurrentProcess() || module->SizeOfStruct != 1680 || address == 0x1001)
        return FALSE;
    if (address == 0x1002)
        return TRUE; // without a name
    if (address == 0x1003)
        std::memset(module->ModuleName, 'x', sizeof(module->ModuleName)); // without an end
    else if (address == 0x1004)
        std::strcpy(module->ModuleName, "caf\xe9"); // Latin-1
    else
        std::strcpy(module->ModuleName, "module");
    return TRUE;
}

BOOL walk(DWORD machine, HANDLE process, HANDLE thread, STACKFRAME64 *frame, PVOID context,
          PREAD_PROCESS_MEMORY_ROUTINE64 readMemory, PFUNCTION_TABLE_ACCESS_ROUTINE64 table,
          PGET_MODULE_BASE_ROUTINE64 base, PTRANSLATE_ADDRESS_ROUTINE64 translate)
{
    const auto *registers = static_cast<CONTEXT *>(context);
    if (s_frames == 0) {
        const bool right = machine == 0x8664 && process == GetCurrentProcess()
            && thread == GetCurrentThread() && !readMemory && !table && !base && !translate
            && frame->AddrPC.Offset == registers->Rip && frame->AddrPC.Mode == AddrModeFlat
            && frame->AddrStack.Offset == registers->Rsp && frame->AddrStack.Mode == AddrModeFlat
            && frame->AddrFrame.Offset == registers->Rbp && frame->AddrFrame.Mode == AddrModeFlat;
        if (!right)
            return FALSE;
    }
    if (s_way == "failing-walk" || (s_way == "thirteen" && s_frames == 13))
        return FALSE;
    frame->AddrPC.Offset =
        s_way == "zero" && s_frames == 2 ? 0 : 0x1000 + static_cast<DWORD64>(s_frames);
    ++s_frames;
    return TRUE;
}

template <typename Signature> FARPROC address(Signature *function)
{
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(function));
}

} // namespace

int main(int argc, char **argv)
{
    s_way = argc > 1 ? argv[1] : "";
    fakeHost().loadLibrary = [](const wchar_t *name) -> HMODULE {
        const bool known = std::wcscmp(name, L"dbghelp.dll") == 0 && s_way != "no-library";
        return known ? reinterpret_cast<HMODULE>(&s_frames) : nullptr;
    };
    fakeHost().getProcAddress = [](const char *name) -> FARPROC {
        const std::string wanted = name;
        if (wanted == "SymInitializeW" && s_way != "no-symbols")
            return address(initialize);
        if (wanted == "SymGetModuleInfo64" && s_way != "no-modules")
            return address(moduleInfo);
        if (wanted == "StackWalk64" && s_way != "no-walk")
            return address(walk);
        return nullptr;
    };

    EXCEPTION_RECORD record {};
    CONTEXT context {};
    context.Rip = 0x1000;
    context.Rsp = 0x2000;
    context.Rbp = 0x3000;
    EXCEPTION_POINTERS pointers {&record, &context};
    std::fputs(captureStackTrace(&pointers).toUtf8().constData(), stdout);
    s_frames = 0;
    // Once more: the library and its functions are asked for once, success or not.
    std::puts("again");
    std::fputs(captureStackTrace(&pointers).toUtf8().constData(), stdout);
    std::printf("loads %d resolves %d initializations %d\n", fakeHost().loadCalls,
                fakeHost().resolveCalls, s_initializations);
}
