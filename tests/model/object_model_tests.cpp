// The object model through its interfaces, where the late-bound and Python tests do not reach:
// reference counts, null pointers, the invalid-parameter handler, values as a document holds
// them, and aggregation.
#include "model/classes.h"
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

// The document's text, and a document loaded from text, through the XML property.
std::string stored_xml(IInvoice* invoice) {
  Bstr xml;
  EXPECT_EQ(S_OK, invoice->get_XML(xml.put()));
  const std::wstring bytes = text(xml.get());  // one character per byte of the document
  return std::string(bytes.begin(), bytes.end());
}

void load_xml(IInvoice* invoice, const std::string& xml) {
  EXPECT_EQ(S_OK, invoice->put_XML(Bstr(std::wstring(xml.begin(), xml.end())).get()));
}

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

TEST_F(ObjectModel, RequiredChildrenExistAndOptionalOnesAreCreatedWhenRead) {
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

  auto party = make<IParty>();
  VARIANT_BOOL set = 1;
  ASSERT_EQ(S_OK, party->get_IsAgentPartySet(&set));
  EXPECT_EQ(VARIANT_FALSE, set);
  ComPtr<IParty> agent, again;
  ASSERT_EQ(S_OK, party->get_AgentParty(agent.put()));
  ASSERT_EQ(S_OK, party->get_IsAgentPartySet(&set));
  EXPECT_EQ(VARIANT_TRUE, set);
  ASSERT_EQ(S_OK, party->get_AgentParty(again.put()));
  EXPECT_EQ(agent.get(), again.get());

  EXPECT_EQ(E_POINTER, party->put_PostalAddress(nullptr));
  EXPECT_EQ(E_POINTER, party->addPartyName(nullptr));
  EXPECT_EQ(E_POINTER, party->get_PostalAddress(nullptr));
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

TEST_F(ObjectModel, AValuePutCountsAsSetEvenWhenZero) {
  auto exchange = make<IExchangeRate>();
  double rate = -1;
  VARIANT_BOOL set = 1;
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
  std::string xml = stored_xml(invoice.get());
  EXPECT_NE(std::string::npos, xml.find("<cbc:CopyIndicator>false</cbc:CopyIndicator>")) << xml;
  EXPECT_NE(std::string::npos, xml.find("<cbc:IssueTime>12:00:01</cbc:IssueTime>")) << xml;
  // A required date never set is the day of DATE 0.
  EXPECT_NE(std::string::npos, xml.find("<cbc:IssueDate>1899-12-30</cbc:IssueDate>")) << xml;
}

TEST_F(ObjectModel, LoadedDatesLoseTheirZoneAndTimesTheirFractions) {
  auto invoice = make<IInvoice>();
  std::string xml = stored_xml(invoice.get());
  auto replace = [&](const std::string& from, const std::string& to) {
    xml.replace(xml.find(from), from.size(), to);
  };
  replace("<cbc:IssueDate>1899-12-30</cbc:IssueDate>",
          "<cbc:IssueDate>2010-08-23+02:00</cbc:IssueDate><cbc:IssueTime>10:20:30.75</cbc:IssueTime>");
  load_xml(invoice.get(), xml);
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
  std::string again = stored_xml(invoice.get());
  EXPECT_NE(std::string::npos, again.find("<cbc:IssueDate>2010-08-23</cbc:IssueDate>")) << again;
  EXPECT_NE(std::string::npos, again.find("<cbc:IssueTime>10:20:30</cbc:IssueTime>")) << again;
}

// The content getter tolerates a null pointer (as the published component does); an attribute
// getter does not; an array of anything but bytes is no binary object's value.
TEST_F(ObjectModel, DataTypeGettersAndBinaryValues) {
  auto id = make<IIdentifier>();
  EXPECT_EQ(S_OK, id->get_Value(nullptr));
  EXPECT_EQ(E_POINTER, id->get_SchemeID(nullptr));

  auto binary = make<IBinaryObject>();
  VARIANT longs;
  VariantInit(&longs);
  longs.vt = VT_ARRAY | VT_I4;
  longs.parray = SafeArrayCreateVector(VT_I4, 0, 2);
  EXPECT_EQ(E_INVALIDARG, binary->put_Value(longs));
  VariantClear(&longs);
}
// One child put into two parents is one object in both, held once more by each, and written
// in both places.
TEST_F(ObjectModel, OneChildInTwoParentsIsSharedAndWrittenTwice) {
  auto invoice = make<IInvoice>();
  auto address = make<IAddress>();
  ComPtr<ISupplierParty> supplier;
  ComPtr<ICustomerParty> customer;
  ComPtr<IParty> seller, buyer;
  ASSERT_EQ(S_OK, invoice->get_AccountingSupplierParty(supplier.put()));
  ASSERT_EQ(S_OK, invoice->get_AccountingCustomerParty(customer.put()));
  ASSERT_EQ(S_OK, supplier->get_Party(seller.put()));
  ASSERT_EQ(S_OK, customer->get_Party(buyer.put()));
  ASSERT_EQ(S_OK, seller->put_PostalAddress(address.get()));
  ASSERT_EQ(S_OK, buyer->put_PostalAddress(address.get()));
  const ULONG held = references(address.get());
  ASSERT_EQ(S_OK, seller->put_PostalAddress(address.get()));  // the stored object again
  EXPECT_EQ(held, references(address.get()));

  ComPtr<IAddress> through_seller, through_buyer;
  ASSERT_EQ(S_OK, seller->get_PostalAddress(through_seller.put()));
  set_value(through_seller.get(), &IAddress::get_CityName, L"Gent");
  ASSERT_EQ(S_OK, buyer->get_PostalAddress(through_buyer.put()));
  EXPECT_EQ(address.get(), through_buyer.get());
  const std::string xml = stored_xml(invoice.get());
  const size_t first = xml.find("<cbc:CityName>Gent</cbc:CityName>");
  ASSERT_NE(std::string::npos, first);
  EXPECT_NE(std::string::npos, xml.find("<cbc:CityName>Gent</cbc:CityName>", first + 1));
}

TEST_F(ObjectModel, LoadingReplacesTheWholeContent) {
  auto invoice = make<IInvoice>();
  set_value(invoice.get(), &IInvoice::get_ID, L"kept");
  std::string xml = stored_xml(invoice.get());
  auto line = make<IInvoiceLine>();
  invoice->addInvoiceLine(line.get());
  ComPtr<IIdentifier> old_id;
  invoice->get_ID(old_id.put());
  load_xml(invoice.get(), xml);
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
