// Basic types of the host API, with the widths that the API documents on every host.
#pragma once

#include <cstddef>
#include <cstdint>

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using DWORD64 = std::uint64_t;
using BOOL = std::int32_t;
using UINT = std::uint32_t;
using UINT32 = std::uint32_t;
using UINT64 = std::uint64_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using DWORDLONG = std::uint64_t;
using SHORT = std::int16_t;
using USHORT = std::uint16_t;
using SIZE_T = std::size_t;
using ULONG_PTR = std::uintptr_t;
using DWORD_PTR = std::uintptr_t;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using HRESULT = std::int32_t;
using CHAR = char;
using WCHAR = wchar_t;
using LPWSTR = WCHAR *;
using LPCWSTR = const WCHAR *;
using LPCSTR = const char *;
using PVOID = void *;
using LPVOID = void *;
using HANDLE = void *;
using HMODULE = void *;
using HWND = struct HWND__ *;
using FARPROC = int (*)();

#ifndef FALSE
#define FALSE 0
#endif
#ifndef TRUE
#define TRUE 1
#endif

#define WINAPI
#define CALLBACK
#define STDMETHODCALLTYPE

static_assert(sizeof(LONG) == 4 && sizeof(ULONG) == 4 && sizeof(DWORD) == 4 && sizeof(HRESULT) == 4,
              "the API's long types are 32 bits wide");
