// COM run-time calls: apartments, object creation and task memory.
#pragma once

#include <unknwn.h>

enum COINIT : DWORD {
    COINIT_MULTITHREADED = 0x0,
    COINIT_APARTMENTTHREADED = 0x2,
    COINIT_DISABLE_OLE1DDE = 0x4,
    COINIT_SPEED_OVER_MEMORY = 0x8,
};

enum CLSCTX : DWORD {
    CLSCTX_INPROC_SERVER = 0x1,
    CLSCTX_INPROC_HANDLER = 0x2,
    CLSCTX_LOCAL_SERVER = 0x4,
    CLSCTX_REMOTE_SERVER = 0x10,
};
#define CLSCTX_ALL                                                                                 \
    (CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER)

#define STGM_READ 0x00000000U

/// Joins the calling thread to an apartment. S_OK the first time, S_FALSE when the thread is
/// already in that kind of apartment, RPC_E_CHANGED_MODE when it is in the other kind.
HRESULT CoInitializeEx(LPVOID reserved, DWORD coInit);

/// Leaves what one successful CoInitializeEx entered.
void CoUninitialize();

/// Creates the one class of this host, CLSID_MMDeviceEnumerator; REGDB_E_CLASSNOTREG for others,
/// CO_E_NOTINITIALIZED on a thread without an apartment.
HRESULT CoCreateInstance(REFCLSID clsid, IUnknown *outer, DWORD context, REFIID riid,
                         LPVOID *object);

LPVOID CoTaskMemAlloc(SIZE_T size);
void CoTaskMemFree(LPVOID memory);
