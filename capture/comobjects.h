// Helpers for COM objects that are held as raw pointers.
#pragma once

#include <unknwn.h>

/// The result of a call that may "succeed" without its object: that counts as E_POINTER.
inline HRESULT resultWithObject(HRESULT hr, const void *object)
{
    return SUCCEEDED(hr) && !object ? E_POINTER : hr;
}

/// Drops the reference and sets the pointer to null. Does nothing with a null pointer.
template <typename Interface> void releaseAndClear(Interface *&object)
{
    if (object)
        object->Release();
    object = nullptr;
}
