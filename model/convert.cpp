#include "model/convert.h"

#include <cmath>

namespace Morvek::Tivalo {

// {5e1a9c44-3b7e-4f0e-9d1c-7a0f7c2b6d11}: private to the component, never registered.
const IID IID_TivaloImplementation = {
    0x5e1a9c44, 0x3b7e, 0x4f0e, {0x9d, 0x1c, 0x7a, 0x0f, 0x7c, 0x2b, 0x6d, 0x11}};

CalendarDate date_of(DATE value) {
  SYSTEMTIME t{};
  VariantTimeToSystemTime(value, &t);
  return {t.wYear, t.wMonth, t.wDay};
}

// Whole seconds only: fractions of a second are not written.
ClockTime time_of(DATE value) {
  SYSTEMTIME t{};
  VariantTimeToSystemTime(value, &t);
  return {t.wHour, t.wMinute, double(t.wSecond)};
}

DATE date_value(int year, unsigned month, unsigned day) {
  SYSTEMTIME t{};
  t.wYear = WORD(year);
  t.wMonth = WORD(month);
  t.wDay = WORD(day);
  DATE value = 0.0;
  SystemTimeToVariantTime(&t, &value);
  return value;
}

// A time of day has no date: its DATE is the fraction of the day.
DATE time_value(unsigned hours, unsigned minutes, double seconds) {
  SYSTEMTIME t{};
  t.wHour = WORD(hours);
  t.wMinute = WORD(minutes);
  t.wSecond = WORD(std::trunc(seconds));
  DATE value = 0.0;
  SystemTimeToVariantTime(&t, &value);
  return value;
}

std::wstring wide_of(BSTR value) {
  return value ? std::wstring(value, SysStringLen(value)) : std::wstring();
}

BSTR bstr_of(const std::wstring& value) {
  return SysAllocStringLen(value.data(), UINT(value.size()));
}

HRESULT BytesContent::get(VARIANT* out) const {
  if (!out) return E_POINTER;
  VariantInit(out);
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, ULONG(bytes_.size()));
  if (!array) return E_OUTOFMEMORY;
  if (!bytes_.empty()) {
    void* data = nullptr;
    SafeArrayAccessData(array, &data);
    std::copy(bytes_.begin(), bytes_.end(), static_cast<unsigned char*>(data));
    SafeArrayUnaccessData(array);
  }
  out->vt = VT_ARRAY | VT_UI1;
  out->parray = array;
  return S_OK;
}

// Only a SAFEARRAY of bytes is accepted, also when the VARIANT holds it by reference.
HRESULT BytesContent::put(VARIANT value) {
  SAFEARRAY* array = nullptr;
  if (value.vt == (VT_ARRAY | VT_UI1))
    array = value.parray;
  else if (value.vt == (VT_BYREF | VT_ARRAY | VT_UI1) && value.pparray)
    array = *value.pparray;
  if (!array || SafeArrayGetDim(array) != 1) return E_INVALIDARG;
  LONG lower = 0, upper = -1;
  SafeArrayGetLBound(array, 1, &lower);
  SafeArrayGetUBound(array, 1, &upper);
  void* data = nullptr;
  if (FAILED(SafeArrayAccessData(array, &data))) return E_INVALIDARG;
  const auto* bytes = static_cast<const unsigned char*>(data);
  bytes_.assign(bytes, bytes + (upper - lower + 1));
  SafeArrayUnaccessData(array);
  return S_OK;
}

}  // namespace Morvek::Tivalo
