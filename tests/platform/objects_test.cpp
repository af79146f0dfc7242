// Interfaces through tivalo::ComPtr, VARIANTs holding objects, error information and the
// invalid-parameter hook.
#include <gtest/gtest.h>

#include <thread>

#include "platform/automation.h"

using tivalo::Bstr;
using tivalo::ComPtr;

namespace {

// A dispatch object whose default member returns a fixed text, counting its references.
class Counted : public IDispatch {
 public:
  ULONG references = 1;
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!IsEqualGUID(iid, IID_IUnknown) && !IsEqualGUID(iid, IID_IDispatch)) {
      *out = nullptr;
      return E_NOINTERFACE;
    }
    *out = static_cast<IDispatch*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
  ULONG STDMETHODCALLTYPE Release() override { return --references; }  // lives on the stack
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID member, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT* result,
                                   EXCEPINFO*, UINT*) override {
    if (member != DISPID_VALUE || params->cArgs != 0) return DISP_E_MEMBERNOTFOUND;
    result->vt = VT_BSTR;
    result->bstrVal = SysAllocString(L"17");
    return S_OK;
  }
};

}  // namespace

TEST(ComPtr, CountsReferencesThroughCopyMoveQueryAndDetach) {
  Counted object;
  {
    ComPtr<IDispatch> a(&object);
    ComPtr<IDispatch> b = a;
    ComPtr<IUnknown> as_unknown = a;  // derived to base
    EXPECT_EQ(4u, object.references);
    ComPtr<IDispatch> moved = std::move(b);
    EXPECT_EQ(nullptr, b.get());
    EXPECT_EQ(4u, object.references);
    IDispatch* out = nullptr;
    EXPECT_EQ(S_OK, a.copy_to(&out));
    out->Release();
    a = nullptr;
    EXPECT_EQ(3u, object.references);
    EXPECT_EQ(&object, as_unknown.as<IDispatch>().get());
    EXPECT_EQ(nullptr, as_unknown.as<IErrorInfo>().get());
    EXPECT_EQ(3u, object.references);
    IUnknown* raw = as_unknown.detach();
    ComPtr<IUnknown> adopted;
    adopted.attach(raw);
    EXPECT_EQ(3u, object.references);
    adopted.put();  // an out-parameter slot starts empty
    EXPECT_EQ(2u, object.references);
  }
  EXPECT_EQ(1u, object.references);
  EXPECT_TRUE(IsEqualGUID(IID_IDispatch, tivalo::iid_of<IDispatch>()));
}

TEST(ComPtr, VariantsHoldReferences) {
  Counted object;
  VARIANT a, b;
  VariantInit(&a);
  VariantInit(&b);
  a.vt = VT_DISPATCH;
  a.pdispVal = &object;
  object.AddRef();
  ASSERT_EQ(S_OK, VariantCopy(&b, &a));
  EXPECT_EQ(3u, object.references);
  // An object converts through its default member.
  VARIANT number;
  VariantInit(&number);
  ASSERT_EQ(S_OK, VariantChangeType(&number, &a, 0, VT_I4));
  EXPECT_EQ(17, number.lVal);
  EXPECT_EQ(DISP_E_TYPEMISMATCH, VariantChangeType(&number, &a, VARIANT_NOVALUEPROP, VT_I4));
  ASSERT_EQ(S_OK, VariantChangeType(&number, &a, 0, VT_UNKNOWN));
  EXPECT_EQ(4u, object.references);
  VariantClear(&number);
  VariantClear(&a);
  VariantClear(&b);
  EXPECT_EQ(1u, object.references);
}

TEST(ErrorInfo, CarriesItsFieldsInOneSlotPerThreadEmptiedByGet) {
  ComPtr<ICreateErrorInfo> create;
  ASSERT_EQ(S_OK, CreateErrorInfo(create.put()));
  Bstr source(L"TivaloCOM.Invoice.1"), description(L"Tivalo: failed");
  create->SetGUID(IID_IDispatch);
  create->SetSource(source.get());
  create->SetDescription(description.get());
  ComPtr<IErrorInfo> info = create.as<IErrorInfo>();
  ASSERT_EQ(S_OK, SetErrorInfo(0, info));

  std::thread other([] {
    ComPtr<IErrorInfo> none;
    EXPECT_EQ(S_FALSE, GetErrorInfo(0, none.put()));
    EXPECT_EQ(nullptr, none.get());
  });
  other.join();

  ComPtr<IErrorInfo> taken;
  ASSERT_EQ(S_OK, GetErrorInfo(0, taken.put()));
  EXPECT_EQ(info.get(), taken.get());
  GUID guid;
  Bstr text;
  taken->GetGUID(&guid);
  EXPECT_TRUE(IsEqualGUID(IID_IDispatch, guid));
  taken->GetSource(text.put());
  EXPECT_EQ(source, text);
  taken->GetDescription(text.put());
  EXPECT_EQ(description, text);
  taken->GetHelpFile(text.put());
  EXPECT_EQ(nullptr, text.get());
  EXPECT_EQ(S_FALSE, GetErrorInfo(0, taken.put()));
  EXPECT_EQ(nullptr, taken.get());
}

namespace {
int reported = 0;
std::wstring reportedExpression;
void record(const wchar_t* expression, const wchar_t*, const wchar_t*, unsigned, uintptr_t) {
  ++reported;
  reportedExpression = expression ? expression : L"";
}
}  // namespace

TEST(InvalidParameter, InstalledHandlerReturnsToTheCaller) {
  tivalo_invalid_parameter_handler previous = _set_invalid_parameter_handler(record);
  EXPECT_EQ(nullptr, previous);
  int index = -1;
  TIVALO_INVALID_PARAMETER(index >= 0);
  EXPECT_EQ(1, reported);
  EXPECT_EQ(L"index >= 0", reportedExpression);
  EXPECT_EQ(record, _set_invalid_parameter_handler(previous));
}

TEST(InvalidParameterDeathTest, DefaultHandlerReportsAndAborts) {
  EXPECT_DEATH(TIVALO_INVALID_PARAMETER(count < limit), "invalid parameter: count < limit");
}
