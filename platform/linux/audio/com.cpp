// Apartments, object creation and task memory.

#include "platform/linux/audio/mmdeviceenumerator.h"

#include <atomic>
#include <cstdlib>
#include <objbase.h>
#include <propidl.h>

namespace {

// Threads in the multithreaded apartment. While there is one, every thread without an apartment
// of its own belongs to it.
std::atomic<int> s_multithreaded {0};

class ThreadApartment {
public:
    ~ThreadApartment()
    {
        while (m_entries)
            leave();
    }

    HRESULT enter(bool multithreaded)
    {
        if (m_entries && m_multithreaded != multithreaded)
            return RPC_E_CHANGED_MODE;
        if (m_entries++)
            return S_FALSE;
        m_multithreaded = multithreaded;
        if (multithreaded)
            ++s_multithreaded;
        return S_OK;
    }

    void leave()
    {
        if (m_entries && --m_entries == 0 && m_multithreaded)
            --s_multithreaded;
    }

    bool entered() const { return m_entries != 0; }

private:
    unsigned m_entries = 0;
    bool m_multithreaded = false;
};

thread_local ThreadApartment t_apartment;

} // namespace

HRESULT CoInitializeEx(LPVOID reserved, DWORD coInit)
{
    constexpr DWORD known =
        COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE | COINIT_SPEED_OVER_MEMORY;
    if (reserved || (coInit & ~known))
        return E_INVALIDARG;
    return t_apartment.enter(!(coInit & COINIT_APARTMENTTHREADED));
}

void CoUninitialize()
{
    t_apartment.leave();
}

HRESULT CoCreateInstance(REFCLSID clsid, IUnknown *outer, DWORD context, REFIID riid,
                         LPVOID *object)
{
    if (!object)
        return E_POINTER;
    *object = nullptr;
    if (!t_apartment.entered() && !s_multithreaded)
        return CO_E_NOTINITIALIZED;
    if (clsid != CLSID_MMDeviceEnumerator || !(context & CLSCTX_INPROC_SERVER))
        return REGDB_E_CLASSNOTREG;
    if (outer)
        return CLASS_E_NOAGGREGATION;
    IMMDeviceEnumerator *const enumerator = MMDeviceEnumerator::create();
    const HRESULT hr = enumerator->QueryInterface(riid, object);
    enumerator->Release();
    return hr;
}

LPVOID CoTaskMemAlloc(SIZE_T size)
{
    return std::malloc(size ? size : 1);
}

void CoTaskMemFree(LPVOID memory)
{
    std::free(memory);
}

HRESULT PropVariantClear(PROPVARIANT *value)
{
    if (!value)
        return S_OK;
    switch (value->vt) {
    case VT_LPWSTR:
        CoTaskMemFree(value->pwszVal);
        break;
    case VT_EMPTY:
    case VT_UI4:
        break;
    default:
        return DISP_E_BADVARTYPE;
    }
    PropVariantInit(value);
    return S_OK;
}
