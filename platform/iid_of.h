#pragma once
// tivalo::iid_of<I>(): the interface identifier of interface I, for QueryInterface in templates.
// Every interface declares its own with TIVALO_IID_OF(I), which names the constant IID_I.
#include <type_traits>

#include "platform/runtime.h"

namespace tivalo {

template <class I>
struct no_known_iid : std::false_type {};

template <class I>
const IID& iid_of() {
  static_assert(no_known_iid<I>::value, "no TIVALO_IID_OF(I) is visible for this interface");
  return GUID_NULL;
}

}  // namespace tivalo

#define TIVALO_IID_OF(I)                   \
  namespace tivalo {                       \
  template <>                              \
  inline const IID& iid_of<I>() {          \
    return IID_##I;                        \
  }                                        \
  }

TIVALO_IID_OF(IUnknown)
TIVALO_IID_OF(IDispatch)
TIVALO_IID_OF(IClassFactory)
TIVALO_IID_OF(IErrorInfo)
TIVALO_IID_OF(ICreateErrorInfo)
TIVALO_IID_OF(ISupportErrorInfo)
TIVALO_IID_OF(ITypeInfo)
