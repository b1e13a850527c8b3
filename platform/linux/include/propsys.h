// The read side of a property store.
#pragma once

#include <propidl.h>

struct PROPERTYKEY {
    GUID fmtid;
    DWORD pid;
};
static_assert(sizeof(PROPERTYKEY) == 20, "format identifier and property number");
using REFPROPERTYKEY = const PROPERTYKEY &;
using REFPROPVARIANT = const PROPVARIANT &;

inline bool operator==(REFPROPERTYKEY a, REFPROPERTYKEY b)
{
    return a.pid == b.pid && a.fmtid == b.fmtid;
}

struct IPropertyStore : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetCount(DWORD *count) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetAt(DWORD index, PROPERTYKEY *key) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT *value) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY key, REFPROPVARIANT value) = 0;
    virtual HRESULT STDMETHODCALLTYPE Commit() = 0;

protected:
    ~IPropertyStore() = default;
};

extern const IID IID_IPropertyStore;
