// Type information of the objects, answered from the catalogue.
#include "script_host.h"
#include "tivalo/interfaces.h"

#include <string>

namespace {

std::wstring text(BSTR value) {
  std::wstring result = value ? std::wstring(value, SysStringLen(value)) : L"<null>";
  SysFreeString(value);
  return result;
}

tivalo::ComPtr<ITypeInfo> type_info_of(IDispatch* object) {
  UINT count = 0;
  EXPECT_EQ(S_OK, object->GetTypeInfoCount(&count));
  EXPECT_EQ(1u, count);
  tivalo::ComPtr<ITypeInfo> info;
  EXPECT_EQ(S_OK, object->GetTypeInfo(0, LOCALE_USER_DEFAULT, info.put()));
  return info;
}

TEST(TypeInfo, DescribesTheDualInterface) {
  auto invoice = script::create(L"TivaloCOM.Invoice");
  ITypeInfo* none = reinterpret_cast<ITypeInfo*>(0x1);
  EXPECT_EQ(DISP_E_BADINDEX, invoice->GetTypeInfo(1, 0, &none));
  EXPECT_EQ(nullptr, none);

  auto info = type_info_of(invoice.get());
  ASSERT_TRUE(info);
  TYPEATTR* attr = nullptr;
  ASSERT_EQ(S_OK, info->GetTypeAttr(&attr));
  EXPECT_EQ(IID_IInvoice, attr->guid);
  EXPECT_EQ(TKIND_DISPATCH, attr->typekind);
  EXPECT_EQ(181, attr->cFuncs);
  EXPECT_EQ(0x11C0, attr->wTypeFlags);
  EXPECT_EQ(0, attr->wMajorVerNum);
  info->ReleaseTypeAttr(attr);

  BSTR name = nullptr, doc = nullptr;
  ASSERT_EQ(S_OK, info->GetDocumentation(MEMBERID_NIL, &name, &doc, nullptr, nullptr));
  EXPECT_EQ(L"IInvoice", text(name));
  EXPECT_EQ(L"IInvoice Interface", text(doc));
}

TEST(TypeInfo, FunctionsCarryDispidsKindsTypesAndParameterNames) {
  auto invoice = script::create(L"TivaloCOM.Invoice");
  auto info = type_info_of(invoice.get());

  FUNCDESC* last = nullptr;
  ASSERT_EQ(S_OK, info->GetFuncDesc(180, &last));
  EXPECT_EQ(148, last->memid);
  EXPECT_EQ(INVOKE_FUNC, last->invkind);
  EXPECT_EQ(2, last->cParams);
  EXPECT_EQ(VT_BSTR, last->lprgelemdescParam[0].tdesc.vt);
  EXPECT_EQ(VT_BSTR, last->elemdescFunc.tdesc.vt);
  info->ReleaseFuncDesc(last);

  BSTR names[4] = {};
  UINT count = 0;
  ASSERT_EQ(S_OK, info->GetNames(148, names, 4, &count));
  ASSERT_EQ(3u, count);
  EXPECT_EQ(L"GetValueValidationErrorsFromXML", text(names[0]));
  EXPECT_EQ(L"xmldata", text(names[1]));
  EXPECT_EQ(L"xsldata", text(names[2]));

  // getInvoiceLine(long index) returns an IInvoiceLine, referred to by its class.
  DISPID get_line = script::dispid_of(invoice.get(), L"getInvoiceLine");
  FUNCDESC* desc = nullptr;
  for (UINT i = 0; i < 181 && !desc; ++i) {
    ASSERT_EQ(S_OK, info->GetFuncDesc(i, &desc));
    if (desc->memid != get_line) {
      info->ReleaseFuncDesc(desc);
      desc = nullptr;
    }
  }
  ASSERT_NE(nullptr, desc);
  EXPECT_EQ(1, desc->cParams);
  EXPECT_EQ(VT_I4, desc->lprgelemdescParam[0].tdesc.vt);
  ASSERT_EQ(VT_PTR, desc->elemdescFunc.tdesc.vt);
  ASSERT_EQ(VT_USERDEFINED, desc->elemdescFunc.tdesc.lptdesc->vt);
  tivalo::ComPtr<ITypeInfo> line_info;
  ASSERT_EQ(S_OK, info->GetRefTypeInfo(desc->elemdescFunc.tdesc.lptdesc->hreftype, line_info.put()));
  info->ReleaseFuncDesc(desc);
  BSTR line_name = nullptr;
  ASSERT_EQ(S_OK, line_info->GetDocumentation(MEMBERID_NIL, &line_name, nullptr, nullptr, nullptr));
  EXPECT_EQ(L"IInvoiceLine", text(line_name));

  EXPECT_EQ(TYPE_E_ELEMENTNOTFOUND, info->GetFuncDesc(181, &desc));
  EXPECT_EQ(TYPE_E_ELEMENTNOTFOUND, info->GetNames(4321, names, 4, &count));
}

TEST(TypeInfo, PropertiesShareADispidAndPutsHaveUnnamedValues) {
  auto amount = script::create(L"TivaloCOM.Amount");
  auto info = type_info_of(amount.get());
  TYPEATTR* attr = nullptr;
  ASSERT_EQ(S_OK, info->GetTypeAttr(&attr));
  EXPECT_EQ(4, attr->cFuncs) << "Amount has no IsCurrencyIDSet";
  info->ReleaseTypeAttr(attr);

  FUNCDESC* put = nullptr;
  FUNCDESC* get = nullptr;
  ASSERT_EQ(S_OK, info->GetFuncDesc(2, &put));  // Value: the put stands before the get
  ASSERT_EQ(S_OK, info->GetFuncDesc(3, &get));
  EXPECT_EQ(INVOKE_PROPERTYPUT, put->invkind);
  EXPECT_EQ(INVOKE_PROPERTYGET, get->invkind);
  EXPECT_EQ(put->memid, get->memid);
  EXPECT_EQ(VT_R8, put->lprgelemdescParam[0].tdesc.vt);
  EXPECT_EQ(VT_R8, get->elemdescFunc.tdesc.vt);
  EXPECT_EQ(0, get->cParams);

  BSTR names[2] = {};
  UINT count = 0;
  ASSERT_EQ(S_OK, info->GetNames(get->memid, names, 2, &count));
  EXPECT_EQ(1u, count);
  EXPECT_EQ(L"Value", text(names[0]));
  info->ReleaseFuncDesc(put);
  info->ReleaseFuncDesc(get);
}

TEST(TypeInfo, InvokesAndNamesThroughTheTypeInfoToo) {
  auto identifier = script::create(L"TivaloCOM.Identifier");
  auto info = type_info_of(identifier.get());
  LPOLESTR name = const_cast<LPOLESTR>(L"value");
  MEMBERID id = 0;
  ASSERT_EQ(S_OK, info->GetIDsOfNames(&name, 1, &id));
  EXPECT_EQ(script::dispid_of(identifier.get(), L"Value"), id);

  script::Var value = script::Var::text(L"X-1");
  DISPID put = DISPID_PROPERTYPUT;
  DISPPARAMS params{&value, &put, 1, 1};
  ASSERT_EQ(S_OK, info->Invoke(identifier.get(), id, DISPATCH_PROPERTYPUT, &params, nullptr,
                               nullptr, nullptr));
  EXPECT_EQ(L"X-1", script::get(identifier.get(), L"Value").as_text());
}

}  // namespace
