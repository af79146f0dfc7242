// What the module takes from Windows itself: its own file and resources (the registry scripts
// and the type library, resource TYPELIB 1), and the system's type-library registration.
#include "module/catalogue.h"
#include "module/module.h"
#include "module/registrar.h"
#include "module/type_info.h"
#include "module/type_library.h"

#include <map>
#include <mutex>
#include <string>

namespace Morvek::Tivalo {

namespace {

HMODULE this_module() {
  static const HMODULE handle = [] {
    HMODULE found = nullptr;
    GetModuleHandleExW(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        reinterpret_cast<LPCWSTR>(&this_module), &found);
    return found;
  }();
  return handle;
}

// The type library as the module carries it, REGKIND_NONE: loading registers nothing.
HRESULT load_own_type_library(ITypeLib** library) {
  return LoadTypeLibEx(module_path().c_str(), REGKIND_NONE, library);
}

using TypeLibRegistration = HRESULT(WINAPI*)(ITypeLib*, LPOLESTR, LPOLESTR);
using TypeLibUnregistration = HRESULT(WINAPI*)(REFGUID, WORD, WORD, LCID, SYSKIND);

// The per-user variants are looked up at run time: older systems lack them.
template <class Function>
Function oleaut_function(const char* name) {
  HMODULE oleaut = GetModuleHandleW(L"oleaut32.dll");
  return oleaut ? reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(oleaut, name)))
                : nullptr;
}

}  // namespace

std::wstring module_path() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    DWORD length = GetModuleFileNameW(this_module(), &path[0], DWORD(path.size()));
    if (length == 0) return L"";
    if (length < path.size()) {
      path.resize(length);
      return path;
    }
    path.resize(path.size() * 2);
  }
}

namespace Registrar {

// The script resources are UTF-8 text; each is widened once and kept.
const wchar_t* registry_script(int id) {
  static std::mutex lock;
  static std::map<int, std::wstring> scripts;
  std::lock_guard<std::mutex> hold(lock);
  auto known = scripts.find(id);
  if (known != scripts.end()) return known->second.c_str();

  HRSRC found = FindResourceW(this_module(), MAKEINTRESOURCEW(id), L"REGISTRY");
  HGLOBAL loaded = found ? LoadResource(this_module(), found) : nullptr;
  const char* bytes = loaded ? static_cast<const char*>(LockResource(loaded)) : nullptr;
  if (!bytes) return nullptr;
  const int size = int(SizeofResource(this_module(), found));
  const int length = MultiByteToWideChar(CP_UTF8, 0, bytes, size, nullptr, 0);
  std::wstring text(size_t(length > 0 ? length : 0), L'\0');
  if (length > 0) MultiByteToWideChar(CP_UTF8, 0, bytes, size, &text[0], length);
  return scripts.emplace(id, std::move(text)).first->second.c_str();
}

}  // namespace Registrar

HRESULT register_type_library(const std::wstring& path, bool per_user) {
  ITypeLib* library = nullptr;
  HRESULT hr = LoadTypeLibEx(path.c_str(), REGKIND_NONE, &library);
  if (FAILED(hr)) return hr;
  std::wstring directory = path.substr(0, path.find_last_of(L"\\/"));
  std::wstring file = path;
  if (per_user) {
    auto register_for_user = oleaut_function<TypeLibRegistration>("RegisterTypeLibForUser");
    hr = register_for_user ? register_for_user(library, &file[0], &directory[0])
                           : TYPE_E_REGISTRYACCESS;
  } else {
    hr = RegisterTypeLib(library, &file[0], &directory[0]);
  }
  library->Release();
  return hr;
}

HRESULT unregister_type_library(bool per_user) {
  ITypeLib* library = nullptr;
  HRESULT hr = load_own_type_library(&library);
  if (FAILED(hr)) return hr;
  TLIBATTR* attributes = nullptr;
  hr = library->GetLibAttr(&attributes);
  if (SUCCEEDED(hr)) {
    auto unregister = per_user ? oleaut_function<TypeLibUnregistration>("UnRegisterTypeLibForUser")
                               : &UnRegisterTypeLib;
    hr = unregister ? unregister(attributes->guid, attributes->wMajorVerNum,
                                 attributes->wMinorVerNum, attributes->lcid, attributes->syskind)
                    : TYPE_E_REGISTRYACCESS;
    library->ReleaseTLibAttr(attributes);
  }
  library->Release();
  // Nothing registered is nothing to remove.
  return hr == TYPE_E_REGISTRYACCESS || hr == TYPE_E_LIBNOTREGISTERED ? S_OK : hr;
}

// The registered type library's own type information; the module's resource when the library
// is not registered.
HRESULT create_type_info(int k, ITypeInfo** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (k < 0 || size_t(k) >= TypeLibrary::class_count()) return E_INVALIDARG;
  static std::mutex lock;
  static ITypeLib* library = nullptr;
  {
    std::lock_guard<std::mutex> hold(lock);
    if (!library) {
      const TypeLibrary::Library& l = TypeLibrary::library;
      if (FAILED(LoadRegTypeLib(l.libid, l.major_version, l.minor_version, 0, &library)) &&
          FAILED(load_own_type_library(&library)))
        library = nullptr;
    }
  }
  if (!library) return TYPE_E_CANTLOADLIBRARY;
  return library->GetTypeInfoOfGuid(TypeLibrary::classes()[size_t(k)].iid, out);
}

}  // namespace Morvek::Tivalo
