// Late binding through IDispatch: names, DISPIDs, argument coercion and the standard errors.
#include "script_host.h"

#include <string>

namespace {

using script::Call;
using script::Var;

HRESULT ids_of(IDispatch* object, std::vector<const wchar_t*> names, std::vector<DISPID>& ids) {
  ids.assign(names.size(), 12345);
  return object->GetIDsOfNames(IID_NULL, const_cast<LPOLESTR*>(names.data()), UINT(names.size()),
                               LOCALE_USER_DEFAULT, ids.data());
}

TEST(DispatchNames, AnyMixtureOfCaseReachesTheSameMember) {
  auto line = script::create(L"TivaloCOM.InvoiceLine");
  DISPID item = script::dispid_of(line.get(), L"item");
  EXPECT_GT(item, 0);
  for (const wchar_t* name : {L"Item", L"ITEM", L"iTeM"}) EXPECT_EQ(item, script::dispid_of(line.get(), name));
  EXPECT_EQ(script::dispid_of(line.get(), L"IsUUIDSet"), script::dispid_of(line.get(), L"isuuidset"));
}

TEST(DispatchNames, UnknownNamesGiveUnknownDispids) {
  auto freight = script::create(L"TivaloCOM.FreightInvoice");
  auto invoice = script::create(L"TivaloCOM.Invoice");
  std::vector<DISPID> ids;
  EXPECT_EQ(DISP_E_UNKNOWNNAME, ids_of(freight.get(), {L"UBLExtensions"}, ids));
  EXPECT_EQ(DISPID_UNKNOWN, ids[0]);
  EXPECT_EQ(DISP_E_UNKNOWNNAME, ids_of(freight.get(), {L"IsUBLExtensionsSet"}, ids));
  EXPECT_EQ(S_OK, ids_of(invoice.get(), {L"UBLExtensions"}, ids));
  EXPECT_EQ(DISP_E_UNKNOWNNAME, ids_of(invoice.get(), {L"NoSuchMember"}, ids));
  EXPECT_EQ(DISP_E_UNKNOWNNAME, ids_of(invoice.get(), {L"ID\u00e9"}, ids));
  // The DISPIDs themselves are the catalogue's; its tests pin them.
  EXPECT_EQ(148, script::dispid_of(invoice.get(), L"GetValueValidationErrorsFromXML"));
}

TEST(DispatchNames, ParameterNamesFollowTheMemberName) {
  auto invoice = script::create(L"TivaloCOM.Invoice");
  std::vector<DISPID> ids;
  EXPECT_EQ(S_OK, ids_of(invoice.get(), {L"GetValidationErrors", L"XSLFILE", L"file"}, ids));
  EXPECT_EQ(2, ids[1]);
  EXPECT_EQ(0, ids[2]);
  EXPECT_EQ(DISP_E_UNKNOWNNAME, ids_of(invoice.get(), {L"Read", L"file", L"errors"}, ids));
  EXPECT_EQ(0, ids[1]);
  EXPECT_EQ(DISPID_UNKNOWN, ids[2]) << "the result is not an argument";
  EXPECT_EQ(DISP_E_UNKNOWNINTERFACE,
            invoice->GetIDsOfNames(IID_IDispatch, nullptr, 0, LOCALE_USER_DEFAULT, nullptr));
}

// Unknown members, wrong kinds of call, wrong counts and types of arguments: the status, and for
// a type mismatch the argument's place (arguments travel last-first: the first of two is 1).
TEST(DispatchErrors, RefusedCalls) {
  auto invoice = script::create(L"TivaloCOM.Invoice");
  auto address = script::create(L"TivaloCOM.Address");
  const Var object = Var::object(address.get());
  const struct { const wchar_t* member; DISPID id; WORD flags; std::vector<Var> args; HRESULT hr; UINT place; } cases[] = {
      {nullptr, 4321, DISPATCH_METHOD, {}, DISP_E_MEMBERNOTFOUND, UINT(-1)},
      {nullptr, 0, DISPATCH_PROPERTYGET, {}, DISP_E_MEMBERNOTFOUND, UINT(-1)},
      {L"IsUUIDSet", 0, DISPATCH_PROPERTYPUT, {Var::i4(1)}, DISP_E_MEMBERNOTFOUND, UINT(-1)},
      {L"Read", 0, DISPATCH_PROPERTYGET, {Var::text(L"x")}, DISP_E_MEMBERNOTFOUND, UINT(-1)},
      {L"getInvoiceLine", 0, DISPATCH_METHOD, {}, DISP_E_BADPARAMCOUNT, UINT(-1)},
      {L"getInvoiceLine", 0, DISPATCH_METHOD, {Var::i4(0), Var::i4(1)}, DISP_E_BADPARAMCOUNT, UINT(-1)},
      {L"getInvoiceLine", 0, DISPATCH_METHOD, {Var::text(L"first")}, DISP_E_TYPEMISMATCH, 0},
      {L"addInvoiceLine", 0, DISPATCH_METHOD, {Var::text(L"a line")}, DISP_E_TYPEMISMATCH, 0},
      // An object that does not answer the member's interface.
      {L"addInvoiceLine", 0, DISPATCH_METHOD, {object}, DISP_E_TYPEMISMATCH, 0},
      {L"GetSchemaValidationErrors", 0, DISPATCH_METHOD, {object, Var::text(L"schema.xsd")},
       DISP_E_TYPEMISMATCH, 1}};
  for (const auto& c : cases) {
    const DISPID id = c.member ? script::dispid_of(invoice.get(), c.member) : c.id;
    SCOPED_TRACE(id);
    Call call;
    script::invoke(call, invoice.get(), id, c.flags, c.args);
    EXPECT_EQ(c.hr, call.hr);
    EXPECT_EQ(c.place, call.arg_error);
  }
  DISPPARAMS none{nullptr, nullptr, 0, 0};
  EXPECT_EQ(DISP_E_UNKNOWNINTERFACE,
            invoice->Invoke(1, IID_IDispatch, 0, DISPATCH_PROPERTYGET, &none, nullptr, nullptr, nullptr));
}

TEST(DispatchErrors, NamedArguments) {
  auto invoice = script::create(L"TivaloCOM.Invoice");
  // A put's value must be the named DISPID_PROPERTYPUT argument.
  Var value = Var::object(script::create(L"TivaloCOM.Identifier").get());
  DISPPARAMS unnamed{&value, nullptr, 1, 0};
  EXPECT_EQ(DISP_E_PARAMNOTFOUND,
            invoice->Invoke(script::dispid_of(invoice.get(), L"ID"), IID_NULL, 0,
                            DISPATCH_PROPERTYPUT, &unnamed, nullptr, nullptr, nullptr));

  // Named arguments of a method by their positions, as GetIDsOfNames gave them.
  Var xml = Var::text(L"<Invoice/>");
  Var xsl = Var::text(L"");
  VARIANT args[] = {xml, xsl};
  DISPID names[] = {0, 1};
  DISPPARAMS named{args, names, 2, 2};
  Var result;
  EXPECT_EQ(S_OK, invoice->Invoke(script::dispid_of(invoice.get(), L"GetValueValidationErrorsFromXML"),
                                  IID_NULL, 0, DISPATCH_METHOD, &named, &result, nullptr, nullptr));
  EXPECT_EQ(VT_BSTR, result.vt);
  DISPID unknown[] = {0, 5};
  DISPPARAMS misnamed{args, unknown, 2, 2};
  EXPECT_EQ(DISP_E_PARAMNOTFOUND,
            invoice->Invoke(script::dispid_of(invoice.get(), L"GetValueValidationErrorsFromXML"),
                            IID_NULL, 0, DISPATCH_METHOD, &misnamed, nullptr, nullptr, nullptr));
}

TEST(DispatchCoercion, ArgumentsArriveAsScriptHostsPassThem) {
  auto identifier = script::create(L"TivaloCOM.Identifier");
  script::put(identifier.get(), L"Value", Var::i4(42));
  EXPECT_EQ(L"42", script::get(identifier.get(), L"Value").as_text());

  Var i2;
  i2.vt = VT_I2;
  i2.iVal = -7;
  script::put(identifier.get(), L"Value", i2);
  EXPECT_EQ(L"-7", script::get(identifier.get(), L"Value").as_text());

  BSTR text = SysAllocString(L"by reference");
  Var reference;
  reference.vt = VT_BYREF | VT_BSTR;
  reference.pbstrVal = &text;
  script::put(identifier.get(), L"SchemeID", reference);
  EXPECT_EQ(L"by reference", script::get(identifier.get(), L"SchemeID").as_text());
  SysFreeString(text);
  EXPECT_EQ(VARIANT_TRUE, script::get(identifier.get(), L"IsSchemeIDSet").boolVal);
  EXPECT_EQ(VT_BOOL, script::get(identifier.get(), L"IsSchemeIDSet").vt);

  auto amount = script::create(L"TivaloCOM.Amount");
  script::put(amount.get(), L"Value", Var::text(L"12.5"));
  Var number = script::get(amount.get(), L"Value");
  EXPECT_EQ(VT_R8, number.vt);
  EXPECT_DOUBLE_EQ(12.5, number.dblVal);
}

TEST(DispatchCoercion, DatesBooleansIndicesAndObjects) {
  auto invoice = script::create(L"TivaloCOM.Invoice");
  script::put(invoice.get(), L"IssueDate", Var::text(L"2010-08-20"));
  Var date = script::get(invoice.get(), L"IssueDate");
  EXPECT_EQ(VT_DATE, date.vt);
  EXPECT_DOUBLE_EQ(40410.0, date.date);
  Var as_date;
  as_date.vt = VT_DATE;
  as_date.date = 40411.0;
  script::put(invoice.get(), L"IssueDate", as_date);
  EXPECT_DOUBLE_EQ(40411.0, script::get(invoice.get(), L"IssueDate").date);

  auto line = script::create(L"TivaloCOM.InvoiceLine");
  Var unknown;
  unknown.vt = VT_UNKNOWN;
  unknown.punkVal = line.get();
  line->AddRef();
  script::call(invoice.get(), L"addInvoiceLine", {unknown});
  Var by_ref;
  IDispatch* pointer = line.get();
  by_ref.vt = VT_BYREF | VT_DISPATCH;
  by_ref.ppdispVal = &pointer;
  script::call(invoice.get(), L"addInvoiceLine", {by_ref});
  EXPECT_EQ(2, script::get(invoice.get(), L"InvoiceLineCount").lVal);

  Var index = Var::r8(1.0);
  Var second = script::call(invoice.get(), L"getInvoiceLine", {index});
  ASSERT_EQ(VT_DISPATCH, second.vt);
  EXPECT_EQ(static_cast<IUnknown*>(line.get()), [&] {
    IUnknown* identity = nullptr;
    second.pdispVal->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity));
    identity->Release();
    return identity;
  }());

  // An empty or null object is the member's own affair: it refuses a null pointer, and that
  // failure comes back as an exception carrying the member's code.
  Call call;
  Var empty;
  script::invoke(call, invoice.get(), script::dispid_of(invoice.get(), L"ID"), DISPATCH_PROPERTYPUT, {empty});
  EXPECT_EQ(DISP_E_EXCEPTION, call.hr);
  EXPECT_EQ(E_POINTER, call.exception.scode);
  EXPECT_EQ(nullptr, call.exception.bstrDescription) << "accessors set no error information";
  Var null;
  null.vt = VT_NULL;
  script::invoke(call, invoice.get(), script::dispid_of(invoice.get(), L"addInvoiceLine"), DISPATCH_METHOD, {null});
  EXPECT_EQ(DISP_E_EXCEPTION, call.hr);
  EXPECT_EQ(E_POINTER, call.exception.scode);
}

TEST(DispatchErrors, FailingReadFillsExceptionInfo) {
  auto invoice = script::create(L"TivaloCOM.Invoice");
  Call call;
  script::invoke(call, invoice.get(), script::dispid_of(invoice.get(), L"Read"), DISPATCH_METHOD,
                 {Var::text(L"/nonexistent/directory/invoice.xml")});
  EXPECT_EQ(DISP_E_EXCEPTION, call.hr);
  EXPECT_EQ(DISP_E_EXCEPTION, call.exception.scode);
  ASSERT_NE(nullptr, call.exception.bstrSource);
  EXPECT_EQ(std::wstring(L"TivaloCOM.Invoice.1"), call.exception.bstrSource);
  ASSERT_NE(nullptr, call.exception.bstrDescription);
  EXPECT_GT(SysStringLen(call.exception.bstrDescription), 0u);

  // The error information was handed over, not left on the thread.
  IErrorInfo* left = nullptr;
  EXPECT_EQ(S_FALSE, GetErrorInfo(0, &left));

  // A later failure that sets no error information does not inherit this one's description.
  ICreateErrorInfo* stale = nullptr;
  ASSERT_EQ(S_OK, CreateErrorInfo(&stale));
  stale->SetDescription(const_cast<LPOLESTR>(L"an earlier failure"));
  IErrorInfo* stale_info = nullptr;
  stale->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&stale_info));
  SetErrorInfo(0, stale_info);
  stale_info->Release();
  stale->Release();
  auto binary = script::create(L"TivaloCOM.BinaryObject");
  Var number;
  number.vt = VT_I4;
  Call put;
  script::invoke(put, binary.get(), script::dispid_of(binary.get(), L"Value"), DISPATCH_PROPERTYPUT, {number});
  EXPECT_EQ(DISP_E_EXCEPTION, put.hr);
  EXPECT_EQ(E_INVALIDARG, put.exception.scode);
  EXPECT_EQ(nullptr, put.exception.bstrDescription);
}

TEST(ErrorInfoSupport, EveryObjectAnswersForItsOwnInterface) {
  for (const wchar_t* progid : {L"TivaloCOM.Invoice", L"TivaloCOM.Address", L"TivaloCOM.Amount"}) {
    auto object = script::create(progid);
    ISupportErrorInfo* support = nullptr;
    ASSERT_EQ(S_OK, object->QueryInterface(IID_ISupportErrorInfo, reinterpret_cast<void**>(&support)))
        << "ProgID " << std::string(progid, progid + wcslen(progid));
    ITypeInfo* info = nullptr;
    ASSERT_EQ(S_OK, object->GetTypeInfo(0, 0, &info));
    TYPEATTR* attributes = nullptr;
    ASSERT_EQ(S_OK, info->GetTypeAttr(&attributes));
    EXPECT_EQ(S_OK, support->InterfaceSupportsErrorInfo(attributes->guid));
    EXPECT_EQ(S_FALSE, support->InterfaceSupportsErrorInfo(IID_IDispatch));
    EXPECT_EQ(S_FALSE, support->InterfaceSupportsErrorInfo(IID_ISupportErrorInfo));
    // The same object behind it.
    IUnknown* a = nullptr;
    IUnknown* b = nullptr;
    support->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&a));
    object->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&b));
    EXPECT_EQ(a, b);
    a->Release();
    b->Release();
    info->ReleaseTypeAttr(attributes);
    info->Release();
    support->Release();
  }
}

}  // namespace
