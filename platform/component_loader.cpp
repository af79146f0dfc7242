// The component library is loaded when a host first needs it, not when the host starts: a host
// that only starts (`import tivalo`, `tivalo --help`) maps none of the component's libraries. The
// automation runtime's functions are defined here and forwarded to the library's own, through the
// table it hands out, as the system loads an in-process server on Windows.
#include "platform/runtime_table.h"

#include <dlfcn.h>
#include <link.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

std::once_flag loading;
void* library = nullptr;
std::string load_failure;
std::atomic<const TivaloRuntimeTable*> table{nullptr};
tivalo_invalid_parameter_handler pending_handler = nullptr;

// The host's own object (the tool, or the Python extension): the one this code is linked into.
void* host_object() {
  Dl_info self{};
  if (!dladdr(reinterpret_cast<void*>(&host_object), &self) || !self.dli_fname) return nullptr;
  void* host = dlopen(self.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
  return host ? host : dlopen(nullptr, RTLD_LAZY);  // the main program has no name of its own
}

// The library where the host's own dependencies are looked for: its run path (beside it, the
// prefix's library directory, or the build tree), then the system's. Asked for explicitly, since
// a dlopen reached through an interposer (a sanitizer's) searches the interposer's run path.
void* open_from_host_paths(const char* file = TIVALO_COMPONENT_LIBRARY) {
  void* host = host_object();
  Dl_serinfo size{};
  if (!host || dlinfo(host, RTLD_DI_SERINFOSIZE, &size) != 0) return nullptr;
  std::vector<char> buffer(size.dls_size);
  auto* paths = reinterpret_cast<Dl_serinfo*>(buffer.data());
  *paths = size;
  if (dlinfo(host, RTLD_DI_SERINFO, paths) != 0) return nullptr;
  for (unsigned i = 0; i < paths->dls_cnt; ++i) {
    const std::string candidate =
        std::string(paths->dls_serpath[i].dls_name) + "/" + file;
    if (void* found = dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL)) return found;
  }
  return nullptr;
}

void load() {
  library = dlopen(TIVALO_COMPONENT_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  const char* reason = library ? nullptr : dlerror();
  const std::string first_reason = reason ? reason : "unknown reason";
  if (!library) library = open_from_host_paths();
  if (!library) {
    load_failure = "cannot load " TIVALO_COMPONENT_LIBRARY ": " + first_reason;
    return;
  }
  auto* entry = reinterpret_cast<const TivaloRuntimeTable* (*)()>(dlsym(library, "TivaloRuntime"));
  if (!entry) {
    library = nullptr;
    load_failure = TIVALO_COMPONENT_LIBRARY " has no TivaloRuntime";
    return;
  }
  if (pending_handler) entry()->_set_invalid_parameter_handler(pending_handler);
  table.store(entry(), std::memory_order_release);
}

const TivaloRuntimeTable& runtime() {
  if (const TivaloRuntimeTable* ready = table.load(std::memory_order_acquire)) return *ready;
  tivalo::component_symbol("TivaloRuntime");  // loads the library and its table, or throws
  return *table.load(std::memory_order_acquire);
}

// Nothing needs releasing before the library is loaded: nothing was allocated by it.
const TivaloRuntimeTable* loaded() { return table.load(std::memory_order_acquire); }

}  // namespace

void* tivalo::component_symbol(const char* name) {
  std::call_once(loading, load);
  if (!library) throw std::runtime_error(load_failure);
  void* symbol = dlsym(library, name);
  if (!symbol) throw std::runtime_error(std::string(TIVALO_COMPONENT_LIBRARY " has no ") + name);
  return symbol;
}

void* tivalo::other_component_symbol(const char* file, const char* name) {
  component_symbol("TivaloRuntime");  // the runtime the other library uses comes first
  void* other = dlopen(file, RTLD_NOW | RTLD_LOCAL);
  if (!other) other = open_from_host_paths(file);
  if (!other) throw std::runtime_error(std::string("cannot load ") + file);
  void* symbol = dlsym(other, name);
  if (!symbol) throw std::runtime_error(std::string(file) + " has no " + name);
  return symbol;
}

const GUID GUID_NULL = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};

BSTR SysAllocStringLen(const OLECHAR* text, UINT length) {
  return runtime().SysAllocStringLen(text, length);
}
void SysFreeString(BSTR text) {
  if (text && loaded()) loaded()->SysFreeString(text);
}
UINT SysStringLen(BSTR text) { return text ? runtime().SysStringLen(text) : 0; }
void VariantInit(VARIANTARG* variant) {
  if (variant) std::memset(variant, 0, sizeof(VARIANT));  // VT_EMPTY
}
HRESULT VariantClear(VARIANTARG* variant) {
  if (loaded()) return loaded()->VariantClear(variant);
  variant->vt = VT_EMPTY;  // only values the host made itself, none of which owns anything
  return S_OK;
}
HRESULT VariantCopyInd(VARIANT* target, const VARIANTARG* source) {
  return runtime().VariantCopyInd(target, source);
}
INT VariantTimeToSystemTime(DATE time, LPSYSTEMTIME system_time) {
  return runtime().VariantTimeToSystemTime(time, system_time);
}
INT SystemTimeToVariantTime(LPSYSTEMTIME system_time, DATE* time) {
  return runtime().SystemTimeToVariantTime(system_time, time);
}
SAFEARRAY* SafeArrayCreateVector(VARTYPE type, LONG lower_bound, ULONG count) {
  return runtime().SafeArrayCreateVector(type, lower_bound, count);
}
UINT SafeArrayGetDim(SAFEARRAY* array) { return runtime().SafeArrayGetDim(array); }
HRESULT SafeArrayGetLBound(SAFEARRAY* array, UINT dimension, LONG* bound) {
  return runtime().SafeArrayGetLBound(array, dimension, bound);
}
HRESULT SafeArrayGetUBound(SAFEARRAY* array, UINT dimension, LONG* bound) {
  return runtime().SafeArrayGetUBound(array, dimension, bound);
}
HRESULT SafeArrayAccessData(SAFEARRAY* array, void** data) {
  return runtime().SafeArrayAccessData(array, data);
}
HRESULT SafeArrayUnaccessData(SAFEARRAY* array) { return runtime().SafeArrayUnaccessData(array); }
HRESULT CLSIDFromString(LPCOLESTR text, LPCLSID clsid) {
  return runtime().CLSIDFromString(text, clsid);
}
HRESULT CLSIDFromProgID(LPCOLESTR progid, LPCLSID clsid) {
  return runtime().CLSIDFromProgID(progid, clsid);
}
HRESULT CoCreateInstance(REFCLSID clsid, LPUNKNOWN outer, DWORD context, REFIID iid, LPVOID* out) {
  return runtime().CoCreateInstance(clsid, outer, context, iid, out);
}
HRESULT VariantChangeType(VARIANTARG* target, const VARIANTARG* source, USHORT flags, VARTYPE type) {
  return runtime().VariantChangeType(target, source, flags, type);
}
int MultiByteToWideChar(UINT code_page, DWORD flags, LPCCH bytes, int length, LPWSTR wide,
                        int capacity) {
  return runtime().MultiByteToWideChar(code_page, flags, bytes, length, wide, capacity);
}
int WideCharToMultiByte(UINT code_page, DWORD flags, LPCWCH wide, int length, LPSTR bytes,
                        int capacity, LPCCH default_char, LPBOOL used_default_char) {
  return runtime().WideCharToMultiByte(code_page, flags, wide, length, bytes, capacity,
                                       default_char, used_default_char);
}
HRESULT ProgIDFromCLSID(REFCLSID clsid, LPOLESTR* progid) {
  return runtime().ProgIDFromCLSID(clsid, progid);
}
HRESULT CoInitialize(LPVOID reserved) { return loaded() ? loaded()->CoInitialize(reserved) : S_OK; }
void CoUninitialize() {
  if (loaded()) loaded()->CoUninitialize();
}
void CoTaskMemFree(LPVOID memory) {
  if (memory && loaded()) loaded()->CoTaskMemFree(memory);
}
HRESULT GetErrorInfo(ULONG reserved, IErrorInfo** info) {
  return runtime().GetErrorInfo(reserved, info);
}
tivalo_invalid_parameter_handler _set_invalid_parameter_handler(
    tivalo_invalid_parameter_handler handler) {
  if (loaded()) return loaded()->_set_invalid_parameter_handler(handler);
  const tivalo_invalid_parameter_handler previous = pending_handler;
  pending_handler = handler;
  return previous;
}
