// IUnknown, the root of every interface of the audio API.
#pragma once

#include <guiddef.h>
#include <winerror.h>

struct IUnknown {
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void **object) = 0;
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE Release() = 0;

protected:
    ~IUnknown() = default; // objects end themselves in Release
};

extern const IID IID_IUnknown;
