// The automation runtime's functions that a host uses, as one table the library hands out. A host
// that links none of them can load the component only when it first needs it, as the system
// loads an in-process server on Windows, and so start without the component's libraries.
#pragma once

#include "platform/automation.h"

#define TIVALO_RUNTIME_FUNCTIONS(X)                                                      \
  X(SysAllocStringLen) X(SysFreeString) X(SysStringLen)                                  \
  X(VariantInit) X(VariantClear) X(VariantCopyInd)                                       \
  X(VariantTimeToSystemTime) X(SystemTimeToVariantTime)                                  \
  X(SafeArrayCreateVector) X(SafeArrayGetDim) X(SafeArrayGetLBound) X(SafeArrayGetUBound) \
  X(SafeArrayAccessData) X(SafeArrayUnaccessData)                                        \
  X(VariantChangeType) X(MultiByteToWideChar) X(WideCharToMultiByte)                     \
  X(CLSIDFromString) X(CLSIDFromProgID) X(ProgIDFromCLSID) X(CoCreateInstance)           \
  X(CoInitialize) X(CoUninitialize) X(CoTaskMemFree) X(GetErrorInfo)                     \
  X(_set_invalid_parameter_handler)

struct TivaloRuntimeTable {
#define TIVALO_RUNTIME_TABLE_MEMBER(name) decltype(&::name) name;
  TIVALO_RUNTIME_FUNCTIONS(TIVALO_RUNTIME_TABLE_MEMBER)
#undef TIVALO_RUNTIME_TABLE_MEMBER
};

// Exported by the component library under this unmangled name.
extern "C" const TivaloRuntimeTable* TivaloRuntime();

namespace tivalo {

// The address of `name` (`TivaloRuntime`, `TivaloCatalogue`, ...) in the component library, which
// is loaded by the first call that needs it. Throws std::runtime_error, with the loader's reason,
// when it cannot be loaded.
void* component_symbol(const char* name);

// The same in another library of the component ("libTivaloCOM21.so.1"), loaded beside the first
// (which carries the runtime it uses).
void* other_component_symbol(const char* library, const char* name);

// The table an entry of the component library hands out, called through its own type.
template <class Table>
const Table* component_table(const char* name) {
  return reinterpret_cast<const Table* (*)()>(component_symbol(name))();
}

}  // namespace tivalo
