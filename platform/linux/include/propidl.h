// PROPVARIANT, reduced to the kinds of value that an endpoint's property store holds here.
#pragma once

#include <objbase.h>

using VARTYPE = USHORT;

enum VARENUM : VARTYPE {
    VT_EMPTY = 0,
    VT_UI4 = 19,
    VT_LPWSTR = 31,
};

struct PROPVARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        ULONG ulVal;
        LPWSTR pwszVal;
        ULONGLONG padding[2];
    };
};
static_assert(offsetof(PROPVARIANT, pwszVal) == 8 && sizeof(PROPVARIANT) == 24,
              "the value follows an eight-byte head");

inline void PropVariantInit(PROPVARIANT *value)
{
    *value = PROPVARIANT {};
}

/// Frees what the value owns and makes it VT_EMPTY.
HRESULT PropVariantClear(PROPVARIANT *value);
