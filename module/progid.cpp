// Object creation and program identifiers, answered from the class map and from the class stores
// of the component's other libraries: what the platform's registry of classes provides on Windows.
#include "module/class_store.h"
#include "module/entry_points.h"
#include "module/identity.h"
#include "module/module.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <cwctype>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

namespace tivalo {
namespace {

std::mutex stores_lock;
std::vector<const ClassStore*>& stores() {
  static std::vector<const ClassStore*> added;
  return added;
}

std::vector<const ClassStore*> current_stores() {
  std::lock_guard<std::mutex> hold(stores_lock);
  return stores();
}

// Loads the other libraries from beside this one, each once; loading one adds its store. A
// library that is not there is simply not found, as an unregistered class is.
void load_other_libraries() {
  static std::once_flag loading;
  std::call_once(loading, [] {
    const std::filesystem::path here = std::filesystem::path(Morvek::Tivalo::module_path());
    for (const char* const* name = Morvek::Tivalo::Identity::other_libraries; *name; ++name) {
      const std::string beside = (here.parent_path() / *name).string();
      if (!dlopen(beside.c_str(), RTLD_NOW | RTLD_LOCAL)) dlopen(*name, RTLD_NOW | RTLD_LOCAL);
    }
  });
}

// The first answer of the stores that is not `not_theirs`, loading the other libraries when none
// of the loaded ones knows it.
template <class Ask>
HRESULT ask_stores(HRESULT not_theirs, Ask&& ask) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    for (const ClassStore* store : current_stores()) {
      const HRESULT hr = ask(*store);
      if (hr != not_theirs) return hr;
    }
    if (attempt == 0) load_other_libraries();
  }
  return not_theirs;
}

}  // namespace

void add_class_store(const ClassStore* store) {
  std::lock_guard<std::mutex> hold(stores_lock);
  stores().push_back(store);
}

void remove_class_store(const ClassStore* store) {
  std::lock_guard<std::mutex> hold(stores_lock);
  auto& added = stores();
  added.erase(std::remove(added.begin(), added.end(), store), added.end());
}

}  // namespace tivalo

using namespace Morvek::Tivalo;

HRESULT CLSIDFromProgID(LPCOLESTR progid, LPCLSID clsid) {
  if (!progid || !clsid) return E_INVALIDARG;
  const HRESULT hr = own_clsid_from_progid(progid, clsid);
  if (hr != CO_E_CLASSSTRING) return hr;
  return tivalo::ask_stores(CO_E_CLASSSTRING, [&](const tivalo::ClassStore& store) {
    return store.clsid_from_progid(progid, clsid);
  });
}

HRESULT ProgIDFromCLSID(REFCLSID clsid, LPOLESTR* progid) {
  if (!progid) return E_INVALIDARG;
  *progid = nullptr;
  const HRESULT hr = own_progid_from_clsid(clsid, progid);
  if (hr != REGDB_E_CLASSNOTREG) return hr;
  return tivalo::ask_stores(REGDB_E_CLASSNOTREG, [&](const tivalo::ClassStore& store) {
    return store.progid_from_clsid(clsid, progid);
  });
}

// The path a client takes: the class object from the module that has the class, then an
// instance from it.
HRESULT CoCreateInstance(REFCLSID clsid, LPUNKNOWN outer, DWORD context, REFIID iid, LPVOID* out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (!(context & CLSCTX_INPROC_SERVER)) return REGDB_E_CLASSNOTREG;
  IClassFactory* factory = nullptr;
  HRESULT hr = DllGetClassObject(clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory));
  if (hr == CLASS_E_CLASSNOTAVAILABLE) {
    hr = tivalo::ask_stores(CLASS_E_CLASSNOTAVAILABLE, [&](const tivalo::ClassStore& store) {
      return store.get_class_object(clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory));
    });
  }
  if (hr == CLASS_E_CLASSNOTAVAILABLE) return REGDB_E_CLASSNOTREG;
  if (FAILED(hr)) return hr;
  hr = factory->CreateInstance(outer, iid, out);
  factory->Release();
  return hr;
}
