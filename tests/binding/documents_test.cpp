// The 31 documents through their root parse and serialize functions.

#include <functional>
#include <map>
#include <sstream>

#include <gtest/gtest.h>

#include "binding/docs/UBL-ApplicationResponse-2.0.hxx"
#include "binding/docs/UBL-AttachedDocument-2.0.hxx"
#include "binding/docs/UBL-BillOfLading-2.0.hxx"
#include "binding/docs/UBL-Catalogue-2.0.hxx"
#include "binding/docs/UBL-CatalogueDeletion-2.0.hxx"
#include "binding/docs/UBL-CatalogueItemSpecificationUpdate-2.0.hxx"
#include "binding/docs/UBL-CataloguePricingUpdate-2.0.hxx"
#include "binding/docs/UBL-CatalogueRequest-2.0.hxx"
#include "binding/docs/UBL-CertificateOfOrigin-2.0.hxx"
#include "binding/docs/UBL-CreditNote-2.0.hxx"
#include "binding/docs/UBL-DebitNote-2.0.hxx"
#include "binding/docs/UBL-DespatchAdvice-2.0.hxx"
#include "binding/docs/UBL-ForwardingInstructions-2.0.hxx"
#include "binding/docs/UBL-FreightInvoice-2.0.hxx"
#include "binding/docs/UBL-Invoice-2.0.hxx"
#include "binding/docs/UBL-Order-2.0.hxx"
#include "binding/docs/UBL-OrderCancellation-2.0.hxx"
#include "binding/docs/UBL-OrderChange-2.0.hxx"
#include "binding/docs/UBL-OrderResponse-2.0.hxx"
#include "binding/docs/UBL-OrderResponseSimple-2.0.hxx"
#include "binding/docs/UBL-PackingList-2.0.hxx"
#include "binding/docs/UBL-Quotation-2.0.hxx"
#include "binding/docs/UBL-ReceiptAdvice-2.0.hxx"
#include "binding/docs/UBL-Reminder-2.0.hxx"
#include "binding/docs/UBL-RemittanceAdvice-2.0.hxx"
#include "binding/docs/UBL-RequestForQuotation-2.0.hxx"
#include "binding/docs/UBL-SelfBilledCreditNote-2.0.hxx"
#include "binding/docs/UBL-SelfBilledInvoice-2.0.hxx"
#include "binding/docs/UBL-Statement-2.0.hxx"
#include "binding/docs/UBL-TransportationStatus-2.0.hxx"
#include "binding/docs/UBL-Waybill-2.0.hxx"
#include "binding/errors.h"
#include "binding_test_support.h"

namespace {

using namespace binding_test;
namespace ubl = Morvek::UBL2;

// Text -> root parse -> root serialize -> text, for one document type.
using RoundTrip = std::function<std::string(const std::string&)>;

struct DocumentCase {
  const char* name;
  // The required children, "cbc:X" for a leaf and "cac:X(...)" for an aggregate with its own.
  const char* required;
  RoundTrip round_trip;
};

#define UBL_DOCUMENT(Name, required)                                                       \
  DocumentCase {                                                                           \
    #Name, required, [](const std::string& xml) {                                          \
      std::istringstream in(xml);                                                          \
      auto document = ubl::Docs::Name::Name(in, kParseFlags);                              \
      std::ostringstream out;                                                              \
      ubl::Docs::Name::Name(out, *document, namespace_map(L"" #Name), L"UTF-8",            \
                            xml_schema::flags::dont_initialize);                           \
      return out.str();                                                                    \
    }                                                                                      \
  }

const std::vector<DocumentCase>& documents() {
  static const std::vector<DocumentCase> cases{
      UBL_DOCUMENT(ApplicationResponse,
                   "cbc:ID cbc:IssueDate cac:SenderParty cac:ReceiverParty "
                   "cac:DocumentResponse(cac:Response(cbc:ReferenceID) cac:DocumentReference(cbc:ID))"),
      UBL_DOCUMENT(AttachedDocument,
                   "cbc:ID cbc:IssueDate cbc:ParentDocumentID cac:SenderParty cac:ReceiverParty "
                   "cac:Attachment"),
      UBL_DOCUMENT(BillOfLading, "cbc:ID"),
      UBL_DOCUMENT(Catalogue,
                   "cbc:ID cbc:IssueDate cac:ProviderParty cac:ReceiverParty "
                   "cac:CatalogueLine(cbc:ID cac:Item)"),
      UBL_DOCUMENT(CatalogueDeletion,
                   "cbc:ID cbc:IssueDate cac:DeletedCatalogueReference(cbc:ID) cac:ReceiverParty "
                   "cac:ProviderParty"),
      UBL_DOCUMENT(CatalogueItemSpecificationUpdate,
                   "cbc:ID cbc:IssueDate cac:RelatedCatalogueReference(cbc:ID) cac:ProviderParty "
                   "cac:ReceiverParty cac:CatalogueItemSpecificationUpdateLine(cbc:ID cac:Item)"),
      UBL_DOCUMENT(CataloguePricingUpdate,
                   "cbc:ID cbc:IssueDate cac:RelatedCatalogueReference(cbc:ID) cac:ProviderParty "
                   "cac:ReceiverParty cac:CataloguePricingUpdateLine(cbc:ID)"),
      UBL_DOCUMENT(CatalogueRequest,
                   "cbc:ID cbc:IssueDate cac:ReceiverParty cac:ProviderParty"),
      UBL_DOCUMENT(CertificateOfOrigin,
                   "cbc:ID cac:CertificateOfOriginApplication(cbc:ReferenceID cbc:CertificateType "
                   "cbc:OriginalJobID cac:Shipment(cbc:ID cac:Consignment(cbc:ID)) "
                   "cac:EndorserParty(cbc:RoleCode cbc:SequenceNumeric cac:Party "
                   "cac:SignatoryContact) cac:PreparationParty cac:IssuerParty cac:IssuingCountry) "
                   "cac:IssuerEndorsement(cbc:DocumentID cbc:ApprovalStatus "
                   "cac:EndorserParty(cbc:RoleCode cbc:SequenceNumeric cac:Party cac:SignatoryContact))"),
      UBL_DOCUMENT(CreditNote,
                   "cbc:ID cbc:IssueDate cac:AccountingSupplierParty cac:AccountingCustomerParty "
                   "cac:LegalMonetaryTotal(cbc:PayableAmount) cac:CreditNoteLine(cbc:ID)"),
      UBL_DOCUMENT(DebitNote,
                   "cbc:ID cbc:IssueDate cac:AccountingSupplierParty cac:AccountingCustomerParty "
                   "cac:RequestedMonetaryTotal(cbc:PayableAmount) "
                   "cac:DebitNoteLine(cbc:ID cbc:LineExtensionAmount)"),
      UBL_DOCUMENT(DespatchAdvice,
                   "cbc:ID cbc:IssueDate cac:DespatchSupplierParty cac:DeliveryCustomerParty "
                   "cac:DespatchLine(cbc:ID cac:OrderLineReference(cbc:LineID) cac:Item)"),
      UBL_DOCUMENT(ForwardingInstructions, "cbc:ID cac:Shipment(cbc:ID cac:Consignment(cbc:ID))"),
      UBL_DOCUMENT(FreightInvoice,
                   "cbc:ID cbc:IssueDate cac:Shipment(cbc:ID cac:Consignment(cbc:ID)) "
                   "cac:AccountingSupplierParty cac:AccountingCustomerParty "
                   "cac:LegalMonetaryTotal(cbc:PayableAmount) "
                   "cac:InvoiceLine(cbc:ID cbc:LineExtensionAmount cac:Item)"),
      UBL_DOCUMENT(Invoice,
                   "cbc:ID cbc:IssueDate cac:AccountingSupplierParty cac:AccountingCustomerParty "
                   "cac:LegalMonetaryTotal(cbc:PayableAmount) "
                   "cac:InvoiceLine(cbc:ID cbc:LineExtensionAmount cac:Item)"),
      UBL_DOCUMENT(Order,
                   "cbc:ID cbc:IssueDate cac:BuyerCustomerParty cac:SellerSupplierParty "
                   "cac:OrderLine(cac:LineItem(cbc:ID cac:Item))"),
      UBL_DOCUMENT(OrderCancellation,
                   "cbc:ID cbc:IssueDate cbc:CancellationNote cac:OrderReference(cbc:ID) "
                   "cac:BuyerCustomerParty cac:SellerSupplierParty"),
      UBL_DOCUMENT(OrderChange,
                   "cbc:IssueDate cbc:SequenceNumberID cac:OrderReference(cbc:ID) "
                   "cac:BuyerCustomerParty cac:SellerSupplierParty "
                   "cac:OrderLine(cac:LineItem(cbc:ID cac:Item))"),
      UBL_DOCUMENT(OrderResponse,
                   "cbc:ID cbc:IssueDate cac:OrderReference(cbc:ID) cac:SellerSupplierParty "
                   "cac:BuyerCustomerParty cac:OrderLine(cac:LineItem(cbc:ID cac:Item))"),
      UBL_DOCUMENT(OrderResponseSimple,
                   "cbc:ID cbc:IssueDate cbc:AcceptedIndicator cac:OrderReference(cbc:ID) "
                   "cac:SellerSupplierParty cac:BuyerCustomerParty"),
      UBL_DOCUMENT(PackingList, "cbc:ID cac:Shipment(cbc:ID cac:Consignment(cbc:ID))"),
      UBL_DOCUMENT(Quotation,
                   "cbc:IssueDate cac:SellerSupplierParty cac:QuotedMonetaryTotal(cbc:PayableAmount) "
                   "cac:QuotationLine(cac:LineItem(cbc:ID cac:Item))"),
      UBL_DOCUMENT(ReceiptAdvice,
                   "cbc:ID cbc:IssueDate cac:DeliveryCustomerParty cac:DespatchSupplierParty "
                   "cac:ReceiptLine(cbc:ID)"),
      UBL_DOCUMENT(Reminder,
                   "cbc:ID cbc:IssueDate cac:AccountingSupplierParty cac:AccountingCustomerParty "
                   "cac:LegalMonetaryTotal(cbc:PayableAmount) cac:ReminderLine(cbc:ID)"),
      UBL_DOCUMENT(RemittanceAdvice,
                   "cbc:ID cbc:IssueDate cac:AccountingCustomerParty cac:AccountingSupplierParty "
                   "cac:RemittanceAdviceLine(cbc:ID)"),
      UBL_DOCUMENT(RequestForQuotation,
                   "cbc:IssueDate cbc:IssueTime cac:SellerSupplierParty "
                   "cac:RequestForQuotationLine(cac:LineItem(cbc:ID cac:Item))"),
      UBL_DOCUMENT(SelfBilledCreditNote,
                   "cbc:ID cbc:IssueDate cbc:DocumentCurrencyCode cac:AccountingCustomerParty "
                   "cac:AccountingSupplierParty cac:LegalMonetaryTotal(cbc:PayableAmount) "
                   "cac:CreditNoteLine(cbc:ID)"),
      UBL_DOCUMENT(SelfBilledInvoice,
                   "cbc:ID cbc:IssueDate cac:AccountingCustomerParty cac:AccountingSupplierParty "
                   "cac:LegalMonetaryTotal(cbc:PayableAmount) "
                   "cac:InvoiceLine(cbc:ID cbc:LineExtensionAmount cac:Item)"),
      UBL_DOCUMENT(Statement,
                   "cbc:ID cbc:IssueDate cbc:DocumentCurrencyCode cac:AccountingSupplierParty "
                   "cac:AccountingCustomerParty cac:StatementLine(cbc:ID)"),
      UBL_DOCUMENT(TransportationStatus,
                   "cbc:ID cac:Consignment(cbc:ID) cac:TransportEvent(cac:CurrentStatus)"),
      UBL_DOCUMENT(Waybill, "cbc:ID cac:Shipment(cbc:ID cac:Consignment(cbc:ID))"),
  };
  return cases;
}

bool ends_with(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

// A leaf value its data type accepts, chosen by the element name's ending.
std::string leaf(const std::string& name) {
  if (ends_with(name, "Date")) return "<cbc:" + name + ">2024-01-31</cbc:" + name + ">";
  if (ends_with(name, "Time")) return "<cbc:" + name + ">12:30:00</cbc:" + name + ">";
  if (ends_with(name, "Indicator")) return "<cbc:" + name + ">true</cbc:" + name + ">";
  if (ends_with(name, "Numeric")) return "<cbc:" + name + ">1</cbc:" + name + ">";
  if (ends_with(name, "Amount"))
    return "<cbc:" + name + " currencyID=\"EUR\">10.5</cbc:" + name + ">";
  return "<cbc:" + name + ">" + name + "-1</cbc:" + name + ">";
}

// Expands the compact notation of DocumentCase::required into elements.
std::string expand(const std::string& notation, size_t& pos) {
  std::string xml;
  while (pos < notation.size() && notation[pos] != ')') {
    if (notation[pos] == ' ') {
      ++pos;
      continue;
    }
    size_t end = notation.find_first_of(" ()", pos);
    if (end == std::string::npos) end = notation.size();
    const std::string prefix = notation.substr(pos, 3), name = notation.substr(pos + 4, end - pos - 4);
    pos = end;
    if (prefix == "cbc") {
      xml += leaf(name);
    } else {
      std::string children;
      if (pos < notation.size() && notation[pos] == '(') {
        ++pos;
        children = expand(notation, pos);
        ++pos;  // ')'
      }
      xml += "<cac:" + name + ">" + children + "</cac:" + name + ">";
    }
  }
  return xml;
}

std::string minimal_document(const DocumentCase& c) {
  size_t pos = 0;
  const std::string name = c.name;
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<" + name +
         " xmlns=\"urn:oasis:names:specification:ubl:schema:xsd:" + name + "-2\"" +
         " xmlns:cbc=\"urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2\"" +
         " xmlns:cac=\"urn:oasis:names:specification:ubl:schema:xsd:CommonAggregateComponents-2\">" +
         "<cbc:UBLVersionID>2.0</cbc:UBLVersionID>" + expand(c.required, pos) + "</" + name + ">";
}

// prefix -> namespace of the declarations on the root element.
std::map<std::string, std::string> declarations(const xercesc::DOMElement& root) {
  std::map<std::string, std::string> result;
  const xercesc::DOMNamedNodeMap* attributes = root.getAttributes();
  for (XMLSize_t i = 0; i < attributes->getLength(); ++i) {
    const xercesc::DOMNode& a = *attributes->item(i);
    if (narrow(a.getNamespaceURI()) != "http://www.w3.org/2000/xmlns/") continue;
    result[narrow(a.getPrefix()).empty() ? "" : narrow(a.getLocalName())] =
        narrow(a.getNodeValue());
  }
  return result;
}

std::map<std::string, std::string> expected_declarations(const std::string& document) {
  std::map<std::string, std::string> expected{
      {"", "urn:oasis:names:specification:ubl:schema:xsd:" + document + "-2"}};
  for (const auto& mapping : ubl::ubl_prefixes())
    expected[narrow(mapping.prefix)] = narrow(mapping.uri);
  return expected;
}

TEST(Documents, TableCoversEveryDocumentType) {
  ASSERT_EQ(documents().size(), ubl::ubl_document_names().size());
  for (size_t i = 0; i < documents().size(); ++i)
    EXPECT_EQ(documents()[i].name, narrow(ubl::ubl_document_names()[i]));
}

TEST(Documents, EachMinimalDocumentRoundTripsWithTheNineDeclarations) {
  for (const DocumentCase& c : documents()) {
    SCOPED_TRACE(c.name);
    const std::string input = minimal_document(c);
    std::string output;
    try {
      output = c.round_trip(input);
    } catch (const xml_schema::exception& e) {
      ADD_FAILURE() << message(e);
      continue;
    }
    auto in = parse_dom(input), out = parse_dom(output);
    EXPECT_EQ(compare_elements(*in->getDocumentElement(), *out->getDocumentElement()), "");
    EXPECT_EQ(declarations(*out->getDocumentElement()), expected_declarations(c.name));
    EXPECT_EQ(output.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"", 0), 0u) << output;
  }
}

TEST(Documents, SampleInvoiceRoundTripsWithTheSameElementContent) {
  const std::string input = read_file(source_path("samples/invoice.xml"));
  std::istringstream in(input);
  auto invoice = ubl::Docs::Invoice::Invoice(in, kParseFlags);

  EXPECT_EQ(invoice->ID(), L"INV-2024-0042");
  ASSERT_EQ(invoice->Note().size(), 1u);
  EXPECT_NE(invoice->Note()[0].find(L"effectu\u00e9e"), std::wstring::npos);
  EXPECT_EQ(invoice->InvoiceLine().size(), 2u);
  EXPECT_EQ(invoice->LegalMonetaryTotal().PayableAmount(), 360.60);

  std::ostringstream out;
  ubl::Docs::Invoice::Invoice(out, *invoice, namespace_map(L"Invoice"), L"UTF-8",
                              xml_schema::flags::dont_initialize);
  auto original = parse_dom(input), written = parse_dom(out.str());
  EXPECT_EQ(compare_elements(*original->getDocumentElement(), *written->getDocumentElement()), "");
  EXPECT_NE(out.str().find("effectu\xc3\xa9"), std::string::npos) << "UTF-8 text expected";
}

TEST(Documents, SampleInvoiceIsValidAgainstTheVendoredSchema) {
  // Validation against a named local schema: the runtime then stops Xerces from loading schemas
  // named by the document itself.
  xml_schema::properties properties;
  properties.schema_location(L"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2",
                             L"file://" + widen(std::string(TIVALO_SCHEMA_DIR)) +
                                 L"/maindoc/UBL-Invoice-2.0.xsd");
  std::istringstream in(read_file(source_path("samples/invoice.xml")));
  try {
    ubl::Docs::Invoice::Invoice(in, xml_schema::flags::dont_initialize, properties);
  } catch (const xml_schema::exception& e) {
    FAIL() << message(e);
  }
}

TEST(Documents, SampleInvoiceIsReadFromAFileByUri) {
  auto invoice = ubl::Docs::Invoice::Invoice(widen(source_path("samples/invoice.xml")),
                                             kParseFlags);
  EXPECT_EQ(invoice->IssueDate(), xml_schema::date(2024, 3, 15));
}

TEST(DocumentRoot, AnotherDocumentTypeIsAnUnexpectedElement) {
  const DocumentCase& order = documents()[15];
  ASSERT_STREQ(order.name, "Order");
  std::istringstream in(minimal_document(order));
  try {
    ubl::Docs::Invoice::Invoice(in, kParseFlags);
    FAIL() << "an Order parsed as an Invoice";
  } catch (const xml_schema::unexpected_element& e) {
    EXPECT_EQ(narrow(ubl::error_text(e)),
              "unexpected element 'urn:oasis:names:specification:ubl:schema:xsd:Order-2#Order' "
              "instead of 'urn:oasis:names:specification:ubl:schema:xsd:Invoice-2#Invoice'");
    // The runtime's own wording, which error_text rewrites.
    EXPECT_EQ(message(e),
              "expected element 'urn:oasis:names:specification:ubl:schema:xsd:Invoice-2#Invoice' "
              "instead of 'urn:oasis:names:specification:ubl:schema:xsd:Order-2#Order'");
  }
}

std::string without(std::string xml, const std::string& element) {
  const size_t begin = xml.find("<" + element + ">");
  const std::string close = "</" + element + ">";
  const size_t end = xml.find(close, begin);
  return xml.erase(begin, end + close.size() - begin);
}

TEST(DocumentRoot, MissingRequiredChildrenAreExpectedElements) {
  const DocumentCase& invoice = documents()[14];
  ASSERT_STREQ(invoice.name, "Invoice");
  const std::string full = minimal_document(invoice);
  const std::pair<const char*, const char*> cases[] = {
      {"cac:LegalMonetaryTotal",
       "expected element 'urn:oasis:names:specification:ubl:schema:xsd:"
       "CommonAggregateComponents-2#LegalMonetaryTotal'"},
      {"cbc:ID",
       "expected element 'urn:oasis:names:specification:ubl:schema:xsd:"
       "CommonBasicComponents-2#ID'"},
  };
  for (const auto& [element, expected] : cases) {
    std::istringstream in(without(full, element));
    try {
      ubl::Docs::Invoice::Invoice(in, kParseFlags);
      ADD_FAILURE() << "parsed without " << element;
    } catch (const xml_schema::expected_element& e) {
      EXPECT_EQ(narrow(ubl::error_text(e)), expected);
    }
  }
}

TEST(DocumentRoot, InvoiceWithoutLinesParses) {
  const std::string xml = without(minimal_document(documents()[14]), "cac:InvoiceLine");
  std::istringstream in(xml);
  EXPECT_TRUE(ubl::Docs::Invoice::Invoice(in, kParseFlags)->InvoiceLine().empty());
}

}  // namespace
