#include <windows.h>
#include <cstring>
#include <cwchar>
#include <dbghelp.h>

namespace {

struct Function {
    const char *name;
    FARPROC address;
};

template <typename Signature> FARPROC address(Signature *function)
{
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(function));
}

const Function *debugHelp()
{
    static const Function functions[] = {
        {"SymInitializeW", address(SymInitializeW)},
        {"SymGetModuleInfo64", address(SymGetModuleInfo64)},
        {"StackWalk64", address(StackWalk64)},
        {nullptr, nullptr},
    };
    return functions;
}

} // namespace

HMODULE LoadLibraryW(LPCWSTR name)
{
    if (name && std::wcscmp(name, L"dbghelp.dll") == 0)
        return const_cast<Function *>(debugHelp());
    SetLastError(name ? ERROR_MOD_NOT_FOUND : ERROR_INVALID_PARAMETER);
    return nullptr;
}

FARPROC GetProcAddress(HMODULE library, LPCSTR name)
{
    if (library != debugHelp() || !name) {
        SetLastError(library != debugHelp() ? ERROR_INVALID_HANDLE : ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    for (const Function *function = debugHelp(); function->name; ++function) {
        if (std::strcmp(function->name, name) == 0)
            return function->address;
    }
    SetLastError(ERROR_PROC_NOT_FOUND);
    return nullptr;
}
