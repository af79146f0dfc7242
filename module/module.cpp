#include "module/module.h"

#include "module/class_factory.h"
#include "module/identity.h"
#include "module/registrar.h"
#include "module/type_library.h"

#ifndef _WIN32
#include <dlfcn.h>
#endif

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace Morvek::Tivalo {

namespace {

using Identity::app_id_resource;
using Identity::first_class_resource;

// Zero-initialised before its constructor runs, and marked uninitialised again by its
// destructor, so the entry points can tell a module that is not (or no longer) there.
CTivaloModule the_module;

// Windows keeps a locale per thread, which the registrar's text handling follows; registration
// runs under the system default. Linux has no thread locale: this stand-in keeps the value so
// that registration saves, sets and restores it the same way.
constexpr LCID system_default_locale = 0x0800;
#ifdef _WIN32
LCID thread_locale() { return GetThreadLocale(); }
void set_thread_locale(LCID locale) { SetThreadLocale(locale); }
#else
thread_local LCID current_thread_locale = system_default_locale;
LCID thread_locale() { return current_thread_locale; }
void set_thread_locale(LCID locale) { current_thread_locale = locale; }
#endif

class SystemLocaleScope {
 public:
  SystemLocaleScope() : saved_(thread_locale()) { set_thread_locale(system_default_locale); }
  ~SystemLocaleScope() { set_thread_locale(saved_); }
  SystemLocaleScope(const SystemLocaleScope&) = delete;
  SystemLocaleScope& operator=(const SystemLocaleScope&) = delete;

 private:
  LCID saved_;
};

Registrar::Replacements app_replacements() { return {{L"APPID", Identity::app_id}}; }

Registrar::Replacements class_replacements() {
  std::wstring path = module_path();
  return {{L"APPID", Identity::app_id}, {L"Module", path}, {L"Module_Raw", path}};
}

HRESULT update_class_registry(const ClassMapEntry& entry, bool do_register) {
  return Registrar::update_registry_from_resource(entry.registry_resource(), do_register,
                                                  class_replacements(), module().per_user());
}

const wchar_t* no_description() { return nullptr; }
const void* no_categories() { return nullptr; }
void no_object_main(bool) {}

#ifndef _WIN32
// UTF-8 file names become wide strings one code point per wchar_t.
std::wstring widen(const char* text) {
  std::wstring out;
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p;) {
    unsigned c = *p++;
    int extra = c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : c >= 0xC0 ? 1 : 0;
    if (extra) c &= 0x3F >> extra;
    for (; extra > 0 && (*p & 0xC0) == 0x80; --extra) c = (c << 6) | (*p++ & 0x3F);
    out += wchar_t(c);
  }
  return out;
}
#endif

bool clsid_less(const std::pair<GUID, const ClassMapEntry*>& a,
                const std::pair<GUID, const ClassMapEntry*>& b) {
  return std::memcmp(&a.first, &b.first, sizeof(GUID)) < 0;
}

// The user's text "user", compared without regard to case and including its terminator.
bool names_user(LPCWSTR text) {
  const wchar_t* user = L"user";
  for (int i = 0; i < 5; ++i) {
    wchar_t c = text[i];
    if (c >= L'A' && c <= L'Z') c = wchar_t(c - L'A' + L'a');
    if (c != user[i]) return false;
    if (c == L'\0') break;
  }
  return true;
}

}  // namespace

int ClassMapEntry::registry_resource() const { return first_class_resource + info->k; }

namespace Module {
LONG lock() { return the_module.Lock(); }
LONG unlock() { return the_module.Unlock(); }
LONG lock_count() { return the_module.GetLockCount(); }

HRESULT create_instance(REFCLSID clsid, REFIID iid, void** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  IClassFactory* factory = nullptr;
  HRESULT hr = the_module.GetClassObject(clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory));
  if (FAILED(hr)) return hr;
  hr = factory->CreateInstance(nullptr, iid, out);
  factory->Release();
  return hr;
}
}  // namespace Module

CTivaloModule& module() { return the_module; }

#ifndef _WIN32
std::wstring module_path() {
  Dl_info info{};
  if (!dladdr(reinterpret_cast<void*>(&module_path), &info) || !info.dli_fname) return L"";
  // The path the library was loaded by, made absolute when the loader was given a relative one.
  if (info.dli_fname[0] == '/') return widen(info.dli_fname);
  char resolved[PATH_MAX];
  return widen(realpath(info.dli_fname, resolved) ? resolved : info.dli_fname);
}
#endif

CTivaloModule::CTivaloModule() {
  class_map_.reserve(size_t(class_table_size));
  for (int k = 0; k < class_table_size; ++k) {
    const ClassEntry& row = class_table[k];
    class_map_.push_back({row.clsid, TypeLibrary::find_class_by_clsid(*row.clsid),
                          &update_class_registry, &create_class_factory, row.create, nullptr,
                          &no_description, &no_categories, &no_object_main});
  }
  // Where two entries share a CLSID, the one nearer the front answers, as a walk would find it.
  for (const auto& entry : class_map_) {
    if (entry.clsid && entry.create_class_object) by_clsid_.emplace_back(*entry.clsid, &entry);
  }
  std::stable_sort(by_clsid_.begin(), by_clsid_.end(), clsid_less);
  initialised_ = true;
}

CTivaloModule::~CTivaloModule() {
  initialised_ = false;
  for (auto& entry : class_map_) entry.object_main(false);
  for (const auto& callback : termination_callbacks_) callback.first(callback.second);
  termination_callbacks_.clear();
  for (auto& entry : class_map_) {
    if (entry.class_factory) entry.class_factory->Release();
    entry.class_factory = nullptr;
  }
}

const ClassMapEntry* CTivaloModule::find(REFCLSID clsid) const {
  const std::pair<GUID, const ClassMapEntry*> wanted(clsid, nullptr);
  auto found = std::lower_bound(by_clsid_.begin(), by_clsid_.end(), wanted, clsid_less);
  if (found == by_clsid_.end() || !IsEqualGUID(found->first, clsid)) return nullptr;
  return found->second;
}

HRESULT CTivaloModule::GetClassObject(REFCLSID clsid, REFIID iid, void** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (!initialised_) return E_UNEXPECTED;
  auto* entry = const_cast<ClassMapEntry*>(find(clsid));
  if (!entry) return CLASS_E_CLASSNOTAVAILABLE;

  // The first test runs without the lock, so the cached pointer is read and published atomically.
  HRESULT hr = S_OK;
  IUnknown* cached = __atomic_load_n(&entry->class_factory, __ATOMIC_ACQUIRE);
  if (!cached) {
    std::lock_guard<std::mutex> hold(factory_creation_);
    cached = entry->class_factory;
    if (!cached) {
      void* factory = nullptr;
      hr = entry->create_class_object(entry->create_instance, IID_IUnknown, &factory);
      cached = static_cast<IUnknown*>(factory);
      __atomic_store_n(&entry->class_factory, cached, __ATOMIC_RELEASE);
    }
  }
  if (!cached) return FAILED(hr) ? hr : CLASS_E_CLASSNOTAVAILABLE;

  hr = cached->QueryInterface(iid, out);
  if (SUCCEEDED(hr) && !*out) return CLASS_E_CLASSNOTAVAILABLE;
  return hr;
}

HRESULT CTivaloModule::RegisterServer() {
  SystemLocaleScope locale;
  HRESULT hr = Registrar::update_registry_from_resource(app_id_resource, true, app_replacements(),
                                                        per_user_);
  if (FAILED(hr)) return hr;
  for (const auto& entry : class_map_) {
    hr = entry.update_registry(entry, true);
    if (FAILED(hr)) return hr;
  }
  return register_type_library(module_path(), per_user_);
}

HRESULT CTivaloModule::UnregisterServer() {
  SystemLocaleScope locale;
  HRESULT hr = S_OK;
  for (const auto& entry : class_map_) {
    hr = entry.update_registry(entry, false);
    if (FAILED(hr)) return hr;
  }
  hr = unregister_type_library(per_user_);
  if (FAILED(hr)) return hr;
  return Registrar::update_registry_from_resource(app_id_resource, false, app_replacements(),
                                                  per_user_);
}

HRESULT CTivaloModule::Install(BOOL install, LPCWSTR command_line) {
  if (command_line && names_user(command_line)) per_user_ = true;
  if (!install) return UnregisterServer();
  HRESULT hr = RegisterServer();
  if (FAILED(hr)) UnregisterServer();  // the registration's failure is what the caller learns
  return hr;
}

HRESULT CTivaloModule::AddTermFunc(TerminationCallback callback, std::uintptr_t argument) {
  if (!callback) return E_INVALIDARG;
  std::lock_guard<std::mutex> hold(factory_creation_);
  termination_callbacks_.emplace_back(callback, argument);
  return S_OK;
}

}  // namespace Morvek::Tivalo
