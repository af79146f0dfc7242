// BSTR, tivalo::Bstr and the GUID text forms.
#include <gtest/gtest.h>

#include <unordered_set>

#include "platform/automation.h"

using tivalo::Bstr;

TEST(Bstr, NullIsAValidEmptyString) {
  EXPECT_EQ(0u, SysStringLen(nullptr));
  EXPECT_EQ(0u, SysStringByteLen(nullptr));
  SysFreeString(nullptr);
  EXPECT_EQ(nullptr, SysAllocString(nullptr));
  Bstr none;
  EXPECT_TRUE(none.empty());
  EXPECT_EQ(L"", none.str());
  EXPECT_EQ(Bstr(L""), none);  // null and "" hold the same text
}

TEST(Bstr, KeepsLengthEmbeddedNulsAndTerminator) {
  const wchar_t text[] = {L'a', L'\0', L'\u00e9', L'\U0001F600'};
  BSTR b = SysAllocStringLen(text, 4);
  ASSERT_NE(nullptr, b);
  EXPECT_EQ(4u, SysStringLen(b));
  EXPECT_EQ(4 * sizeof(wchar_t), SysStringByteLen(b));
  EXPECT_EQ(L'\0', b[4]);
  EXPECT_EQ(std::wstring(text, 4), Bstr::attach(b).str());
}

TEST(Bstr, ByteLengthsAndReallocationFromTheOldString) {
  BSTR b = SysAllocStringByteLen("abc", 3);
  EXPECT_EQ(3u, SysStringByteLen(b));
  EXPECT_EQ(0u, SysStringLen(b));
  EXPECT_EQ(0, std::memcmp(b, "abc", 3));
  ASSERT_TRUE(SysReAllocString(&b, L"hello world"));
  ASSERT_TRUE(SysReAllocString(&b, b + 6));
  EXPECT_EQ(std::wstring(L"world"), std::wstring(b, SysStringLen(b)));
  ASSERT_TRUE(SysReAllocStringLen(&b, L"xyz", 2));
  EXPECT_EQ(2u, SysStringLen(b));
  SysFreeString(b);
}

TEST(Bstr, OwnerCopiesMovesAndHandsOut) {
  Bstr a(std::wstring(L"x\0y", 3));
  EXPECT_EQ(3u, a.length());
  Bstr b = a;
  EXPECT_NE(a.get(), b.get());
  EXPECT_EQ(a, b);
  Bstr c = std::move(b);
  EXPECT_EQ(nullptr, b.get());
  EXPECT_EQ(a, c);

  BSTR out = nullptr;
  EXPECT_EQ(S_OK, c.copy_to(&out));
  EXPECT_EQ(std::wstring(L"x\0y", 3), Bstr::attach(out).str());
  EXPECT_EQ(E_POINTER, c.copy_to(nullptr));

  *c.put() = SysAllocString(L"new");
  EXPECT_EQ(L"new", c.str());
  BSTR raw = c.detach();
  EXPECT_EQ(nullptr, c.get());
  SysFreeString(raw);
}

TEST(Guid, TextFormsBothWays) {
  GUID g;
  ASSERT_TRUE(tivalo::parse_guid(L"{E56B93C1-b0eb-11DF-8a48-005056C00008}", g));
  EXPECT_EQ(0xe56b93c1u, g.Data1);
  EXPECT_EQ(0xb0eb, g.Data2);
  EXPECT_EQ(0x11df, g.Data3);
  EXPECT_EQ(0x8a, g.Data4[0]);
  EXPECT_EQ(0x08, g.Data4[7]);
  EXPECT_EQ(L"{e56b93c1-b0eb-11df-8a48-005056c00008}", tivalo::to_wstring(g));
  for (const wchar_t* bad : {L"", L"e56b93c1-b0eb-11df-8a48-005056c00008", L"{e56b93c1-b0eb-11df-8a48-005056c0000}",
                             L"{e56b93c1-b0eb-11df-8a48-005056c000080}", L"{e56b93c1:b0eb-11df-8a48-005056c00008}",
                             L"{g56b93c1-b0eb-11df-8a48-005056c00008}", L"TivaloCOM.Invoice"})
    EXPECT_FALSE(tivalo::parse_guid(bad, g)) << bad;
  CLSID clsid;
  EXPECT_EQ(CO_E_CLASSSTRING, CLSIDFromString(L"{nonsense}", &clsid));
  EXPECT_EQ(E_INVALIDARG, IIDFromString(L"{nonsense}", &clsid));

  // The Windows functions write upper case.
  wchar_t text[39];
  EXPECT_EQ(0, StringFromGUID2(IID_IDispatch, text, 38));
  ASSERT_EQ(39, StringFromGUID2(IID_IErrorInfo, text, 39));
  EXPECT_STREQ(L"{1CF2B120-547D-101B-8E65-08002B2BD119}", text);
  ASSERT_EQ(S_OK, CLSIDFromString(text, &clsid));
  EXPECT_TRUE(IsEqualGUID(IID_IErrorInfo, clsid));
  LPOLESTR allocated = nullptr;
  ASSERT_EQ(S_OK, StringFromCLSID(IID_ITypeInfo, &allocated));
  EXPECT_STREQ(L"{00020401-0000-0000-C000-000000000046}", allocated);
  CoTaskMemFree(allocated);
}

TEST(Guid, HashesAndComparesByValue) {
  GUID copy = IID_IDispatch;
  std::unordered_set<GUID> set = {IID_IUnknown, IID_IDispatch, GUID_NULL};
  EXPECT_EQ(3u, set.size());
  EXPECT_EQ(1u, set.count(copy));
  EXPECT_TRUE(copy == IID_IDispatch && IID_IUnknown != IID_IDispatch);
  EXPECT_EQ(0u, set.count(IID_IClassFactory));
}
