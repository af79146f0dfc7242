// The five entry points a host finds in the library by name.
#pragma once

#include "platform/automation.h"

#if defined(_WIN32)
#define TIVALO_ENTRY_POINT  // exported by name from the module definition file
#else
#define TIVALO_ENTRY_POINT __attribute__((visibility("default")))
#endif

extern "C" {
TIVALO_ENTRY_POINT HRESULT DllGetClassObject(REFCLSID clsid, REFIID iid, void** out);
TIVALO_ENTRY_POINT HRESULT DllCanUnloadNow();
TIVALO_ENTRY_POINT HRESULT DllRegisterServer();
TIVALO_ENTRY_POINT HRESULT DllUnregisterServer();
TIVALO_ENTRY_POINT HRESULT DllInstall(BOOL install, LPCWSTR command_line);
}
