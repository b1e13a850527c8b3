// Result codes of the host API that the product tests, prints or returns.
#pragma once

#include <windef.h>

#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)

#define S_OK static_cast<HRESULT>(0)
#define S_FALSE static_cast<HRESULT>(1)
#define E_NOTIMPL static_cast<HRESULT>(0x80004001U)
#define E_NOINTERFACE static_cast<HRESULT>(0x80004002U)
#define E_POINTER static_cast<HRESULT>(0x80004003U)
#define E_FAIL static_cast<HRESULT>(0x80004005U)
#define E_UNEXPECTED static_cast<HRESULT>(0x8000FFFFU)
#define E_ACCESSDENIED static_cast<HRESULT>(0x80070005U)
#define E_OUTOFMEMORY static_cast<HRESULT>(0x8007000EU)
#define E_INVALIDARG static_cast<HRESULT>(0x80070057U)
#define E_NOTFOUND static_cast<HRESULT>(0x80070490U)
#define DISP_E_BADVARTYPE static_cast<HRESULT>(0x80020008U)
#define STG_E_ACCESSDENIED static_cast<HRESULT>(0x80030005U)
#define CLASS_E_NOAGGREGATION static_cast<HRESULT>(0x80040110U)
#define REGDB_E_CLASSNOTREG static_cast<HRESULT>(0x80040154U)
#define CO_E_NOTINITIALIZED static_cast<HRESULT>(0x800401F0U)
#define RPC_E_CHANGED_MODE static_cast<HRESULT>(0x80010106U)

#define ERROR_SUCCESS 0U
#define ERROR_ACCESS_DENIED 5U
#define ERROR_INVALID_HANDLE 6U
#define ERROR_NOT_SUPPORTED 50U
#define ERROR_INVALID_PARAMETER 87U
#define ERROR_CALL_NOT_IMPLEMENTED 120U
#define ERROR_MOD_NOT_FOUND 126U
#define ERROR_PROC_NOT_FOUND 127U
#define ERROR_SERVICE_DOES_NOT_EXIST 1060U
#define ERROR_NOT_FOUND 1168U
