// The component is loaded when the host first needs it, not with the extension: `import tivalo`
// then costs no more than the extension itself, and the component's libraries are mapped by the
// first Dispatch(). The automation runtime's functions the host calls are defined here and
// forwarded to the library's own, through the table it hands out.
#include "platform/runtime_table.h"

#include <dlfcn.h>

#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>

namespace {

std::once_flag loading;
const TivaloRuntimeTable* table = nullptr;
std::string load_failure;
tivalo_invalid_parameter_handler pending_handler = nullptr;

void load() {
  // The library is found as the extension's own dependencies are: beside it, or through its
  // run path (the prefix's library directory, or the build tree).
  void* library = dlopen(TIVALO_COMPONENT_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  auto* entry = library ? reinterpret_cast<const TivaloRuntimeTable* (*)()>(
                              dlsym(library, "TivaloRuntime"))
                        : nullptr;
  if (!entry) {
    const char* reason = dlerror();
    load_failure = std::string("tivalo: cannot load " TIVALO_COMPONENT_LIBRARY ": ") +
                   (reason ? reason : "no runtime table");
    return;
  }
  table = entry();
  if (pending_handler) table->_set_invalid_parameter_handler(pending_handler);
}

// The runtime, loaded on first use; a library that cannot be loaded fails every call that needs it.
const TivaloRuntimeTable& runtime() {
  std::call_once(loading, load);
  if (!table) throw std::runtime_error(load_failure);
  return *table;
}

// Nothing needs releasing before the library is loaded: nothing was allocated by it.
const TivaloRuntimeTable* loaded() { return table; }

}  // namespace

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
