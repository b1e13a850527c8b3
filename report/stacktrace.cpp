#include "report/stacktrace.h"

#include "report/hextext.h"

#include <dbghelp.h>

namespace {

constexpr int kMaximumFrames = 32;
constexpr DWORD kModuleStructureBytes = 1680;

template <typename Function> Function *resolve(HMODULE library, const char *name)
{
    // First to void (*)(): compilers accept a cast from there to any other function type.
    return reinterpret_cast<Function *>(
        reinterpret_cast<void (*)()>(GetProcAddress(library, name)));
}

using GetModuleInfo = decltype(SymGetModuleInfo64);

QString moduleName(GetModuleInfo *getModuleInfo, DWORD64 address)
{
    IMAGEHLP_MODULE64 module {};
    module.SizeOfStruct = kModuleStructureBytes;
    if (getModuleInfo && getModuleInfo(GetCurrentProcess(), address, &module)) {
        const uint length = qstrnlen(module.ModuleName, sizeof(module.ModuleName));
        if (length > 0)
            return QString::fromLatin1(module.ModuleName, static_cast<int>(length));
    }
    return QStringLiteral("[unknown]");
}

} // namespace

QString formatRegisters(const CONTEXT *context)
{
    if (!context)
        return QStringLiteral("  Context unavailable\n");
    return QStringLiteral("  RIP: 0x%1\n").arg(hexText(context->Rip, 16))
        + QStringLiteral("  RSP: 0x%1\n").arg(hexText(context->Rsp, 16))
        + QStringLiteral("  RBP: 0x%1\n").arg(hexText(context->Rbp, 16))
        + QStringLiteral("  RAX: 0x%1\n").arg(hexText(context->Rax, 16))
        + QStringLiteral("  RBX: 0x%1\n").arg(hexText(context->Rbx, 16))
        + QStringLiteral("  RCX: 0x%1\n").arg(hexText(context->Rcx, 16))
        + QStringLiteral("  RDX: 0x%1\n").arg(hexText(context->Rdx, 16))
        + QStringLiteral("  RSI: 0x%1\n").arg(hexText(context->Rsi, 16))
        + QStringLiteral("  RDI: 0x%1\n").arg(hexText(context->Rdi, 16))
        + QStringLiteral("  R8:  0x%1\n").arg(hexText(context->R8, 16))
        + QStringLiteral("  R9:  0x%1\n").arg(hexText(context->R9, 16))
        + QStringLiteral("  R10: 0x%1\n").arg(hexText(context->R10, 16))
        + QStringLiteral("  R11: 0x%1\n").arg(hexText(context->R11, 16))
        + QStringLiteral("  R12: 0x%1\n").arg(hexText(context->R12, 16))
        + QStringLiteral("  R13: 0x%1\n").arg(hexText(context->R13, 16))
        + QStringLiteral("  R14: 0x%1\n").arg(hexText(context->R14, 16))
        + QStringLiteral("  R15: 0x%1\n").arg(hexText(context->R15, 16));
}

QString captureStackTrace(EXCEPTION_POINTERS *pointers)
{
    static const HMODULE library = LoadLibraryW(L"dbghelp.dll");
    if (!library)
        return QStringLiteral("  [dbghelp.dll not available for stack trace]\n");

    static auto *const symInitialize = resolve<decltype(SymInitializeW)>(library, "SymInitializeW");
    static auto *const getModuleInfo = resolve<GetModuleInfo>(library, "SymGetModuleInfo64");
    if (!symInitialize)
        return QStringLiteral("  [Symbol functions not available]\n");

    static const bool initialized = symInitialize(GetCurrentProcess(), nullptr, TRUE) != FALSE;
    if (!initialized)
        return QStringLiteral("  [Failed to initialize symbols]\n");

    static auto *const stackWalk = resolve<decltype(StackWalk64)>(library, "StackWalk64");
    QString trace;
    if (CONTEXT *const context = pointers->ContextRecord) {
        STACKFRAME64 frame {};
        frame.AddrPC.Offset = context->Rip;
        frame.AddrPC.Mode = AddrModeFlat;
        frame.AddrStack.Offset = context->Rsp;
        frame.AddrStack.Mode = AddrModeFlat;
        frame.AddrFrame.Offset = context->Rbp;
        frame.AddrFrame.Mode = AddrModeFlat;

        for (int number = 0; number < kMaximumFrames; ++number) {
            if (!stackWalk
                || !stackWalk(IMAGE_FILE_MACHINE_AMD64, GetCurrentProcess(), GetCurrentThread(),
                              &frame, context, nullptr, nullptr, nullptr, nullptr)
                || frame.AddrPC.Offset == 0) {
                break;
            }
            trace += QStringLiteral("  #%1 0x%2 (%3)\n")
                         .arg(QString::number(number).rightJustified(2),
                              hexText(frame.AddrPC.Offset, 16),
                              moduleName(getModuleInfo, frame.AddrPC.Offset));
        }
    }
    return trace.isEmpty() ? QStringLiteral("  [No stack frames captured]\n") : trace;
}
