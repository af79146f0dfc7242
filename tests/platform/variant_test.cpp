// VARIANT life cycle and the coercions of VariantChangeType.
#include <gtest/gtest.h>

#include <cmath>

#include "platform/automation.h"

namespace {

// Owns a VARIANT for the length of a test.
struct Var : VARIANT {
  Var() { VariantInit(this); }
  ~Var() { VariantClear(this); }
  Var(const Var& other) : Var() { VariantCopy(this, &other); }
};

Var make(VARTYPE vt) {
  Var v;
  v.vt = vt;
  return v;
}
Var i2(SHORT x) { Var v = make(VT_I2); v.iVal = x; return v; }
Var i4(LONG x) { Var v = make(VT_I4); v.lVal = x; return v; }
Var r8(double x) { Var v = make(VT_R8); v.dblVal = x; return v; }
Var date(DATE x) { Var v = make(VT_DATE); v.date = x; return v; }
Var boolean(VARIANT_BOOL x) { Var v = make(VT_BOOL); v.boolVal = x; return v; }
Var text(const wchar_t* x) { Var v = make(VT_BSTR); v.bstrVal = SysAllocString(x); return v; }

HRESULT change(const VARIANT& source, VARTYPE vt, Var& out, USHORT flags = 0) {
  return VariantChangeType(&out, &source, flags, vt);
}

std::wstring as_text(const VARIANT& source, USHORT flags = 0) {
  Var out;
  EXPECT_EQ(S_OK, change(source, VT_BSTR, out, flags));
  return std::wstring(out.bstrVal, SysStringLen(out.bstrVal));
}

// The number a converted VARIANT holds, whatever its numeric type.
double number(const VARIANT& v) {
  switch (v.vt) {
    case VT_I2: return v.iVal;
    case VT_I4: return v.lVal;
    case VT_R8: return v.dblVal;
    case VT_DATE: return v.date;
    case VT_BOOL: return v.boolVal;
    default: ADD_FAILURE() << "type " << v.vt; return 0;
  }
}

}  // namespace

// Every conversion to a number: the status, and on success the value in the asked-for type.
TEST(VariantChangeType, ToNumbers) {
  const struct { Var source; VARTYPE to; HRESULT hr; double value; } cases[] = {
      {text(L"12"), VT_I4, S_OK, 12}, {text(L"  -7 "), VT_I4, S_OK, -7},
      {text(L"2.5"), VT_I4, S_OK, 2}, {text(L"1.2e2"), VT_I4, S_OK, 120},
      {boolean(VARIANT_TRUE), VT_I4, S_OK, -1}, {Var(), VT_I4, S_OK, 0},
      {i2(-3), VT_I4, S_OK, -3}, {date(2.75), VT_I4, S_OK, 3},
      // Reals round half to even.
      {r8(2.5), VT_I4, S_OK, 2}, {r8(3.5), VT_I4, S_OK, 4}, {r8(-2.5), VT_I4, S_OK, -2},
      {r8(-3.5), VT_I4, S_OK, -4}, {r8(2.4999), VT_I4, S_OK, 2}, {r8(2.5001), VT_I4, S_OK, 3},
      {r8(-0.5), VT_I4, S_OK, 0}, {r8(2147483647.4), VT_I4, S_OK, 2147483647},
      {r8(-2147483648.5), VT_I4, S_OK, INT32_MIN},
      {r8(2147483647.5), VT_I4, DISP_E_OVERFLOW, 0}, {i4(32768), VT_I2, DISP_E_OVERFLOW, 0},
      {text(L"1e400"), VT_R8, DISP_E_OVERFLOW, 0}, {r8(std::nan("")), VT_I4, DISP_E_OVERFLOW, 0},
      {text(L"1e-400"), VT_R8, S_OK, 0}, {r8(2958466.0), VT_DATE, DISP_E_OVERFLOW, 0},
      {text(L"TRUE"), VT_BOOL, S_OK, VARIANT_TRUE}, {text(L"false"), VT_BOOL, S_OK, VARIANT_FALSE},
      {r8(0.25), VT_BOOL, S_OK, VARIANT_TRUE}, {i4(0), VT_BOOL, S_OK, VARIANT_FALSE},
      {text(L"maybe"), VT_BOOL, DISP_E_TYPEMISMATCH, 0},
      {boolean(VARIANT_TRUE), VT_R8, S_OK, -1}, {boolean(VARIANT_TRUE), VT_DATE, S_OK, -1},
      {Var(), VT_DATE, S_OK, 0}, {text(L"7"), VT_I2, S_OK, 7},
      {text(L""), VT_I4, DISP_E_TYPEMISMATCH, 0}, {text(L"12abc"), VT_I4, DISP_E_TYPEMISMATCH, 0},
      {text(L"1,000"), VT_I4, DISP_E_TYPEMISMATCH, 0}, {text(L"--1"), VT_I4, DISP_E_TYPEMISMATCH, 0},
      {text(L"."), VT_I4, DISP_E_TYPEMISMATCH, 0}, {text(L"1e"), VT_I4, DISP_E_TYPEMISMATCH, 0},
      {i4(1), VARTYPE(VT_I4 | VT_BYREF), DISP_E_BADVARTYPE, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(as_text(c.source) + L" to type " + std::to_wstring(c.to));
    Var out;
    ASSERT_EQ(c.hr, change(c.source, c.to, out));
    if (c.hr != S_OK) {
      EXPECT_EQ(VT_EMPTY, out.vt) << "a failed conversion leaves the target alone";
      continue;
    }
    EXPECT_EQ(c.to, out.vt);
    EXPECT_EQ(c.value, number(out));
  }
  Var null = make(VT_NULL), out;
  for (VARTYPE vt : {VT_I2, VT_I4, VT_R8, VT_BSTR, VT_BOOL, VT_DATE, VT_EMPTY, VT_DISPATCH})
    EXPECT_EQ(DISP_E_TYPEMISMATCH, change(null, vt, out)) << vt;
  EXPECT_EQ(S_OK, change(null, VT_NULL, out));
  EXPECT_EQ(VT_NULL, out.vt);
}

TEST(VariantChangeType, ToTextAndBack) {
  const std::pair<Var, const wchar_t*> shown[] = {
      {i4(12), L"12"}, {i2(-32768), L"-32768"}, {r8(2.5), L"2.5"}, {r8(0.1), L"0.1"},
      {r8(1e20), L"1E+20"}, {Var(), L""}, {boolean(VARIANT_TRUE), L"-1"}};
  for (const auto& [source, expected] : shown) EXPECT_EQ(expected, as_text(source));
  EXPECT_EQ(L"True", as_text(boolean(VARIANT_TRUE), VARIANT_ALPHABOOL));
  for (double value : {0.1, 1.0 / 3, -123456.789, 6.02214076e23}) {
    const std::wstring text_form = as_text(r8(value));
    Var back;
    ASSERT_EQ(S_OK, change(text(text_form.c_str()), VT_R8, back));
    EXPECT_NEAR(value, back.dblVal, std::fabs(value) * 1e-14) << text_form;
  }
}

TEST(VariantChangeType, DatesUseTheInvariantForm) {
  const std::pair<DATE, const wchar_t*> cases[] = {{2.5, L"1900-01-01 12:00:00"}, {36526.0, L"2000-01-01"},
                                                   {0.75, L"18:00:00"}, {0.0, L"00:00:00"},
                                                   {-1.25, L"1899-12-29 06:00:00"}, {-657434.0, L"0100-01-01"}};
  for (const auto& [value, shown] : cases) {
    Var back;
    EXPECT_EQ(shown, as_text(date(value)));
    ASSERT_EQ(S_OK, change(text(shown), VT_DATE, back)) << shown;
    EXPECT_EQ(value, back.date) << shown;
  }
  Var out;
  EXPECT_EQ(S_OK, change(text(L"2010-05-06T07:08"), VT_DATE, out));
  for (const wchar_t* bad : {L"2010-02-30", L"2010-13-01", L"24:00:00", L"yesterday", L"", L"12"})
    EXPECT_EQ(DISP_E_TYPEMISMATCH, change(text(bad), VT_DATE, out)) << bad;
}

TEST(VariantChangeType, ReadsThroughReferencesAndConvertsInPlace) {
  LONG value = 42;
  Var ref;
  ref.vt = VT_I4 | VT_BYREF;
  ref.plVal = &value;
  EXPECT_EQ(L"42", as_text(ref));
  BSTR owned = SysAllocString(L"7");
  Var textRef, out;
  textRef.vt = VT_BSTR | VT_BYREF;
  textRef.pbstrVal = &owned;
  ASSERT_EQ(S_OK, change(textRef, VT_I2, out));
  EXPECT_EQ(7, out.iVal);
  SysFreeString(owned);

  Var self = text(L"3.5");
  ASSERT_EQ(S_OK, VariantChangeType(&self, &self, 0, VT_I4));
  EXPECT_EQ(VT_I4, self.vt);
  EXPECT_EQ(4, self.lVal);
}

TEST(Variant, CopyDuplicatesStringsAndArrays) {
  Var source = text(L"abc"), copy;
  ASSERT_EQ(S_OK, VariantCopy(&copy, &source));
  EXPECT_NE(source.bstrVal, copy.bstrVal);
  EXPECT_STREQ(L"abc", copy.bstrVal);

  for (ULONG size : {0u, 3u}) {
    Var bytes, byteCopy;
    bytes.vt = VT_ARRAY | VT_UI1;
    bytes.parray = SafeArrayCreateVector(VT_UI1, 0, size);
    ASSERT_NE(nullptr, bytes.parray);
    for (LONG i = 0; i < LONG(size); ++i) {
      BYTE b = BYTE(i + 1);
      SafeArrayPutElement(bytes.parray, &i, &b);
    }
    ASSERT_EQ(S_OK, VariantCopy(&byteCopy, &bytes));
    ASSERT_EQ(VT_ARRAY | VT_UI1, byteCopy.vt);
    EXPECT_NE(bytes.parray, byteCopy.parray);
    LONG upper = 99;
    ASSERT_EQ(S_OK, SafeArrayGetUBound(byteCopy.parray, 1, &upper));
    EXPECT_EQ(LONG(size) - 1, upper);
    void* data = nullptr;
    ASSERT_EQ(S_OK, SafeArrayAccessData(byteCopy.parray, &data));
    if (size) EXPECT_EQ(0, std::memcmp(data, "\x01\x02\x03", 3));
    SafeArrayUnaccessData(byteCopy.parray);
  }
}

TEST(Variant, CopyIndDereferencesAndCopyKeepsReferences) {
  double value = 1.5;
  Var ref, shallow, deep;
  ref.vt = VT_R8 | VT_BYREF;
  ref.pdblVal = &value;
  ASSERT_EQ(S_OK, VariantCopy(&shallow, &ref));
  EXPECT_EQ(&value, shallow.pdblVal);
  ASSERT_EQ(S_OK, VariantCopyInd(&deep, &ref));
  EXPECT_EQ(VT_R8, deep.vt);
  EXPECT_EQ(1.5, deep.dblVal);

  Var inner = text(L"inside"), outer, result;
  outer.vt = VT_VARIANT | VT_BYREF;
  outer.pvarVal = &inner;
  ASSERT_EQ(S_OK, VariantCopyInd(&result, &outer));
  EXPECT_EQ(VT_BSTR, result.vt);
  EXPECT_NE(inner.bstrVal, result.bstrVal);
}

TEST(Variant, ClearRejectsUnknownTypes) {
  VARIANT v;
  VariantInit(&v);
  v.vt = 0x0FFF;
  EXPECT_EQ(DISP_E_BADVARTYPE, VariantClear(&v));
  v.vt = VT_EMPTY;
  EXPECT_EQ(S_OK, VariantClear(&v));
}
