#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/automation.h"
#include "platform/variant_kinds.h"

namespace {

// The descriptor is allocated behind a header that remembers the element type.
struct ArrayBlock {
  VARTYPE vt;
  SAFEARRAY array;
};

ArrayBlock* block_of(SAFEARRAY* array) {
  return reinterpret_cast<ArrayBlock*>(reinterpret_cast<char*>(array) - offsetof(ArrayBlock, array));
}

USHORT features_of(VARTYPE vt) {
  USHORT kind = vt == VT_BSTR ? FADF_BSTR
              : vt == VT_UNKNOWN ? FADF_UNKNOWN
              : vt == VT_DISPATCH ? FADF_DISPATCH
              : vt == VT_VARIANT ? FADF_VARIANT
              : 0;
  return USHORT(kind | FADF_HAVEVARTYPE);
}

VARTYPE vartype_of(SAFEARRAY* array) { return block_of(array)->vt; }

bool owns_resources(VARTYPE vt) {
  return vt == VT_BSTR || vt == VT_UNKNOWN || vt == VT_DISPATCH || vt == VT_VARIANT;
}

void* element_at(SAFEARRAY* array, ULONG offset) {
  return static_cast<char*>(array->pvData) + size_t(offset) * array->cbElements;
}

// Releases what one element owns and leaves it zeroed.
void clear_element(VARTYPE vt, void* element) {
  switch (vt) {
    case VT_BSTR: SysFreeString(*static_cast<BSTR*>(element)); break;
    case VT_UNKNOWN:
    case VT_DISPATCH:
      if (IUnknown* object = *static_cast<IUnknown**>(element)) object->Release();
      break;
    case VT_VARIANT: VariantClear(static_cast<VARIANT*>(element)); break;
    default: break;
  }
}

// Copies one element value into zeroed or cleared storage.
HRESULT copy_element(VARTYPE vt, void* target, const void* source, ULONG size) {
  switch (vt) {
    case VT_BSTR: {
      BSTR text = *static_cast<const BSTR*>(source);
      BSTR copy = text ? SysAllocStringByteLen(reinterpret_cast<LPCSTR>(text), SysStringByteLen(text)) : nullptr;
      if (text && !copy) return E_OUTOFMEMORY;
      *static_cast<BSTR*>(target) = copy;
      return S_OK;
    }
    case VT_UNKNOWN:
    case VT_DISPATCH: {
      IUnknown* object = *static_cast<IUnknown* const*>(source);
      if (object) object->AddRef();
      *static_cast<IUnknown**>(target) = object;
      return S_OK;
    }
    case VT_VARIANT:
      VariantInit(static_cast<VARIANT*>(target));
      return VariantCopy(static_cast<VARIANT*>(target), static_cast<const VARIANT*>(source));
    default:
      std::memcpy(target, source, size);
      return S_OK;
  }
}

HRESULT offset_of(SAFEARRAY* array, const LONG* indices, ULONG& offset) {
  if (!array || !indices) return E_INVALIDARG;
  const SAFEARRAYBOUND& bound = array->rgsabound[0];
  int64_t position = int64_t(indices[0]) - bound.lLbound;
  if (position < 0 || position >= int64_t(bound.cElements)) return DISP_E_BADINDEX;
  offset = ULONG(position);
  return S_OK;
}

}  // namespace

SAFEARRAY* SafeArrayCreate(VARTYPE vt, UINT dims, SAFEARRAYBOUND* bounds) {
  if (dims != 1 || !bounds) return nullptr;
  const ULONG size = ULONG(tivalo::detail::value_size(vt));
  if (size == 0) return nullptr;
  auto* block = new (std::nothrow) ArrayBlock{};
  if (!block) return nullptr;
  SAFEARRAY& array = block->array;
  block->vt = vt;
  array.cDims = 1;
  array.fFeatures = features_of(vt);
  array.cbElements = size;
  array.rgsabound[0] = bounds[0];
  if (bounds[0].cElements > 0) {
    array.pvData = std::calloc(bounds[0].cElements, size);
    if (!array.pvData) {
      delete block;
      return nullptr;
    }
  }
  return &array;
}

SAFEARRAY* SafeArrayCreateVector(VARTYPE vt, LONG lowerBound, ULONG count) {
  SAFEARRAYBOUND bound = {count, lowerBound};
  return SafeArrayCreate(vt, 1, &bound);
}

HRESULT SafeArrayDestroy(SAFEARRAY* array) {
  if (!array) return S_OK;
  if (array->cLocks > 0) return DISP_E_ARRAYISLOCKED;
  VARTYPE vt = vartype_of(array);
  if (owns_resources(vt))
    for (ULONG i = 0; i < array->rgsabound[0].cElements; ++i) clear_element(vt, element_at(array, i));
  std::free(array->pvData);
  delete block_of(array);
  return S_OK;
}

HRESULT SafeArrayCopy(SAFEARRAY* array, SAFEARRAY** copy) {
  if (!copy) return E_INVALIDARG;
  *copy = nullptr;
  if (!array) return S_OK;
  VARTYPE vt = vartype_of(array);
  SAFEARRAY* result = SafeArrayCreate(vt, 1, array->rgsabound);
  if (!result) return E_OUTOFMEMORY;
  for (ULONG i = 0; i < array->rgsabound[0].cElements; ++i) {
    HRESULT hr = copy_element(vt, element_at(result, i), element_at(array, i), array->cbElements);
    if (FAILED(hr)) {
      SafeArrayDestroy(result);
      return hr;
    }
  }
  *copy = result;
  return S_OK;
}

UINT SafeArrayGetDim(SAFEARRAY* array) { return array ? array->cDims : 0; }

UINT SafeArrayGetElemsize(SAFEARRAY* array) { return array ? array->cbElements : 0; }

HRESULT SafeArrayGetLBound(SAFEARRAY* array, UINT dim, LONG* lowerBound) {
  if (!array || !lowerBound) return E_INVALIDARG;
  if (dim != 1) return DISP_E_BADINDEX;
  *lowerBound = array->rgsabound[0].lLbound;
  return S_OK;
}

HRESULT SafeArrayGetUBound(SAFEARRAY* array, UINT dim, LONG* upperBound) {
  if (!array || !upperBound) return E_INVALIDARG;
  if (dim != 1) return DISP_E_BADINDEX;
  *upperBound = LONG(int64_t(array->rgsabound[0].lLbound) + array->rgsabound[0].cElements - 1);
  return S_OK;
}

HRESULT SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* vt) {
  if (!array || !vt) return E_INVALIDARG;
  *vt = vartype_of(array);
  return S_OK;
}

HRESULT SafeArrayLock(SAFEARRAY* array) {
  if (!array) return E_INVALIDARG;
  ++array->cLocks;
  return S_OK;
}

HRESULT SafeArrayUnlock(SAFEARRAY* array) {
  if (!array) return E_INVALIDARG;
  if (array->cLocks == 0) return E_UNEXPECTED;
  --array->cLocks;
  return S_OK;
}

HRESULT SafeArrayAccessData(SAFEARRAY* array, void HUGEP** data) {
  if (!array || !data) return E_INVALIDARG;
  ++array->cLocks;
  *data = array->pvData;
  return S_OK;
}

HRESULT SafeArrayUnaccessData(SAFEARRAY* array) { return SafeArrayUnlock(array); }

HRESULT SafeArrayPtrOfIndex(SAFEARRAY* array, LONG* indices, void HUGEP** element) {
  if (!element) return E_INVALIDARG;
  ULONG offset = 0;
  HRESULT hr = offset_of(array, indices, offset);
  if (SUCCEEDED(hr)) *element = element_at(array, offset);
  return hr;
}

HRESULT SafeArrayPutElement(SAFEARRAY* array, LONG* indices, void* value) {
  ULONG offset = 0;
  HRESULT hr = offset_of(array, indices, offset);
  if (FAILED(hr)) return hr;
  VARTYPE vt = vartype_of(array);
  // A BSTR or an interface is passed as the pointer itself, anything else by address.
  bool passedAsPointer = vt == VT_BSTR || vt == VT_UNKNOWN || vt == VT_DISPATCH;
  if (!passedAsPointer && !value) return E_INVALIDARG;
  const void* source = passedAsPointer ? static_cast<const void*>(&value) : value;
  alignas(VARIANT) unsigned char staged[sizeof(VARIANT)];
  hr = copy_element(vt, staged, source, array->cbElements);
  if (FAILED(hr)) return hr;
  void* element = element_at(array, offset);
  clear_element(vt, element);
  std::memcpy(element, staged, array->cbElements);
  return S_OK;
}

HRESULT SafeArrayGetElement(SAFEARRAY* array, LONG* indices, void* value) {
  if (!value) return E_INVALIDARG;
  ULONG offset = 0;
  HRESULT hr = offset_of(array, indices, offset);
  if (FAILED(hr)) return hr;
  return copy_element(vartype_of(array), value, element_at(array, offset), array->cbElements);
}
