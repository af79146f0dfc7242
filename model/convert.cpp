#include "model/convert.h"

#include <cmath>
#include <cwchar>
#include <new>
#include <vector>

namespace Morvek::Tivalo {

// {5e1a9c44-3b7e-4f0e-9d1c-7a0f7c2b6d11}: private to the component, never registered.
const IID IID_TivaloImplementation = {
    0x5e1a9c44, 0x3b7e, 0x4f0e, {0x9d, 0x1c, 0x7a, 0x0f, 0x7c, 0x2b, 0x6d, 0x11}};

namespace {

// A DATE that cannot be split into calendar fields (NaN, or outside the years 100 to 9999) is
// refused rather than written as some other date.
SYSTEMTIME calendar_fields(DATE value) {
  SYSTEMTIME t{};
  if (!VariantTimeToSystemTime(value, &t)) {
    wchar_t number[64];
    std::swprintf(number, 64, L"%.17g", value);
    throw ContentRefused(std::wstring(L"Tivalo: The DATE value ") + number +
                         L" cannot be written: it is not a date of the years 100 to 9999.");
  }
  return t;
}

// The objects whose store step is under way on this thread, outermost first.
thread_local std::vector<const void*> store_path;

// Far beyond any real document; a client-built chain this deep would otherwise exhaust the stack.
constexpr size_t deepest_store = 1000;

}  // namespace

StoreStep::StoreStep(const void* object) {
  for (const void* outer : store_path)
    if (outer == object)
      throw ContentRefused(
          L"Tivalo: The document cannot be written: an object contains itself (the object graph "
          L"has a cycle).");
  if (store_path.size() >= deepest_store)
    throw ContentRefused(L"Tivalo: The document cannot be written: objects are nested more than " +
                         std::to_wstring(deepest_store) + L" deep.");
  store_path.push_back(object);
}

StoreStep::~StoreStep() { store_path.pop_back(); }

CalendarDate date_of(DATE value) {
  SYSTEMTIME t = calendar_fields(value);
  return {t.wYear, t.wMonth, t.wDay};
}

// Whole seconds only: fractions of a second are not written.
ClockTime time_of(DATE value) {
  SYSTEMTIME t = calendar_fields(value);
  return {t.wHour, t.wMinute, double(t.wSecond)};
}

// A BSTR's length prefix counts bytes and stays below 2 GiB.
constexpr size_t longest_string = 0x7FFFFFF0 / sizeof(OLECHAR);

void StringEntry::assign(const std::wstring& value) {
  if (value.size() > longest_string)
    throw ContentRefused(L"Tivalo: A text of " + std::to_wstring(value.size()) +
                         L" characters is longer than a string can hold.");
  BSTR copy = SysAllocStringLen(value.data(), UINT(value.size()));
  if (!copy) throw std::bad_alloc();
  set_ = true;
  SysFreeString(value_);
  value_ = copy;
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
