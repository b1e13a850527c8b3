#include <objbase.h>

// CoInitializeEx is a C++ function here, so the linker knows it by a mangled name.
HRESULT mangledReal(LPVOID reserved, DWORD coInit) asm("__real__Z14CoInitializeExPvj");
HRESULT mangledWrap(LPVOID reserved, DWORD coInit) asm("__wrap__Z14CoInitializeExPvj");

extern "C" HRESULT __wrap_CoInitializeEx(LPVOID reserved, DWORD coInit);

HRESULT mangledWrap(LPVOID reserved, DWORD coInit)
{
    return __wrap_CoInitializeEx(reserved, coInit);
}

extern "C" HRESULT realCoInitializeEx(LPVOID reserved, DWORD coInit)
{
    return mangledReal(reserved, coInit);
}
