// One-dimensional SAFEARRAYs.
#include <gtest/gtest.h>

#include "platform/automation.h"

TEST(SafeArray, VectorDescribesItself) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 5, 4);
  ASSERT_NE(nullptr, array);
  VARTYPE vt = VT_EMPTY;
  LONG lower = 0, upper = 0;
  EXPECT_EQ(1u, SafeArrayGetDim(array));
  EXPECT_EQ(1u, SafeArrayGetElemsize(array));
  EXPECT_EQ(S_OK, SafeArrayGetVartype(array, &vt));
  EXPECT_EQ(VT_UI1, vt);
  EXPECT_EQ(S_OK, SafeArrayGetLBound(array, 1, &lower));
  EXPECT_EQ(S_OK, SafeArrayGetUBound(array, 1, &upper));
  EXPECT_EQ(5, lower);
  EXPECT_EQ(8, upper);
  EXPECT_EQ(DISP_E_BADINDEX, SafeArrayGetLBound(array, 2, &lower));
  EXPECT_EQ(S_OK, SafeArrayDestroy(array));
  EXPECT_EQ(nullptr, SafeArrayCreateVector(VT_EMPTY, 0, 1));
}

TEST(SafeArray, ElementsAreBoundsChecked) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 1, 2);
  BYTE in = 0xAB, out = 0;
  for (LONG bad : {0, 3, -1}) EXPECT_EQ(DISP_E_BADINDEX, SafeArrayPutElement(array, &bad, &in));
  LONG index = 2;
  ASSERT_EQ(S_OK, SafeArrayPutElement(array, &index, &in));
  ASSERT_EQ(S_OK, SafeArrayGetElement(array, &index, &out));
  EXPECT_EQ(0xAB, out);
  index = 1;
  ASSERT_EQ(S_OK, SafeArrayGetElement(array, &index, &out));
  EXPECT_EQ(0, out);  // new arrays are zeroed
  SafeArrayDestroy(array);
}

TEST(SafeArray, LockedArrayIsNotDestroyed) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, 1);
  void* data = nullptr;
  ASSERT_EQ(S_OK, SafeArrayAccessData(array, &data));
  EXPECT_EQ(DISP_E_ARRAYISLOCKED, SafeArrayDestroy(array));
  EXPECT_EQ(S_OK, SafeArrayUnaccessData(array));
  EXPECT_EQ(E_UNEXPECTED, SafeArrayUnaccessData(array));
  EXPECT_EQ(S_OK, SafeArrayDestroy(array));
}

TEST(SafeArray, StringArraysCopyDeeply) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_BSTR, 0, 2);
  tivalo::Bstr first(L"first");
  LONG index = 0;
  ASSERT_EQ(S_OK, SafeArrayPutElement(array, &index, first.get()));
  ASSERT_EQ(S_OK, SafeArrayPutElement(array, &index, first.get()));  // replacing frees the old copy
  SAFEARRAY* copy = nullptr;
  ASSERT_EQ(S_OK, SafeArrayCopy(array, &copy));
  SafeArrayDestroy(array);
  tivalo::Bstr out;
  ASSERT_EQ(S_OK, SafeArrayGetElement(copy, &index, out.put()));
  EXPECT_EQ(L"first", out.str());
  EXPECT_NE(first.get(), out.get());
  index = 1;
  ASSERT_EQ(S_OK, SafeArrayGetElement(copy, &index, out.put()));
  EXPECT_EQ(nullptr, out.get());
  SafeArrayDestroy(copy);
}
