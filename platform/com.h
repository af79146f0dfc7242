#pragma once
// Task memory, apartment set-up and object creation.
#include "platform/interfaces.h"

LPVOID CoTaskMemAlloc(SIZE_T size);
LPVOID CoTaskMemRealloc(LPVOID memory, SIZE_T size);
void CoTaskMemFree(LPVOID memory);

typedef enum tagCOINIT {
  COINIT_MULTITHREADED = 0x0,
  COINIT_APARTMENTTHREADED = 0x2,
  COINIT_DISABLE_OLE1DDE = 0x4,
  COINIT_SPEED_OVER_MEMORY = 0x8
} COINIT;
// There are no apartments to enter here: these succeed and do nothing, so clients written for
// Windows run unchanged.
HRESULT CoInitialize(LPVOID reserved);
HRESULT CoInitializeEx(LPVOID reserved, DWORD coInit);
void CoUninitialize();

typedef enum tagCLSCTX {
  CLSCTX_INPROC_SERVER = 0x1,
  CLSCTX_INPROC_HANDLER = 0x2,
  CLSCTX_LOCAL_SERVER = 0x4,
  CLSCTX_REMOTE_SERVER = 0x10
} CLSCTX;
#define CLSCTX_INPROC (CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER)
#define CLSCTX_SERVER (CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER)
#define CLSCTX_ALL (CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER)

// Answered by the component module from its class map (defined there, not in the runtime).
// ProgIDFromCLSID's text is freed with CoTaskMemFree.
HRESULT ProgIDFromCLSID(REFCLSID clsid, LPOLESTR* progId);
HRESULT CLSIDFromProgID(LPCOLESTR progId, LPCLSID clsid);
HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, LPVOID* object);
