// The linker leads the product's calls here first (--wrap).
#include "tests/support/comfault.h"

#include <atomic>
#include <objbase.h>

namespace {

std::atomic<HRESULT> s_code {S_OK};

} // namespace

void failCoInitializeEx(HRESULT code)
{
    s_code = code;
}

// NOLINTBEGIN(bugprone-reserved-identifier): the names are the linker's.
extern "C" {
HRESULT __real__Z14CoInitializeExPvj(LPVOID reserved, DWORD coInit);
HRESULT __wrap__Z14CoInitializeExPvj(LPVOID reserved, DWORD coInit)
{
    const HRESULT code = s_code;
    return FAILED(code) ? code : __real__Z14CoInitializeExPvj(reserved, coInit);
}
}
// NOLINTEND(bugprone-reserved-identifier)
