#pragma once
// Facts about VARTYPEs shared by the VARIANT and SAFEARRAY code (internal to the runtime).
#include "platform/automation.h"

namespace tivalo::detail {

// Bytes a value of the plain type `vt` occupies (0 for types without a fixed-size value).
inline size_t value_size(VARTYPE vt) {
  switch (vt) {
    case VT_I1: case VT_UI1: return 1;
    case VT_I2: case VT_UI2: case VT_BOOL: return 2;
    case VT_I4: case VT_UI4: case VT_INT: case VT_UINT: case VT_R4: case VT_ERROR: return 4;
    case VT_R8: case VT_DATE: case VT_I8: case VT_UI8: case VT_CY: return 8;
    case VT_BSTR: return sizeof(BSTR);
    case VT_DISPATCH: case VT_UNKNOWN: return sizeof(IUnknown*);
    case VT_VARIANT: return sizeof(VARIANT);
    case VT_DECIMAL: return sizeof(DECIMAL);
    default: return 0;
  }
}

// Whether a VARIANT may carry `vt`: a plain type, optionally as an array and/or by reference.
inline bool is_valid_variant_type(VARTYPE vt) {
  const VARTYPE base = vt & VT_TYPEMASK;
  const bool byRef = vt & VT_BYREF, array = vt & VT_ARRAY;
  if (vt & ~(VT_TYPEMASK | VT_BYREF | VT_ARRAY)) return false;
  if (base == VT_EMPTY || base == VT_NULL) return !byRef && !array;
  if (base == VT_VARIANT) return byRef || array;
  return value_size(base) != 0;
}

}  // namespace tivalo::detail
