// GUID, its comparison and the reference types that the API's calls take.
#pragma once

#include <cstring>
#include <windef.h>

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};
static_assert(sizeof(GUID) == 16, "a GUID is 16 bytes");

using IID = GUID;
using CLSID = GUID;
using LPCGUID = const GUID *;
using REFIID = const IID &;
using REFCLSID = const CLSID &;

inline bool operator==(const GUID &a, const GUID &b)
{
    return std::memcmp(&a, &b, sizeof(GUID)) == 0;
}
inline bool operator!=(const GUID &a, const GUID &b)
{
    return !(a == b);
}
