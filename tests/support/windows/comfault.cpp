// Calls of the host go through pointers, __imp_<name>; the linker takes this one before it looks
// into an import library.
#include "tests/support/comfault.h"

#include <atomic>
#include <objbase.h>
#include <QLibrary>

namespace {

std::atomic<HRESULT> s_code {S_OK};

HRESULT WINAPI initialize(LPVOID reserved, DWORD coInit)
{
    const HRESULT code = s_code;
    if (FAILED(code))
        return code;
    // Qt's library has pointers of its own.
    static const auto real = reinterpret_cast<HRESULT(WINAPI *)(LPVOID, DWORD)>(
        QLibrary::resolve(QStringLiteral("ole32"), "CoInitializeEx"));
    return real(reserved, coInit);
}

} // namespace

extern "C" {
extern HRESULT(WINAPI *const __imp_CoInitializeEx)(LPVOID, DWORD);
HRESULT(WINAPI *const __imp_CoInitializeEx)(LPVOID, DWORD) = initialize;
}

void failCoInitializeEx(HRESULT code)
{
    s_code = code;
}
