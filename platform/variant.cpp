#include <cstring>

#include "platform/automation.h"
#include "platform/variant_kinds.h"

using tivalo::detail::is_valid_variant_type;
using tivalo::detail::value_size;

void VariantInit(VARIANTARG* variant) {
  if (!variant) return;
  std::memset(variant, 0, sizeof(VARIANT));
  variant->vt = VT_EMPTY;
}

HRESULT VariantClear(VARIANTARG* variant) {
  if (!variant) return E_INVALIDARG;
  const VARTYPE vt = variant->vt;
  if (!is_valid_variant_type(vt)) return DISP_E_BADVARTYPE;
  if (vt & VT_ARRAY) {
    HRESULT hr = SafeArrayDestroy(variant->parray);
    if (FAILED(hr)) return hr;
  } else if (vt == VT_BSTR) {
    SysFreeString(variant->bstrVal);
  } else if ((vt == VT_DISPATCH || vt == VT_UNKNOWN) && variant->punkVal) {
    variant->punkVal->Release();
  }
  variant->vt = VT_EMPTY;
  return S_OK;
}

namespace {

// Turns a bitwise copy of `source` into an owning one: duplicates strings and arrays, AddRefs
// interfaces. References (VT_BYREF) stay references.
HRESULT take_ownership(VARIANT& copy) {
  const VARTYPE vt = copy.vt;
  if (vt & VT_BYREF) return S_OK;
  if (vt & VT_ARRAY) {
    SAFEARRAY* source = copy.parray;
    return SafeArrayCopy(source, &copy.parray);
  }
  if (vt == VT_BSTR && copy.bstrVal) {
    BSTR source = copy.bstrVal;
    copy.bstrVal = SysAllocStringByteLen(reinterpret_cast<LPCSTR>(source), SysStringByteLen(source));
    return copy.bstrVal ? S_OK : E_OUTOFMEMORY;
  }
  if ((vt == VT_DISPATCH || vt == VT_UNKNOWN) && copy.punkVal) copy.punkVal->AddRef();
  return S_OK;
}

// The value a VT_BYREF variant refers to, as a variant that does not own it.
HRESULT dereference(const VARIANT& reference, VARIANT& value) {
  VariantInit(&value);
  const VARTYPE vt = VARTYPE(reference.vt & ~VT_BYREF);
  if (!reference.byref) return E_INVALIDARG;
  if (vt == VT_VARIANT) {
    // Only one level of indirection is followed, as Windows does.
    if (reference.pvarVal->vt & VT_BYREF) return E_INVALIDARG;
    value = *reference.pvarVal;
    return S_OK;
  }
  if (vt == VT_DECIMAL) {
    value.decVal = *reference.pdecVal;
  } else if (vt & VT_ARRAY) {
    value.parray = *reference.pparray;
  } else {
    std::memcpy(&value.llVal, reference.byref, value_size(vt));
  }
  value.vt = vt;
  return S_OK;
}

}  // namespace

// Clears `dest` and moves the owned value `copy` into it; on failure the copy is freed.
static HRESULT replace_with(VARIANT* dest, VARIANT& copy) {
  HRESULT hr = VariantClear(dest);
  if (FAILED(hr)) {
    VariantClear(&copy);
    return hr;
  }
  *dest = copy;
  return S_OK;
}

HRESULT VariantCopy(VARIANTARG* dest, const VARIANTARG* source) {
  if (!dest || !source) return E_INVALIDARG;
  if (dest == source) return S_OK;
  if (!is_valid_variant_type(source->vt)) return DISP_E_BADVARTYPE;
  VARIANT copy = *source;
  HRESULT hr = take_ownership(copy);
  if (FAILED(hr)) return hr;
  return replace_with(dest, copy);
}

HRESULT VariantCopyInd(VARIANT* dest, const VARIANTARG* source) {
  if (!dest || !source) return E_INVALIDARG;
  if (!(source->vt & VT_BYREF)) return VariantCopy(dest, source);
  if (!is_valid_variant_type(source->vt)) return DISP_E_BADVARTYPE;
  VARIANT copy;
  HRESULT hr = dereference(*source, copy);
  if (SUCCEEDED(hr)) hr = take_ownership(copy);
  if (FAILED(hr)) return hr;
  // `dest` may be `source`: it is only cleared once the value has been copied out.
  return replace_with(dest, copy);
}
