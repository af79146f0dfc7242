// Each of the 31 document classes: a graph built through the interface, stored, loaded into a
// fresh object and stored again gives the same binding content.
#include "binding/namespaces.h"
#include "model/classes.h"
#include "tests/model/model_testing.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace Morvek::Tivalo;
using tivalo::Bstr;
using tivalo::ComPtr;

namespace {

using model_testing::load_xml;
using model_testing::stored_xml;

template <class Document>
ComPtr<IDispatch> make_document() {
  ComPtr<IDispatch> object;
  EXPECT_EQ(S_OK, CoCreateInstance(*Document::document_binding.clsid, nullptr,
                                   CLSCTX_INPROC_SERVER, IID_IDispatch,
                                   reinterpret_cast<void**>(object.put())));
  return object;
}

template <class Document>
class EveryDocument : public ::testing::Test {};

using DocumentClasses = ::testing::Types<
    ApplicationResponse, AttachedDocument, BillOfLading, Catalogue, CatalogueDeletion,
    CatalogueItemSpecificationUpdate, CataloguePricingUpdate, CatalogueRequest,
    CertificateOfOrigin, CreditNote, DebitNote, DespatchAdvice, ForwardingInstructions,
    FreightInvoice, Invoice, Order, OrderCancellation, OrderChange, OrderResponse,
    OrderResponseSimple, PackingList, Quotation, ReceiptAdvice, Reminder, RemittanceAdvice,
    RequestForQuotation, SelfBilledCreditNote, SelfBilledInvoice, Statement,
    TransportationStatus, Waybill>;
TYPED_TEST_SUITE(EveryDocument, DocumentClasses);

TYPED_TEST(EveryDocument, StoreLoadStoreKeepsTheContent) {
  using Document = TypeParam;
  auto object = make_document<Document>();
  Document& built = *implementation_of<Document>(object.get());
  ComPtr<IIdentifier> id, version;
  ASSERT_EQ(S_OK, built.get_ID(id.put()));
  ASSERT_EQ(S_OK, id->put_Value(Bstr(L"DOC-1").get()));
  ASSERT_EQ(S_OK, id->put_SchemeID(Bstr(L"urn:example").get()));
  ASSERT_EQ(S_OK, built.get_UBLVersionID(version.put()));
  ASSERT_EQ(S_OK, version->put_Value(Bstr(L"2.0").get()));
  std::string first = stored_xml(built);

  auto fresh_object = make_document<Document>();
  Document& fresh = *implementation_of<Document>(fresh_object.get());
  load_xml(fresh, first);
  EXPECT_EQ(first, stored_xml(fresh));
  EXPECT_NE(std::string::npos, first.find("schemeID=\"urn:example\">DOC-1</cbc:ID>")) << first;
}

}  // namespace
