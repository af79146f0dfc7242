// The exported entry points: thin forwarders to the module object.
#include "module/entry_points.h"

#include "module/module.h"

using Morvek::Tivalo::guarded;
using Morvek::Tivalo::module;

extern "C" {

HRESULT DllGetClassObject(REFCLSID clsid, REFIID iid, void** out) {
  return guarded([&] { return module().GetClassObject(clsid, iid, out); });
}

HRESULT DllCanUnloadNow() { return module().GetLockCount() == 0 ? S_OK : S_FALSE; }

HRESULT DllRegisterServer() {
  return guarded([] { return module().RegisterServer(); });
}

HRESULT DllUnregisterServer() {
  return guarded([] { return module().UnregisterServer(); });
}

HRESULT DllInstall(BOOL install, LPCWSTR command_line) {
  return guarded([&] { return module().Install(install, command_line); });
}

}  // extern "C"
