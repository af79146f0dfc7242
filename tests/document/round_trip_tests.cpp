// Every document class: built through its interface, written, read into a fresh object and
// written again gives the same bytes; the XML string does the same, characters above 127 included.
#include "document_testing.h"

using namespace document_testing;

namespace {

#define DOCUMENT_CLASS(Doc)                                                   \
  struct Doc##Class {                                                         \
    using Interface = I##Doc;                                                 \
    static const CLSID& clsid() { return CLSID_##Doc; }                       \
    static std::string name() { return #Doc; }                                \
  };
DOCUMENT_CLASS(ApplicationResponse) DOCUMENT_CLASS(AttachedDocument) DOCUMENT_CLASS(BillOfLading)
DOCUMENT_CLASS(Catalogue) DOCUMENT_CLASS(CatalogueDeletion)
DOCUMENT_CLASS(CatalogueItemSpecificationUpdate) DOCUMENT_CLASS(CataloguePricingUpdate)
DOCUMENT_CLASS(CatalogueRequest) DOCUMENT_CLASS(CertificateOfOrigin) DOCUMENT_CLASS(CreditNote)
DOCUMENT_CLASS(DebitNote) DOCUMENT_CLASS(DespatchAdvice) DOCUMENT_CLASS(ForwardingInstructions)
DOCUMENT_CLASS(FreightInvoice) DOCUMENT_CLASS(Invoice) DOCUMENT_CLASS(Order)
DOCUMENT_CLASS(OrderCancellation) DOCUMENT_CLASS(OrderChange) DOCUMENT_CLASS(OrderResponse)
DOCUMENT_CLASS(OrderResponseSimple) DOCUMENT_CLASS(PackingList) DOCUMENT_CLASS(Quotation)
DOCUMENT_CLASS(ReceiptAdvice) DOCUMENT_CLASS(Reminder) DOCUMENT_CLASS(RemittanceAdvice)
DOCUMENT_CLASS(RequestForQuotation) DOCUMENT_CLASS(SelfBilledCreditNote)
DOCUMENT_CLASS(SelfBilledInvoice) DOCUMENT_CLASS(Statement) DOCUMENT_CLASS(TransportationStatus)
DOCUMENT_CLASS(Waybill)
#undef DOCUMENT_CLASS

using DocumentClasses = ::testing::Types<
    ApplicationResponseClass, AttachedDocumentClass, BillOfLadingClass, CatalogueClass,
    CatalogueDeletionClass, CatalogueItemSpecificationUpdateClass, CataloguePricingUpdateClass,
    CatalogueRequestClass, CertificateOfOriginClass, CreditNoteClass, DebitNoteClass,
    DespatchAdviceClass, ForwardingInstructionsClass, FreightInvoiceClass, InvoiceClass,
    OrderClass, OrderCancellationClass, OrderChangeClass, OrderResponseClass,
    OrderResponseSimpleClass, PackingListClass, QuotationClass, ReceiptAdviceClass,
    ReminderClass, RemittanceAdviceClass, RequestForQuotationClass, SelfBilledCreditNoteClass,
    SelfBilledInvoiceClass, StatementClass, TransportationStatusClass, WaybillClass>;

template <class Document>
class EveryDocumentClass : public TempDirectory {
 protected:
  using Interface = typename Document::Interface;

  static ComPtr<Interface> fresh() { return create<Interface>(Document::clsid()); }

  // A document with values in members every class has; the ID holds characters above 127.
  static ComPtr<Interface> built() {
    ComPtr<Interface> document = fresh();
    ComPtr<IIdentifier> id, version;
    EXPECT_EQ(S_OK, document->get_ID(id.put()));
    EXPECT_EQ(S_OK, id->put_Value(Bstr(L"Stra\u00DFe-\u20AC-1").get()));
    EXPECT_EQ(S_OK, document->get_UBLVersionID(version.put()));
    EXPECT_EQ(S_OK, version->put_Value(Bstr(L"2.0").get()));
    EXPECT_EQ(S_OK, document->put_IssueDate(43832.0));  // 2020-01-02
    auto note = create<IText>(CLSID_Text);
    EXPECT_EQ(S_OK, note->put_Value(Bstr(L"first note").get()));
    EXPECT_EQ(S_OK, document->addNote(note.get()));
    return document;
  }
};
TYPED_TEST_SUITE(EveryDocumentClass, DocumentClasses);

TYPED_TEST(EveryDocumentClass, WriteReadWriteGivesTheSameBytes) {
  auto original = this->built();
  ASSERT_EQ(S_OK, original->Write(this->path_bstr("first.xml").get()));
  auto copy = this->fresh();
  ASSERT_EQ(S_OK, copy->Read(this->path_bstr("first.xml").get()));
  ASSERT_EQ(S_OK, copy->Write(this->path_bstr("second.xml").get()));

  const std::string first = this->read_file("first.xml");
  EXPECT_EQ(first, this->read_file("second.xml"));
  EXPECT_EQ(0u, first.find("<?xml version=\"1.0\" encoding=\"UTF-8\""));
  EXPECT_NE(std::string::npos, first.find("<cbc:ID>Stra\xC3\x9F" "e-\xE2\x82\xAC-1</cbc:ID>"))
      << first;
  EXPECT_NE(std::string::npos,
            first.find("<" + TypeParam::name() + " xmlns=\"urn:oasis:names:specification:ubl:"
                       "schema:xsd:" + TypeParam::name() + "-2\""))
      << first;
  EXPECT_EQ(std::string::npos, first.find('\r'));  // no CR on Linux: text mode adds none
}

TYPED_TEST(EveryDocumentClass, XmlGetPutGetGivesTheSameString) {
  auto original = this->built();
  Bstr first, second;
  ASSERT_EQ(S_OK, original->get_XML(first.put()));
  auto copy = this->fresh();
  ASSERT_EQ(S_OK, copy->put_XML(first.get()));
  ASSERT_EQ(S_OK, copy->get_XML(second.put()));
  EXPECT_EQ(text(first), text(second));

  // The string holds the UTF-8 bytes one character each, and the value reads back intact.
  EXPECT_NE(std::string::npos, bytes_of(first).find("Stra\xC3\x9F" "e-\xE2\x82\xAC-1"));
  ComPtr<IIdentifier> id;
  Bstr value;
  ASSERT_EQ(S_OK, copy->get_ID(id.put()));
  ASSERT_EQ(S_OK, id->get_Value(value.put()));
  EXPECT_EQ(L"Stra\u00DFe-\u20AC-1", text(value));
}

TYPED_TEST(EveryDocumentClass, XmlGetMatchesTheWrittenFile) {
  auto original = this->built();
  Bstr xml;
  ASSERT_EQ(S_OK, original->Write(this->path_bstr("written.xml").get()));
  ASSERT_EQ(S_OK, original->get_XML(xml.put()));
  EXPECT_EQ(this->read_file("written.xml"), bytes_of(xml));
}

// A card account's CV2ID, published after the account's other members, still reads, writes and
// validates in its schema place.
TEST_F(TempDirectory, CardAccountWithCV2IDRoundTrips) {
  std::string body = valid_invoice_body();
  body.insert(body.find("  <cac:LegalMonetaryTotal>"),
              "  <cac:PaymentMeans><cbc:PaymentMeansCode>48</cbc:PaymentMeansCode><cac:CardAccount>"
              "<cbc:PrimaryAccountNumberID>4111</cbc:PrimaryAccountNumberID>"
              "<cbc:NetworkID>VISA</cbc:NetworkID><cbc:CV2ID>123</cbc:CV2ID>"
              "<cbc:CardChipCode>Chip</cbc:CardChipCode><cbc:HolderName>A. Holder</cbc:HolderName>"
              "</cac:CardAccount></cac:PaymentMeans>\n");
  auto invoice = create<IInvoice>(CLSID_Invoice);
  ASSERT_EQ(S_OK, invoice->Read(Bstr(write_file("card.xml", ubl_document("Invoice", body))).get()));

  ComPtr<IPaymentMeans> means;
  ComPtr<ICardAccount> card;
  ComPtr<IIdentifier> cv2;
  ComPtr<IName> holder;
  Bstr cv2_value, holder_value;
  ASSERT_EQ(S_OK, invoice->getPaymentMeans(0, means.put()));
  ASSERT_EQ(S_OK, means->get_CardAccount(card.put()));
  ASSERT_EQ(S_OK, card->get_CV2ID(cv2.put()));
  ASSERT_EQ(S_OK, cv2->get_Value(cv2_value.put()));
  ASSERT_EQ(S_OK, card->get_HolderName(holder.put()));
  ASSERT_EQ(S_OK, holder->get_Value(holder_value.put()));
  EXPECT_EQ(L"123", text(cv2_value));
  EXPECT_EQ(L"A. Holder", text(holder_value));

  ASSERT_EQ(S_OK, invoice->Write(path_bstr("written.xml").get()));
  const std::string written = read_file("written.xml");
  EXPECT_LT(written.find("<cbc:CV2ID>123</cbc:CV2ID>"), written.find("<cbc:CardChipCode>")) << written;
  Bstr errors;
  ASSERT_EQ(S_OK, invoice->GetSchemaValidationErrors(path_bstr("written.xml").get(),
                                                     Bstr(schema_of(L"Invoice")).get(), errors.put()));
  EXPECT_EQ(nullptr, errors.get()) << text(errors);
}

}  // namespace
