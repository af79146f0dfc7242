// VARIANT life cycle and the coercions of VariantChangeType.
#include <gtest/gtest.h>

#include <cmath>

#include "platform/automation.h"

namespace {

// Owns a VARIANT for the length of a test.
struct Var : VARIANT {
  Var() { VariantInit(this); }
  ~Var() { VariantClear(this); }
  Var(const Var&) = delete;
};

Var* i2(Var* v, SHORT x) { return v->vt = VT_I2, v->iVal = x, v; }
Var* i4(Var* v, LONG x) { return v->vt = VT_I4, v->lVal = x, v; }
Var* r8(Var* v, double x) { return v->vt = VT_R8, v->dblVal = x, v; }
Var* date(Var* v, DATE x) { return v->vt = VT_DATE, v->date = x, v; }
Var* boolean(Var* v, VARIANT_BOOL x) { return v->vt = VT_BOOL, v->boolVal = x, v; }
Var* text(Var* v, const wchar_t* x) { return v->vt = VT_BSTR, v->bstrVal = SysAllocString(x), v; }

HRESULT change(const VARIANT* source, VARTYPE vt, Var& out, USHORT flags = 0) {
  return VariantChangeType(&out, source, flags, vt);
}

std::wstring as_text(const VARIANT* source, USHORT flags = 0) {
  Var out;
  EXPECT_EQ(S_OK, change(source, VT_BSTR, out, flags));
  return std::wstring(out.bstrVal, SysStringLen(out.bstrVal));
}

LONG as_i4(const VARIANT* source) {
  Var out;
  EXPECT_EQ(S_OK, change(source, VT_I4, out));
  EXPECT_EQ(VT_I4, out.vt);
  return out.lVal;
}

}  // namespace

TEST(VariantChangeType, ToI4) {
  Var a, b, c, d, e, f, g, h;
  EXPECT_EQ(12, as_i4(text(&a, L"12")));
  EXPECT_EQ(-7, as_i4(text(&b, L"  -7 ")));
  EXPECT_EQ(-1, as_i4(boolean(&c, VARIANT_TRUE)));
  EXPECT_EQ(0, as_i4(&d));  // EMPTY
  EXPECT_EQ(-3, as_i4(i2(&e, -3)));
  EXPECT_EQ(3, as_i4(date(&f, 2.75)));
  EXPECT_EQ(2, as_i4(text(&g, L"2.5")));
  EXPECT_EQ(120, as_i4(text(&h, L"1.2e2")));
}

TEST(VariantChangeType, RealsRoundHalfToEven) {
  const std::pair<double, LONG> cases[] = {{2.5, 2}, {3.5, 4}, {-2.5, -2}, {-3.5, -4}, {2.4999, 2},
                                           {2.5001, 3}, {-0.5, 0}, {2147483647.4, 2147483647},
                                           {-2147483648.5, INT32_MIN}};
  for (const auto& [value, expected] : cases) {
    Var v;
    EXPECT_EQ(expected, as_i4(r8(&v, value))) << value;
  }
}

TEST(VariantChangeType, OverflowIsReported) {
  Var big, small, huge, notANumber, out;
  EXPECT_EQ(DISP_E_OVERFLOW, change(r8(&big, 2147483647.5), VT_I4, out));
  EXPECT_EQ(DISP_E_OVERFLOW, change(i4(&small, 32768), VT_I2, out));
  EXPECT_EQ(DISP_E_OVERFLOW, change(text(&huge, L"1e400"), VT_R8, out));
  EXPECT_EQ(DISP_E_OVERFLOW, change(r8(&notANumber, std::nan("")), VT_I4, out));
  Var tiny;
  EXPECT_EQ(S_OK, change(text(&tiny, L"1e-400"), VT_R8, out));
  EXPECT_EQ(0.0, out.dblVal);
  Var farFuture, untouched;
  EXPECT_EQ(DISP_E_OVERFLOW, change(r8(&farFuture, 2958466.0), VT_DATE, untouched));
  EXPECT_EQ(VT_EMPTY, untouched.vt);  // a failed conversion leaves the target alone
}

TEST(VariantChangeType, ToTextAndBack) {
  Var a, b, c, d, e, f, g;
  EXPECT_EQ(L"12", as_text(i4(&a, 12)));
  EXPECT_EQ(L"-32768", as_text(i2(&b, -32768)));
  EXPECT_EQ(L"2.5", as_text(r8(&c, 2.5)));
  EXPECT_EQ(L"0.1", as_text(r8(&d, 0.1)));
  EXPECT_EQ(L"1E+20", as_text(r8(&e, 1e20)));
  EXPECT_EQ(L"", as_text(&f));  // EMPTY
  EXPECT_EQ(L"-1", as_text(boolean(&g, VARIANT_TRUE)));
  EXPECT_EQ(L"True", as_text(&g, VARIANT_ALPHABOOL));
  for (double value : {0.1, 1.0 / 3, -123456.789, 6.02214076e23}) {
    Var v, back;
    const std::wstring shown = as_text(r8(&v, value));
    Var t;
    ASSERT_EQ(S_OK, change(text(&t, shown.c_str()), VT_R8, back));
    EXPECT_NEAR(value, back.dblVal, std::fabs(value) * 1e-14) << shown;
  }
}

TEST(VariantChangeType, DatesUseTheInvariantForm) {
  const std::pair<DATE, const wchar_t*> cases[] = {{2.5, L"1900-01-01 12:00:00"}, {36526.0, L"2000-01-01"},
                                                   {0.75, L"18:00:00"}, {0.0, L"00:00:00"},
                                                   {-1.25, L"1899-12-29 06:00:00"}, {-657434.0, L"0100-01-01"}};
  for (const auto& [value, shown] : cases) {
    Var d, t, back;
    EXPECT_EQ(shown, as_text(date(&d, value)));
    ASSERT_EQ(S_OK, change(text(&t, shown), VT_DATE, back)) << shown;
    EXPECT_EQ(value, back.date) << shown;
  }
  Var t, out;
  EXPECT_EQ(S_OK, change(text(&t, L"2010-05-06T07:08"), VT_DATE, out));
  for (const wchar_t* bad : {L"2010-02-30", L"2010-13-01", L"24:00:00", L"yesterday", L"", L"12"}) {
    Var b;
    EXPECT_EQ(DISP_E_TYPEMISMATCH, change(text(&b, bad), VT_DATE, out)) << bad;
  }
}

TEST(VariantChangeType, BooleansAndNumbers) {
  Var yes, no, two, word, zero, out;
  ASSERT_EQ(S_OK, change(text(&yes, L"TRUE"), VT_BOOL, out));
  EXPECT_EQ(VARIANT_TRUE, out.boolVal);
  ASSERT_EQ(S_OK, change(text(&no, L"false"), VT_BOOL, out));
  EXPECT_EQ(VARIANT_FALSE, out.boolVal);
  ASSERT_EQ(S_OK, change(r8(&two, 0.25), VT_BOOL, out));
  EXPECT_EQ(VARIANT_TRUE, out.boolVal);
  ASSERT_EQ(S_OK, change(i4(&zero, 0), VT_BOOL, out));
  EXPECT_EQ(VARIANT_FALSE, out.boolVal);
  EXPECT_EQ(DISP_E_TYPEMISMATCH, change(text(&word, L"maybe"), VT_BOOL, out));
  Var t;
  ASSERT_EQ(S_OK, change(boolean(&t, VARIANT_TRUE), VT_R8, out));
  EXPECT_EQ(-1.0, out.dblVal);
  ASSERT_EQ(S_OK, change(&t, VT_DATE, out));
  EXPECT_EQ(-1.0, out.date);
}

TEST(VariantChangeType, NullEmptyAndBadInput) {
  Var null, out;
  null.vt = VT_NULL;
  for (VARTYPE vt : {VT_I2, VT_I4, VT_R8, VT_BSTR, VT_BOOL, VT_DATE, VT_EMPTY, VT_DISPATCH})
    EXPECT_EQ(DISP_E_TYPEMISMATCH, change(&null, vt, out)) << vt;
  EXPECT_EQ(S_OK, change(&null, VT_NULL, out));
  EXPECT_EQ(VT_NULL, out.vt);
  for (const wchar_t* bad : {L"", L"12abc", L"1,000", L"--1", L".", L"1e"}) {
    Var b;
    EXPECT_EQ(DISP_E_TYPEMISMATCH, change(text(&b, bad), VT_I4, out)) << bad;
  }
  Var empty;
  ASSERT_EQ(S_OK, change(&empty, VT_DATE, out));
  EXPECT_EQ(0.0, out.date);
  Var v;
  EXPECT_EQ(DISP_E_BADVARTYPE, change(i4(&v, 1), VARTYPE(VT_I4 | VT_BYREF), out));
}

TEST(VariantChangeType, ReadsThroughReferencesAndConvertsInPlace) {
  LONG value = 42;
  Var ref;
  ref.vt = VT_I4 | VT_BYREF;
  ref.plVal = &value;
  EXPECT_EQ(L"42", as_text(&ref));
  BSTR owned = SysAllocString(L"7");
  Var textRef, out;
  textRef.vt = VT_BSTR | VT_BYREF;
  textRef.pbstrVal = &owned;
  ASSERT_EQ(S_OK, change(&textRef, VT_I2, out));
  EXPECT_EQ(7, out.iVal);
  SysFreeString(owned);

  Var self;
  text(&self, L"3.5");
  ASSERT_EQ(S_OK, VariantChangeType(&self, &self, 0, VT_I4));
  EXPECT_EQ(VT_I4, self.vt);
  EXPECT_EQ(4, self.lVal);
}

TEST(Variant, CopyDuplicatesStringsAndArrays) {
  Var source, copy;
  text(&source, L"abc");
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

  Var inner, outer, result;
  text(&inner, L"inside");
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
