// VariantChangeType: the coercions between the plain automation types.
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cwchar>
#include <cwctype>
#include <algorithm>
#include <limits>
#include <string>

#include "platform/automation.h"
#include "platform/variant_kinds.h"

namespace {

using tivalo::detail::is_valid_variant_type;

// A number read from a variant: integers stay exact, everything else is a double.
struct Number {
  bool isInteger;
  int64_t integer;
  double real;
  double as_double() const { return isInteger ? double(integer) : real; }
};

bool is_integer_type(VARTYPE vt) {
  switch (vt) {
    case VT_I1: case VT_I2: case VT_I4: case VT_I8: case VT_INT:
    case VT_UI1: case VT_UI2: case VT_UI4: case VT_UI8: case VT_UINT: return true;
    default: return false;
  }
}

bool is_unsigned_type(VARTYPE vt) {
  return vt == VT_UI1 || vt == VT_UI2 || vt == VT_UI4 || vt == VT_UI8 || vt == VT_UINT;
}

bool is_number_type(VARTYPE vt) {
  return is_integer_type(vt) || vt == VT_R4 || vt == VT_R8 || vt == VT_DATE || vt == VT_BOOL;
}

// ---- text -----------------------------------------------------------------------------------

std::wstring trimmed(BSTR text) {
  std::wstring s(text ? text : L"", SysStringLen(text));
  const size_t first = s.find_first_not_of(L" \t\r\n");
  if (first == std::wstring::npos) return std::wstring();
  return s.substr(first, s.find_last_not_of(L" \t\r\n") - first + 1);
}

bool equals_ignoring_case(const std::wstring& a, const wchar_t* b) {
  size_t i = 0;
  for (; i < a.size() && b[i]; ++i)
    if (std::towlower(wint_t(a[i])) != std::towlower(wint_t(b[i]))) return false;
  return i == a.size() && !b[i];
}

// Whether a decimal number too far from 1 for a double is too large (rather than too small):
// that follows from where its first significant digit stands.
bool is_too_large(const std::string& mantissa, long exponent) {
  const size_t point = std::min(mantissa.find('.'), mantissa.size());
  const size_t first = mantissa.find_first_of("123456789");
  if (first == std::string::npos) return false;
  const long position = first < point ? long(point - first) - 1 : -long(first - point);
  return exponent + position > 0;
}

// Invariant number syntax: [+-] digits [. digits] [(e|E) [+-] digits], at least one digit.
HRESULT parse_number(BSTR text, Number& number) {
  const std::wstring s = trimmed(text);
  std::string mantissa, exponent;
  size_t i = 0;
  auto take_digits = [&](std::string& into) {
    size_t n = 0;
    for (; i < s.size() && s[i] >= L'0' && s[i] <= L'9'; ++i, ++n) into += char(s[i]);
    return n;
  };
  if (i < s.size() && (s[i] == L'+' || s[i] == L'-')) {
    if (s[i] == L'-') mantissa += '-';
    ++i;
  }
  size_t digits = take_digits(mantissa);
  if (i < s.size() && s[i] == L'.') {
    mantissa += '.', ++i;
    digits += take_digits(mantissa);
  }
  if (digits == 0) return DISP_E_TYPEMISMATCH;
  if (i < s.size() && (s[i] == L'e' || s[i] == L'E')) {
    ++i;
    if (i < s.size() && (s[i] == L'+' || s[i] == L'-')) exponent += char(s[i++]);
    if (take_digits(exponent) == 0) return DISP_E_TYPEMISMATCH;
  }
  if (i != s.size()) return DISP_E_TYPEMISMATCH;
  if (exponent.empty() && mantissa.find('.') == std::string::npos) {
    int64_t value = 0;
    const auto result = std::from_chars(mantissa.data(), mantissa.data() + mantissa.size(), value);
    if (result.ec == std::errc()) return number = {true, value, 0.0}, S_OK;
  }
  const std::string full = exponent.empty() ? mantissa : mantissa + 'e' + exponent;
  double value = 0.0;
  const auto result = std::from_chars(full.data(), full.data() + full.size(), value);
  if (result.ec == std::errc::result_out_of_range) {
    long power = 0;
    std::from_chars(exponent.data() + (exponent[0] == '+'), exponent.data() + exponent.size(), power);
    if (is_too_large(mantissa, power)) return DISP_E_OVERFLOW;
    value = 0.0;  // too small: as close to zero as a double gets
  }
  number = {false, 0, value};
  return S_OK;
}

HRESULT parse_bool(BSTR text, VARIANT_BOOL& value) {
  const std::wstring s = trimmed(text);
  if (equals_ignoring_case(s, L"true")) return value = VARIANT_TRUE, S_OK;
  if (equals_ignoring_case(s, L"false")) return value = VARIANT_FALSE, S_OK;
  Number number;
  HRESULT hr = parse_number(text, number);
  if (SUCCEEDED(hr)) value = number.as_double() != 0.0 ? VARIANT_TRUE : VARIANT_FALSE;
  return hr;
}

// Invariant date syntax: "YYYY-MM-DD", "YYYY-MM-DD HH:MM[:SS]" ('T' also separates) or
// "HH:MM[:SS]" for a time of day alone.
HRESULT parse_date(BSTR text, DATE& value) {
  const std::wstring s = trimmed(text);
  unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  size_t i = 0;
  auto field = [&](unsigned& out, size_t minDigits, size_t maxDigits) {
    size_t n = 0;
    out = 0;
    for (; i < s.size() && n < maxDigits && s[i] >= L'0' && s[i] <= L'9'; ++i, ++n) out = out * 10 + unsigned(s[i] - L'0');
    return n >= minDigits;
  };
  auto literal = [&](wchar_t c) { return i < s.size() && s[i] == c ? (++i, true) : false; };
  auto time = [&] {
    if (!field(hour, 1, 2) || !literal(L':') || !field(minute, 2, 2)) return false;
    return !literal(L':') || field(second, 2, 2);
  };
  const bool dateFirst = s.find(L'-') != std::wstring::npos;
  bool ok = true;
  if (dateFirst) {
    ok = field(year, 4, 4) && literal(L'-') && field(month, 1, 2) && literal(L'-') && field(day, 1, 2);
    if (ok && i < s.size()) ok = (literal(L' ') || literal(L'T')) && time();
  } else {
    ok = time();
  }
  if (!ok || i != s.size() || hour > 23 || minute > 59 || second > 59) return DISP_E_TYPEMISMATCH;
  if (dateFirst) {
    static const unsigned kMonthDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    if (year < 100 || month < 1 || month > 12 || day < 1 || day > kMonthDays[month - 1] ||
        (month == 2 && day == 29 && !leap))
      return DISP_E_TYPEMISMATCH;
  }
  SYSTEMTIME st = {WORD(year), WORD(month), 0, WORD(day), WORD(hour), WORD(minute), WORD(second), 0};
  return SystemTimeToVariantTime(&st, &value) ? S_OK : DISP_E_OVERFLOW;
}

std::wstring format_real(double value, int precision) {
  char buffer[64];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, precision);
  std::wstring text(buffer, result.ptr);
  for (wchar_t& c : text)
    if (c == L'e') c = L'E';
  return text;
}

HRESULT format_date(DATE value, std::wstring& text) {
  SYSTEMTIME st;
  if (!VariantTimeToSystemTime(value, &st)) return DISP_E_OVERFLOW;
  wchar_t buffer[32];
  const bool dayZero = st.wYear == 1899 && st.wMonth == 12 && st.wDay == 30;
  const bool midnight = st.wHour == 0 && st.wMinute == 0 && st.wSecond == 0;
  if (dayZero)
    std::swprintf(buffer, 32, L"%02u:%02u:%02u", unsigned(st.wHour), unsigned(st.wMinute), unsigned(st.wSecond));
  else if (midnight)
    std::swprintf(buffer, 32, L"%04u-%02u-%02u", unsigned(st.wYear), unsigned(st.wMonth), unsigned(st.wDay));
  else
    std::swprintf(buffer, 32, L"%04u-%02u-%02u %02u:%02u:%02u", unsigned(st.wYear), unsigned(st.wMonth),
                  unsigned(st.wDay), unsigned(st.wHour), unsigned(st.wMinute), unsigned(st.wSecond));
  text = buffer;
  return S_OK;
}

// ---- numbers --------------------------------------------------------------------------------

HRESULT read_number(const VARIANT& v, Number& number) {
  switch (v.vt) {
    case VT_EMPTY: number = {true, 0, 0.0}; return S_OK;
    case VT_I1: number = {true, v.cVal, 0.0}; return S_OK;
    case VT_I2: number = {true, v.iVal, 0.0}; return S_OK;
    case VT_I4: number = {true, v.lVal, 0.0}; return S_OK;
    case VT_I8: number = {true, v.llVal, 0.0}; return S_OK;
    case VT_INT: number = {true, v.intVal, 0.0}; return S_OK;
    case VT_UI1: number = {true, v.bVal, 0.0}; return S_OK;
    case VT_UI2: number = {true, v.uiVal, 0.0}; return S_OK;
    case VT_UI4: number = {true, v.ulVal, 0.0}; return S_OK;
    case VT_UINT: number = {true, v.uintVal, 0.0}; return S_OK;
    case VT_UI8:
      if (v.ullVal > uint64_t(std::numeric_limits<int64_t>::max())) number = {false, 0, double(v.ullVal)};
      else number = {true, int64_t(v.ullVal), 0.0};
      return S_OK;
    case VT_BOOL: number = {true, v.boolVal, 0.0}; return S_OK;
    case VT_R4: number = {false, 0, v.fltVal}; return S_OK;
    case VT_R8: number = {false, 0, v.dblVal}; return S_OK;
    case VT_DATE: number = {false, 0, v.date}; return S_OK;
    case VT_CY: number = {false, 0, double(v.cyVal.int64) / 10000.0}; return S_OK;
    case VT_BSTR: return parse_number(v.bstrVal, number);
    default: return DISP_E_TYPEMISMATCH;
  }
}

// Round half to even, as the platform's integer conversions do (2.5 -> 2, 3.5 -> 4).
double round_half_even(double value) {
  const double lower = std::floor(value);
  const double difference = value - lower;
  if (difference > 0.5) return lower + 1.0;
  if (difference < 0.5) return lower;
  return std::fmod(lower, 2.0) == 0.0 ? lower : lower + 1.0;
}

struct IntegerLimits {
  long double low, high;
  int bits;
};

IntegerLimits limits_of(VARTYPE vt) {
  switch (vt) {
    case VT_I1: return {-128.0L, 127.0L, 8};
    case VT_I2: return {-32768.0L, 32767.0L, 16};
    case VT_I4: case VT_INT: return {-2147483648.0L, 2147483647.0L, 32};
    case VT_I8: return {-9223372036854775808.0L, 9223372036854775807.0L, 64};
    case VT_UI1: return {0.0L, 255.0L, 8};
    case VT_UI2: return {0.0L, 65535.0L, 16};
    case VT_UI4: case VT_UINT: return {0.0L, 4294967295.0L, 32};
    default: return {0.0L, 18446744073709551615.0L, 64};  // VT_UI8
  }
}

void store_integer(VARIANT& out, VARTYPE vt, int64_t value) {
  switch (vt) {
    case VT_I1: out.cVal = CHAR(value); break;
    case VT_I2: out.iVal = SHORT(value); break;
    case VT_I4: out.lVal = LONG(value); break;
    case VT_INT: out.intVal = INT(value); break;
    case VT_I8: out.llVal = value; break;
    case VT_UI1: out.bVal = BYTE(value); break;
    case VT_UI2: out.uiVal = USHORT(value); break;
    case VT_UI4: out.ulVal = ULONG(value); break;
    case VT_UINT: out.uintVal = UINT(value); break;
    default: out.ullVal = ULONGLONG(value); break;
  }
  out.vt = vt;
}

HRESULT write_integer(const Number& number, VARTYPE sourceType, VARTYPE vt, VARIANT& out) {
  const IntegerLimits limits = limits_of(vt);
  // A BOOL lands in an unsigned type bit for bit (TRUE becomes all ones).
  if (sourceType == VT_BOOL && is_unsigned_type(vt)) {
    const uint64_t mask = limits.bits == 64 ? ~0ull : (1ull << limits.bits) - 1;
    store_integer(out, vt, int64_t(uint64_t(number.integer) & mask));
    return S_OK;
  }
  if (vt == VT_UI8 && !number.isInteger && number.real >= 9223372036854775808.0) {
    const double rounded = round_half_even(number.real);
    if (!(rounded <= 18446744073709549568.0)) return DISP_E_OVERFLOW;
    out.ullVal = ULONGLONG(rounded);
    out.vt = vt;
    return S_OK;
  }
  const long double value = number.isInteger ? (long double)number.integer : (long double)round_half_even(number.real);
  if (!(value >= limits.low && value <= limits.high)) return DISP_E_OVERFLOW;  // NaN too
  store_integer(out, vt, number.isInteger ? number.integer : int64_t(value));
  return S_OK;
}

// DATE covers 100-01-01 to 9999-12-31 inclusive of the last day's hours.
bool is_date_in_range(double value) { return value > -657435.0 && value < 2958466.0; }

HRESULT write_number(const Number& number, VARTYPE sourceType, VARTYPE vt, VARIANT& out) {
  const double real = number.as_double();
  switch (vt) {
    case VT_BOOL:
      out.boolVal = real != 0.0 ? VARIANT_TRUE : VARIANT_FALSE;
      break;
    case VT_R8:
      out.dblVal = real;
      break;
    case VT_R4:
      if (std::isfinite(real) && std::fabs(real) > FLT_MAX) return DISP_E_OVERFLOW;
      out.fltVal = float(real);
      break;
    case VT_DATE:
      if (!is_date_in_range(real)) return DISP_E_OVERFLOW;
      out.date = real;
      break;
    default:
      if (!is_integer_type(vt)) return DISP_E_TYPEMISMATCH;
      return write_integer(number, sourceType, vt, out);
  }
  out.vt = vt;
  return S_OK;
}

// ---- targets --------------------------------------------------------------------------------

HRESULT to_text(const VARIANT& v, USHORT flags, VARIANT& out) {
  std::wstring text;
  switch (v.vt) {
    case VT_EMPTY: break;
    case VT_BOOL:
      if (flags & VARIANT_ALPHABOOL) text = v.boolVal ? L"True" : L"False";
      else text = std::to_wstring(v.boolVal);
      break;
    case VT_R4: text = format_real(v.fltVal, 7); break;
    case VT_R8: text = format_real(v.dblVal, 15); break;
    case VT_CY: text = format_real(double(v.cyVal.int64) / 10000.0, 15); break;
    case VT_DATE: {
      HRESULT hr = format_date(v.date, text);
      if (FAILED(hr)) return hr;
      break;
    }
    case VT_UI8: text = std::to_wstring(v.ullVal); break;
    default: {
      if (!is_integer_type(v.vt)) return DISP_E_TYPEMISMATCH;
      Number number;
      read_number(v, number);
      text = std::to_wstring(number.integer);
    }
  }
  out.bstrVal = SysAllocStringLen(text.data(), UINT(text.size()));
  if (!out.bstrVal) return E_OUTOFMEMORY;
  out.vt = VT_BSTR;
  return S_OK;
}

HRESULT to_interface(const VARIANT& v, VARTYPE vt, VARIANT& out) {
  out.punkVal = nullptr;
  if (v.vt != VT_EMPTY) {
    if (v.vt != VT_DISPATCH && v.vt != VT_UNKNOWN) return DISP_E_TYPEMISMATCH;
    if (v.punkVal) {
      const IID& iid = vt == VT_DISPATCH ? IID_IDispatch : IID_IUnknown;
      if (FAILED(v.punkVal->QueryInterface(iid, reinterpret_cast<void**>(&out.punkVal))))
        return DISP_E_TYPEMISMATCH;
    }
  }
  out.vt = vt;
  return S_OK;
}

HRESULT coerce(const VARIANT& v, USHORT flags, VARTYPE vt, VARIANT& out);

// An object converts through its default member (DISPID_VALUE).
HRESULT coerce_value_property(const VARIANT& v, USHORT flags, VARTYPE vt, VARIANT& out) {
  if ((flags & VARIANT_NOVALUEPROP) || !v.pdispVal) return DISP_E_TYPEMISMATCH;
  DISPPARAMS none = {nullptr, nullptr, 0, 0};
  VARIANT value;
  VariantInit(&value);
  HRESULT hr = v.pdispVal->Invoke(DISPID_VALUE, IID_NULL, LOCALE_USER_DEFAULT,
                                  DISPATCH_PROPERTYGET | DISPATCH_METHOD, &none, &value, nullptr, nullptr);
  if (FAILED(hr)) return DISP_E_TYPEMISMATCH;
  hr = coerce(value, USHORT(flags | VARIANT_NOVALUEPROP), vt, out);
  VariantClear(&value);
  return hr;
}

HRESULT coerce(const VARIANT& v, USHORT flags, VARTYPE vt, VARIANT& out) {
  if (v.vt == vt) return VariantCopy(&out, &v);
  if ((v.vt | vt) & VT_ARRAY) return DISP_E_TYPEMISMATCH;
  if (v.vt == VT_NULL) return DISP_E_TYPEMISMATCH;
  if (v.vt == VT_DISPATCH && vt != VT_UNKNOWN && vt != VT_EMPTY) return coerce_value_property(v, flags, vt, out);
  switch (vt) {
    case VT_EMPTY: out.vt = VT_EMPTY; return S_OK;
    case VT_NULL: return v.vt == VT_EMPTY ? (out.vt = VT_NULL, S_OK) : DISP_E_TYPEMISMATCH;
    case VT_BSTR: return to_text(v, flags, out);
    case VT_DISPATCH:
    case VT_UNKNOWN: return to_interface(v, vt, out);
    case VT_BOOL:
      if (v.vt == VT_BSTR) {
        HRESULT hr = parse_bool(v.bstrVal, out.boolVal);
        if (SUCCEEDED(hr)) out.vt = VT_BOOL;
        return hr;
      }
      break;
    case VT_DATE:
      if (v.vt == VT_BSTR) {
        HRESULT hr = parse_date(v.bstrVal, out.date);
        if (SUCCEEDED(hr)) out.vt = VT_DATE;
        return hr;
      }
      break;
    default: break;
  }
  if (!is_number_type(vt)) return DISP_E_TYPEMISMATCH;
  Number number;
  HRESULT hr = read_number(v, number);
  return FAILED(hr) ? hr : write_number(number, v.vt, vt, out);
}

}  // namespace

HRESULT VariantChangeTypeEx(VARIANTARG* dest, const VARIANTARG* source, LCID, USHORT flags, VARTYPE vt) {
  if (!dest || !source) return E_INVALIDARG;
  if (!is_valid_variant_type(source->vt) || !is_valid_variant_type(vt) || (vt & VT_BYREF))
    return DISP_E_BADVARTYPE;
  VARIANT value;
  VariantInit(&value);
  HRESULT hr = VariantCopyInd(&value, source);
  if (FAILED(hr)) return hr;
  VARIANT result;
  VariantInit(&result);
  hr = coerce(value, flags, vt, result);
  VariantClear(&value);
  if (FAILED(hr)) return hr;
  // `dest` may be `source`: it is replaced only once the conversion has succeeded.
  VariantClear(dest);
  *dest = result;
  return S_OK;
}

HRESULT VariantChangeType(VARIANTARG* dest, const VARIANTARG* source, USHORT flags, VARTYPE vt) {
  return VariantChangeTypeEx(dest, source, LOCALE_USER_DEFAULT, flags, vt);
}
