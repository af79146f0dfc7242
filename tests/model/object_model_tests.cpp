// The object model through its interfaces: sharing, optional and required children, lists,
// values, data types, the load and store steps of every document class, and lifetime.
#include "binding/namespaces.h"
#include "model/classes.h"
#include "tests/model/model_testing.h"
#include "platform/automation.h"
#include "tivalo/interfaces.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

using namespace Morvek::Tivalo;
using tivalo::Bstr;
using tivalo::ComPtr;

namespace {

template <class Interface>
ComPtr<Interface> make() {
  ComPtr<Interface> object;
  EXPECT_EQ(S_OK, create_object(object.put()));
  return object;
}

ULONG references(IUnknown* object) {
  object->AddRef();
  return object->Release();
}

std::wstring text(BSTR value) { return value ? std::wstring(value, SysStringLen(value)) : L""; }

// Sets the Value of an identifier-like child got through a property getter.
template <class Parent, class Child>
void set_value(Parent* parent, HRESULT (STDMETHODCALLTYPE Parent::*getter)(Child**),
               const wchar_t* value) {
  ComPtr<Child> child;
  ASSERT_EQ(S_OK, (parent->*getter)(child.put()));
  ASSERT_EQ(S_OK, child->put_Value(Bstr(value).get()));
}

using model_testing::load_xml;
using model_testing::stored_xml;

class ObjectModel : public ::testing::Test {
 protected:
  // Binding trees with extension content hold DOM nodes: the parser platform stays up meanwhile.
  xsd::cxx::xml::auto_initializer xml_platform_;

  void SetUp() override { locks_before_ = Module::lock_count(); }
  // Every test releases what it made: the module lock count is back where it was.
  void TearDown() override { EXPECT_EQ(locks_before_, Module::lock_count()); }

 private:
  LONG locks_before_ = 0;
};

struct InvalidParameterCatcher {
  static inline int calls = 0;
  static void handler(const wchar_t*, const wchar_t*, const wchar_t*, unsigned, uintptr_t) {
    ++calls;
  }
  InvalidParameterCatcher() : previous(_set_invalid_parameter_handler(&handler)) { calls = 0; }
  ~InvalidParameterCatcher() { _set_invalid_parameter_handler(previous); }
  tivalo_invalid_parameter_handler previous;
};

}  // namespace

TEST_F(ObjectModel, OneChildPutIntoTwoParentsIsSharedByReference) {
  auto first = make<IParty>(), second = make<IParty>();
  auto address = make<IAddress>();
  ASSERT_EQ(S_OK, first->put_PostalAddress(address.get()));
  ASSERT_EQ(S_OK, second->put_PostalAddress(address.get()));
  ULONG held = references(address.get());
  ASSERT_EQ(S_OK, first->put_PostalAddress(address.get()));  // the stored object again
  EXPECT_EQ(held, references(address.get()));

  ComPtr<IAddress> through_first;
  ASSERT_EQ(S_OK, first->get_PostalAddress(through_first.put()));
  set_value(through_first.get(), &IAddress::get_CityName, L"Lyon");

  ComPtr<IAddress> through_second;
  ASSERT_EQ(S_OK, second->get_PostalAddress(through_second.put()));
  EXPECT_EQ(address.get(), through_second.get());
  ComPtr<IName> city;
  ASSERT_EQ(S_OK, through_second->get_CityName(city.put()));
  Bstr value;
  ASSERT_EQ(S_OK, city->get_Value(value.put()));
  EXPECT_EQ(L"Lyon", text(value.get()));
}

TEST_F(ObjectModel, ReadingAnAbsentOptionalChildCreatesIt) {
  auto party = make<IParty>();
  VARIANT_BOOL set = 1;
  ASSERT_EQ(S_OK, party->get_IsAgentPartySet(&set));
  EXPECT_EQ(VARIANT_FALSE, set);
  ComPtr<IParty> agent;
  ASSERT_EQ(S_OK, party->get_AgentParty(agent.put()));
  EXPECT_TRUE(agent);
  ASSERT_EQ(S_OK, party->get_IsAgentPartySet(&set));
  EXPECT_EQ(VARIANT_TRUE, set);
  ComPtr<IParty> again;
  ASSERT_EQ(S_OK, party->get_AgentParty(again.put()));
  EXPECT_EQ(agent.get(), again.get());
}

TEST_F(ObjectModel, NullArgumentsAreRefused) {
  auto party = make<IParty>();
  EXPECT_EQ(E_POINTER, party->put_PostalAddress(nullptr));
  EXPECT_EQ(E_POINTER, party->addPartyName(nullptr));
  EXPECT_EQ(E_POINTER, party->get_PostalAddress(nullptr));
}

TEST_F(ObjectModel, ANewInvoiceHasItsRequiredChildren) {
  auto invoice = make<IInvoice>();
  ComPtr<IIdentifier> id;
  ComPtr<ISupplierParty> supplier;
  ComPtr<ICustomerParty> customer;
  ComPtr<IMonetaryTotal> total;
  ASSERT_EQ(S_OK, invoice->get_ID(id.put()));
  ASSERT_EQ(S_OK, invoice->get_AccountingSupplierParty(supplier.put()));
  ASSERT_EQ(S_OK, invoice->get_AccountingCustomerParty(customer.put()));
  ASSERT_EQ(S_OK, invoice->get_LegalMonetaryTotal(total.put()));
  EXPECT_TRUE(id && supplier && customer && total);
  DATE issued = -1;
  ASSERT_EQ(S_OK, invoice->get_IssueDate(&issued));
  EXPECT_EQ(0.0, issued);
  VARIANT_BOOL set = 1;
  ASSERT_EQ(S_OK, invoice->get_IsUBLVersionIDSet(&set));
  EXPECT_EQ(VARIANT_FALSE, set);
  LONG lines = -1;
  ASSERT_EQ(S_OK, invoice->get_InvoiceLineCount(&lines));
  EXPECT_EQ(0, lines);
}

TEST_F(ObjectModel, ListsHoldReferencesInOrder) {
  auto invoice = make<IInvoice>();
  auto a = make<IInvoiceLine>(), b = make<IInvoiceLine>(), c = make<IInvoiceLine>();
  ASSERT_EQ(S_OK, invoice->addInvoiceLine(a.get()));
  ASSERT_EQ(S_OK, invoice->addInvoiceLine(a.get()));
  LONG count = 0;
  ASSERT_EQ(S_OK, invoice->get_InvoiceLineCount(&count));
  EXPECT_EQ(2, count);
  ASSERT_EQ(S_OK, invoice->removeInvoiceLine(0));
  ComPtr<IInvoiceLine> first;
  ASSERT_EQ(S_OK, invoice->getInvoiceLine(0, first.put()));
  EXPECT_EQ(a.get(), first.get());

  ASSERT_EQ(S_OK, invoice->addInvoiceLine(b.get()));
  ASSERT_EQ(S_OK, invoice->addInvoiceLine(c.get()));
  ASSERT_EQ(S_OK, invoice->removeInvoiceLine(1));  // c moves down to 1
  ComPtr<IInvoiceLine> second;
  ASSERT_EQ(S_OK, invoice->getInvoiceLine(1, second.put()));
  EXPECT_EQ(c.get(), second.get());

  ASSERT_EQ(S_OK, invoice->clearInvoiceLines());
  ASSERT_EQ(S_OK, invoice->get_InvoiceLineCount(&count));
  EXPECT_EQ(0, count);
}

TEST_F(ObjectModel, OutOfRangeIndicesReachTheInvalidParameterHandler) {
  InvalidParameterCatcher catcher;
  auto invoice = make<IInvoice>();
  auto line = make<IInvoiceLine>();
  ASSERT_EQ(S_OK, invoice->addInvoiceLine(line.get()));
  ComPtr<IInvoiceLine> got;
  EXPECT_EQ(DISP_E_BADINDEX, invoice->getInvoiceLine(-1, got.put()));
  EXPECT_EQ(DISP_E_BADINDEX, invoice->getInvoiceLine(1, got.put()));
  EXPECT_EQ(DISP_E_BADINDEX, invoice->removeInvoiceLine(1));
  EXPECT_EQ(3, InvalidParameterCatcher::calls);
  LONG count = 0;
  invoice->get_InvoiceLineCount(&count);
  EXPECT_EQ(1, count);
}

TEST_F(ObjectModel, ValuesReadZeroUntilPutAndCountAsSetOncePut) {
  auto invoice = make<IInvoice>();
  VARIANT_BOOL flag = 1, set = 1;
  ASSERT_EQ(S_OK, invoice->get_CopyIndicator(&flag));
  ASSERT_EQ(S_OK, invoice->get_IsCopyIndicatorSet(&set));
  EXPECT_EQ(VARIANT_FALSE, flag);
  EXPECT_EQ(VARIANT_FALSE, set);

  auto line = make<IInvoiceLine>();
  ComPtr<IPrice> price;
  ASSERT_EQ(S_OK, line->get_Price(price.put()));
  ASSERT_EQ(S_OK, price->get_IsBaseQuantitySet(&set));

  auto exchange = make<IExchangeRate>();
  double rate = -1;
  ASSERT_EQ(S_OK, exchange->get_CalculationRate(&rate));
  EXPECT_EQ(0.0, rate);
  ASSERT_EQ(S_OK, exchange->get_IsCalculationRateSet(&set));
  EXPECT_EQ(VARIANT_FALSE, set);
  ASSERT_EQ(S_OK, exchange->put_CalculationRate(0.0));
  ASSERT_EQ(S_OK, exchange->get_IsCalculationRateSet(&set));
  EXPECT_EQ(VARIANT_TRUE, set);
}

TEST_F(ObjectModel, ValuesCrossTheDocumentBoundaryAsTheSchemaWritesThem) {
  auto invoice = make<IInvoice>();
  set_value(invoice.get(), &IInvoice::get_ID, L"A1");
  ASSERT_EQ(S_OK, invoice->put_CopyIndicator(1));  // not VARIANT_TRUE: written as false
  VARIANT_BOOL flag = 0;
  ASSERT_EQ(S_OK, invoice->get_CopyIndicator(&flag));
  EXPECT_EQ(1, flag);
  ASSERT_EQ(S_OK, invoice->put_IssueTime(0.5 + 1.5 / 86400));  // 12:00:01.5
  std::string xml = stored_xml(*implementation_of<Invoice>(invoice.get()));
  EXPECT_NE(std::string::npos, xml.find("<cbc:CopyIndicator>false</cbc:CopyIndicator>")) << xml;
  EXPECT_NE(std::string::npos, xml.find("<cbc:IssueTime>12:00:01</cbc:IssueTime>")) << xml;
  // A required date never set is the day of DATE 0.
  EXPECT_NE(std::string::npos, xml.find("<cbc:IssueDate>1899-12-30</cbc:IssueDate>")) << xml;
}

TEST_F(ObjectModel, LoadedDatesLoseTheirZoneAndTimesTheirFractions) {
  auto invoice = make<IInvoice>();
  auto& impl = *implementation_of<Invoice>(invoice.get());
  std::string xml = stored_xml(impl);
  auto replace = [&](const std::string& from, const std::string& to) {
    xml.replace(xml.find(from), from.size(), to);
  };
  replace("<cbc:IssueDate>1899-12-30</cbc:IssueDate>",
          "<cbc:IssueDate>2010-08-23+02:00</cbc:IssueDate><cbc:IssueTime>10:20:30.75</cbc:IssueTime>");
  load_xml(impl, xml);
  DATE date = 0, time = 0;
  ASSERT_EQ(S_OK, invoice->get_IssueDate(&date));
  ASSERT_EQ(S_OK, invoice->get_IssueTime(&time));
  SYSTEMTIME t{};
  ASSERT_TRUE(VariantTimeToSystemTime(date, &t));
  EXPECT_EQ(2010, t.wYear);
  EXPECT_EQ(8, t.wMonth);
  EXPECT_EQ(23, t.wDay);
  EXPECT_EQ(0, t.wHour);
  EXPECT_NEAR((10 * 3600 + 20 * 60 + 30) / 86400.0, time, 1e-9);
  std::string again = stored_xml(impl);
  EXPECT_NE(std::string::npos, again.find("<cbc:IssueDate>2010-08-23</cbc:IssueDate>")) << again;
  EXPECT_NE(std::string::npos, again.find("<cbc:IssueTime>10:20:30</cbc:IssueTime>")) << again;
}

TEST_F(ObjectModel, DataTypeAttributesAndContent) {
  auto id = make<IIdentifier>();
  VARIANT_BOOL set = 1;
  ASSERT_EQ(S_OK, id->get_IsSchemeIDSet(&set));
  EXPECT_EQ(VARIANT_FALSE, set);
  ASSERT_EQ(S_OK, id->put_SchemeID(nullptr));
  ASSERT_EQ(S_OK, id->get_IsSchemeIDSet(&set));
  EXPECT_EQ(VARIANT_TRUE, set);
  Bstr scheme;
  ASSERT_EQ(S_OK, id->get_SchemeID(scheme.put()));
  EXPECT_EQ(nullptr, scheme.get());

  EXPECT_EQ(S_OK, id->get_Value(nullptr));        // the content getter tolerates it
  EXPECT_EQ(E_POINTER, id->get_SchemeID(nullptr));  // an attribute getter does not
  ASSERT_EQ(S_OK, id->put_Value(Bstr(L"x\u00e9y").get()));
  Bstr value;
  ASSERT_EQ(S_OK, id->get_Value(value.put()));
  EXPECT_EQ(L"x\u00e9y", text(value.get()));
}

TEST_F(ObjectModel, BinaryObjectValueIsAByteArray) {
  auto binary = make<IBinaryObject>();
  VARIANT fresh;
  VariantInit(&fresh);
  ASSERT_EQ(S_OK, binary->get_Value(&fresh));
  ASSERT_EQ(VT_ARRAY | VT_UI1, fresh.vt);
  LONG lower = -1, upper = 0;
  SafeArrayGetLBound(fresh.parray, 1, &lower);
  SafeArrayGetUBound(fresh.parray, 1, &upper);
  EXPECT_EQ(0, lower);
  EXPECT_EQ(-1, upper);
  VariantClear(&fresh);

  VARIANT bytes;
  VariantInit(&bytes);
  bytes.vt = VT_ARRAY | VT_UI1;
  bytes.parray = SafeArrayCreateVector(VT_UI1, 0, 3);
  unsigned char* data = nullptr;
  SafeArrayAccessData(bytes.parray, reinterpret_cast<void**>(&data));
  data[0] = 1, data[1] = 2, data[2] = 255;
  SafeArrayUnaccessData(bytes.parray);
  ASSERT_EQ(S_OK, binary->put_Value(bytes));
  VariantClear(&bytes);

  VARIANT longs;
  VariantInit(&longs);
  longs.vt = VT_ARRAY | VT_I4;
  longs.parray = SafeArrayCreateVector(VT_I4, 0, 2);
  EXPECT_EQ(E_INVALIDARG, binary->put_Value(longs));
  VariantClear(&longs);

  VARIANT kept;
  VariantInit(&kept);
  ASSERT_EQ(S_OK, binary->get_Value(&kept));
  SafeArrayGetUBound(kept.parray, 1, &upper);
  EXPECT_EQ(2, upper);
  SafeArrayAccessData(kept.parray, reinterpret_cast<void**>(&data));
  EXPECT_EQ(255, data[2]);
  SafeArrayUnaccessData(kept.parray);
  VariantClear(&kept);
}

TEST_F(ObjectModel, OneChildInTwoPlacesIsWrittenTwice) {
  auto invoice = make<IInvoice>();
  auto address = make<IAddress>();
  set_value(address.get(), &IAddress::get_CityName, L"Gent");
  ComPtr<ISupplierParty> supplier;
  ComPtr<ICustomerParty> customer;
  invoice->get_AccountingSupplierParty(supplier.put());
  invoice->get_AccountingCustomerParty(customer.put());
  ComPtr<IParty> seller, buyer;
  supplier->get_Party(seller.put());
  customer->get_Party(buyer.put());
  seller->put_PostalAddress(address.get());
  buyer->put_PostalAddress(address.get());
  std::string xml = stored_xml(*implementation_of<Invoice>(invoice.get()));
  size_t first = xml.find("<cbc:CityName>Gent</cbc:CityName>");
  ASSERT_NE(std::string::npos, first);
  EXPECT_NE(std::string::npos, xml.find("<cbc:CityName>Gent</cbc:CityName>", first + 1));
}

TEST_F(ObjectModel, LoadingReplacesTheWholeContent) {
  auto invoice = make<IInvoice>();
  auto& impl = *implementation_of<Invoice>(invoice.get());
  set_value(invoice.get(), &IInvoice::get_ID, L"kept");
  std::string xml = stored_xml(impl);
  auto line = make<IInvoiceLine>();
  invoice->addInvoiceLine(line.get());
  ComPtr<IIdentifier> old_id;
  invoice->get_ID(old_id.put());
  load_xml(impl, xml);
  LONG count = -1;
  invoice->get_InvoiceLineCount(&count);
  EXPECT_EQ(0, count);
  ComPtr<IIdentifier> new_id;
  invoice->get_ID(new_id.put());
  EXPECT_NE(old_id.get(), new_id.get());  // a fresh object, not the old one refilled
  Bstr value;
  new_id->get_Value(value.put());
  EXPECT_EQ(L"kept", text(value.get()));
  EXPECT_EQ(1u, references(line.get()));  // the invoice let go of the line
}

TEST_F(ObjectModel, ExtensionContentSurvivesLoadAndStore) {
  auto invoice = make<IInvoice>();
  auto& impl = *implementation_of<Invoice>(invoice.get());
  ComPtr<IUBLExtensions> extensions;
  invoice->get_UBLExtensions(extensions.put());
  auto extension = make<IUBLExtension>();
  extensions->addUBLExtension(extension.get());
  std::string xml = stored_xml(impl);
  const std::string empty = "<ext:ExtensionContent/>";
  ASSERT_NE(std::string::npos, xml.find(empty)) << xml;
  xml.replace(xml.find(empty), empty.size(),
              "<ext:ExtensionContent><x:Signed xmlns:x=\"urn:example\" by=\"me\">yes</x:Signed>"
              "</ext:ExtensionContent>");
  load_xml(impl, xml);
  std::string again = stored_xml(impl);
  EXPECT_NE(std::string::npos, again.find("by=\"me\">yes</x:Signed>")) << again;
}

TEST_F(ObjectModel, AggregatedObjectsAnswerThroughTheirOuterObject) {
  struct Outer : IUnknown {
    ULONG refs = 1;
    IUnknown* inner = nullptr;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
      if (IsEqualGUID(iid, IID_IUnknown)) {
        *out = this;
        AddRef();
        return S_OK;
      }
      return inner->QueryInterface(iid, out);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
    ULONG STDMETHODCALLTYPE Release() override { return --refs; }
  } outer;
  ASSERT_EQ(CLASS_E_NOAGGREGATION,
            CoCreateInstance(CLSID_Address, &outer, CLSCTX_INPROC_SERVER, IID_IAddress,
                             reinterpret_cast<void**>(&outer.inner)));
  ASSERT_EQ(S_OK, CoCreateInstance(CLSID_Address, &outer, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                   reinterpret_cast<void**>(&outer.inner)));
  IAddress* address = nullptr;
  ASSERT_EQ(S_OK, outer.QueryInterface(IID_IAddress, reinterpret_cast<void**>(&address)));
  IUnknown* identity = nullptr;
  ASSERT_EQ(S_OK, address->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity)));
  EXPECT_EQ(static_cast<IUnknown*>(&outer), identity);  // one identity: the outer object's
  identity->Release();
  address->Release();
  EXPECT_EQ(1u, outer.refs);
  outer.inner->Release();
}
