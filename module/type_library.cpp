#include "module/type_library.h"

#include "module/catalogue.h"
#include "module/registrar.h"
#include "module/registry.h"

#include <cstring>
#include <cwchar>

namespace Morvek::Tivalo {

namespace {

// The marshaller of dual interfaces, as the platform registers it for each of them.
constexpr const wchar_t* automation_marshaller = L"{00020424-0000-0000-c000-000000000046}";

std::wstring widen(const char* text) { return std::wstring(text, text + std::strlen(text)); }

std::wstring version_text() {
  wchar_t text[16];
  std::swprintf(text, 16, L"%x.%x", TypeLibrary::library.major_version,
                TypeLibrary::library.minor_version);
  return text;
}

std::wstring library_key(bool per_user) {
  return Registry::join(Registrar::classes_root(per_user),
                        L"TypeLib\\" + tivalo::to_wstring(TypeLibrary::library.libid));
}

std::wstring interface_key(bool per_user, const TypeLibrary::Class& c) {
  return Registry::join(Registrar::classes_root(per_user), L"Interface\\" + tivalo::to_wstring(c.iid));
}

std::wstring directory_of(const std::wstring& path) {
  size_t slash = path.find_last_of(L"/\\");
  return slash == std::wstring::npos ? std::wstring() : path.substr(0, slash);
}

}  // namespace

HRESULT register_type_library(const std::wstring& path, bool per_user) {
  Registry::Store& store = Registry::registry();
  const TypeLibrary::Library& library = TypeLibrary::library;
  std::wstring version = Registry::join(library_key(per_user), version_text());
  std::wstring lcid = std::to_wstring(library.lcid);
  std::wstring win32 = Registry::join(version, lcid + L"\\win32");

  HRESULT hr = store.create_key(win32);
  if (SUCCEEDED(hr)) hr = store.set_value(version, L"", widen(library.help_string));
  if (SUCCEEDED(hr)) hr = store.set_value(win32, L"", path);
  if (SUCCEEDED(hr)) hr = store.create_key(Registry::join(version, L"FLAGS"));
  if (SUCCEEDED(hr)) hr = store.set_value(Registry::join(version, L"FLAGS"), L"", L"0");
  if (SUCCEEDED(hr)) hr = store.create_key(Registry::join(version, L"HELPDIR"));
  if (SUCCEEDED(hr)) hr = store.set_value(Registry::join(version, L"HELPDIR"), L"", directory_of(path));

  // Every interface is dual: the platform's automation marshaller serves it.
  for (size_t k = 0; SUCCEEDED(hr) && k < TypeLibrary::class_count(); ++k) {
    const TypeLibrary::Class& c = TypeLibrary::classes()[k];
    std::wstring key = interface_key(per_user, c);
    for (const wchar_t* sub : {L"ProxyStubClsid", L"ProxyStubClsid32"}) {
      if (SUCCEEDED(hr)) hr = store.create_key(Registry::join(key, sub));
      if (SUCCEEDED(hr)) hr = store.set_value(Registry::join(key, sub), L"", automation_marshaller);
    }
    std::wstring typelib = Registry::join(key, L"TypeLib");
    if (SUCCEEDED(hr)) hr = store.set_value(key, L"", widen(c.interface_name));
    if (SUCCEEDED(hr)) hr = store.create_key(typelib);
    if (SUCCEEDED(hr)) hr = store.set_value(typelib, L"", tivalo::to_wstring(library.libid));
    if (SUCCEEDED(hr)) hr = store.set_value(typelib, L"Version", version_text());
  }
  return hr;
}

HRESULT unregister_type_library(bool per_user) {
  Registry::Store& store = Registry::registry();
  std::wstring library = library_key(per_user);
  std::wstring version = Registry::join(library, version_text());
  if (store.key_exists(version)) {
    HRESULT hr = store.delete_tree(version);
    if (FAILED(hr)) return hr;
  }
  // The library key goes with its last version.
  if (store.key_exists(library) && store.subkeys(library).empty()) store.delete_key(library);
  for (size_t k = 0; k < TypeLibrary::class_count(); ++k) {
    std::wstring key = interface_key(per_user, TypeLibrary::classes()[k]);
    if (store.key_exists(key)) {
      HRESULT hr = store.delete_tree(key);
      if (FAILED(hr)) return hr;
    }
  }
  return S_OK;
}

}  // namespace Morvek::Tivalo
