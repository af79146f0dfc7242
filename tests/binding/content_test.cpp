// How element content, attributes and types are read and written, seen through an Invoice's XML
// put and get: one table of documents, each with what must be written back or why it is refused.

#include "../document/document_testing.h"

#include <regex>
#include <vector>

using namespace document_testing;

namespace {

const std::string kCbc = "urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2";
const std::string kCac = "urn:oasis:names:specification:ubl:schema:xsd:CommonAggregateComponents-2";
const std::string kUdt = "urn:un:unece:uncefact:data:specification:UnqualifiedDataTypesSchemaModule:2";
const std::string kXsi = "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" ";
const std::string kPayable = "<cbc:PayableAmount currencyID=\"EUR\">1</cbc:PayableAmount>";

// An Invoice with the required members; `header` goes after IssueDate, `supplier` inside the
// supplier's Party, `total` inside LegalMonetaryTotal (or replaces it when `total` is null) and
// `tail` after it.
std::string invoice(const std::string& header = "", const std::string& supplier = "",
                    const char* total = kPayable.c_str(), const std::string& tail = "",
                    const std::string& extensions = "") {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
         "<Invoice xmlns=\"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2\" xmlns:cbc=\"" +
         kCbc + "\" xmlns:cac=\"" + kCac +
         "\" xmlns:ext=\"urn:oasis:names:specification:ubl:schema:xsd:CommonExtensionComponents-2\">" +
         extensions + "<cbc:UBLVersionID>2.0</cbc:UBLVersionID><cbc:ID>1</cbc:ID>" +
         "<cbc:IssueDate>2024-01-31</cbc:IssueDate>" + header +
         "<cac:AccountingSupplierParty><cac:Party>" + supplier +
         "</cac:Party></cac:AccountingSupplierParty><cac:AccountingCustomerParty/>" +
         (total ? "<cac:LegalMonetaryTotal>" + std::string(total) + "</cac:LegalMonetaryTotal>" : "") +
         tail + "</Invoice>";
}

// An Invoice with `element` just before LegalMonetaryTotal, after the parties.
std::string before_total(const std::string& element) {
  std::string xml = invoice();
  return xml.insert(xml.find("<cac:LegalMonetaryTotal>"), element);
}

struct Case {
  const char* name;
  std::string document;
  std::string refusal;                  // the read's message; empty when it reads
  std::vector<std::string> written;     // fragments of what XML get gives back, indentation aside
  std::vector<std::string> not_written;
};

const std::string tax_with_measure =
    "<cac:TaxTotal><cbc:TaxAmount currencyID=\"EUR\">1</cbc:TaxAmount><cac:TaxSubtotal>"
    "<cbc:TaxAmount currencyID=\"EUR\">1</cbc:TaxAmount><cbc:BaseUnitMeasure>1</cbc:BaseUnitMeasure>"
    "<cac:TaxCategory><cac:TaxScheme/></cac:TaxCategory></cac:TaxSubtotal></cac:TaxTotal>";

const Case cases[] = {
    // Element content: each child goes to the first member of its name that is still empty,
    // wherever it stands; a repeat or an unknown child ends the walk of its parent only.
    {"ChildrenAreWrittenInSchemaOrder",
     invoice("", "<cac:PostalAddress><cac:Country><cbc:IdentificationCode>FR</cbc:IdentificationCode>"
                 "</cac:Country><cbc:CityName>Lyon</cbc:CityName></cac:PostalAddress>"),
     "", {"<cac:PostalAddress><cbc:CityName>Lyon</cbc:CityName><cac:Country>"
          "<cbc:IdentificationCode>FR</cbc:IdentificationCode></cac:Country></cac:PostalAddress>"}, {}},
    {"DuplicateChildEndsTheWalkOfItsParentOnly",
     invoice("", "<cac:PostalAddress><cbc:StreetName>First</cbc:StreetName>"
                 "<cbc:StreetName>Second</cbc:StreetName><cbc:CityName>Lyon</cbc:CityName>"
                 "</cac:PostalAddress><cac:Contact><cbc:Name>Kept</cbc:Name></cac:Contact>"),
     "", {"<cac:PostalAddress><cbc:StreetName>First</cbc:StreetName></cac:PostalAddress>",
          "<cac:Contact><cbc:Name>Kept</cbc:Name></cac:Contact>"}, {"Second", "Lyon"}},
    {"ChildOutOfOrderFillsAnEmptyMemberAndARepeatEndsTheWalk",
     invoice("", "<cac:PostalAddress><cbc:CityName>Lyon</cbc:CityName><cbc:StreetName>Late</cbc:StreetName>"
                 "<cbc:CityName>Again</cbc:CityName><cbc:PostalZone>69002</cbc:PostalZone>"
                 "</cac:PostalAddress>"),
     "", {"<cac:PostalAddress><cbc:StreetName>Late</cbc:StreetName><cbc:CityName>Lyon</cbc:CityName>"
          "</cac:PostalAddress>"}, {"Again", "69002"}},
    {"UnknownChildEndsTheWalk",
     invoice("", "<cac:PostalAddress><cbc:StreetName>Rue</cbc:StreetName><cbc:Unknown>?</cbc:Unknown>"
                 "<cbc:CityName>Lyon</cbc:CityName></cac:PostalAddress>"),
     "", {"<cac:PostalAddress><cbc:StreetName>Rue</cbc:StreetName></cac:PostalAddress>"}, {"Lyon"}},
    {"ConsecutiveChildrenOfOneNameFillTheList",
     invoice("<cbc:Note>a</cbc:Note><cbc:Note>b</cbc:Note><cbc:Note>c</cbc:Note>"), "",
     {"<cbc:Note>a</cbc:Note><cbc:Note>b</cbc:Note><cbc:Note>c</cbc:Note>"}, {}},
    {"SimpleContentWithChildElementsIsRefused", invoice("<cbc:Note><b>bold</b></cbc:Note>"),
     "expected text content", {}, {}},
    {"MissingRequiredChildIsAnExpectedElement", invoice("", "", nullptr),
     "expected element '" + kCac + "#LegalMonetaryTotal'", {}, {}},
    // Attributes: amounts and measures require their unit, quantities do not; unknown and
    // foreign attributes are ignored and not written; code lists do not restrict currencyID.
    {"AmountRequiresItsCurrency", invoice("", "", "<cbc:PayableAmount>1</cbc:PayableAmount>"),
     "expected attribute 'currencyID'", {}, {}},
    {"PrefixedAttributeDoesNotStandInForTheUnqualifiedOne",
     invoice("", "", "<cbc:PayableAmount xmlns:x=\"urn:other\" x:currencyID=\"EUR\">1</cbc:PayableAmount>"),
     "expected attribute 'currencyID'", {}, {}},
    {"MeasureRequiresItsUnit", before_total(tax_with_measure), "expected attribute 'unitCode'", {}, {}},
    {"QuantityWithoutUnitReads",
     invoice("", "", kPayable.c_str(),
             "<cac:InvoiceLine><cbc:ID>1</cbc:ID><cbc:InvoicedQuantity>3</cbc:InvoicedQuantity>"
             "<cbc:LineExtensionAmount currencyID=\"EUR\">3</cbc:LineExtensionAmount><cac:Item/>"
             "</cac:InvoiceLine>"),
     "", {"<cbc:InvoicedQuantity>3</cbc:InvoicedQuantity>"}, {}},
    {"UnknownAndForeignAttributesAreNotWritten",
     invoice("", "", "<cbc:PayableAmount xmlns:x=\"urn:other\" currencyID=\"EUR\" "
                     "currencyCodeListVersionID=\"2001\" x:note=\"n\">1</cbc:PayableAmount>"),
     "", {kPayable}, {"currencyCodeListVersionID", "x:note"}},
    {"CurrencyIsNotCheckedAgainstTheCodeList",
     invoice("", "", "<cbc:PayableAmount currencyID=\"XYZ1\">1</cbc:PayableAmount>"), "",
     {"<cbc:PayableAmount currencyID=\"XYZ1\">1</cbc:PayableAmount>"}, {}},
    {"QualifiedCodeWritesNoDefaultAttributes",
     invoice("<cbc:DocumentCurrencyCode>EUR</cbc:DocumentCurrencyCode>"), "",
     {"<cbc:DocumentCurrencyCode>EUR</cbc:DocumentCurrencyCode>"}, {}},
    // Types named by xsi:type: the element's own type reads; one not derived from it is named.
    {"XsiTypeOfTheElementsOwnTypeReads",
     invoice("<cbc:Note " + kXsi + "xsi:type=\"cbc:NoteType\">x</cbc:Note>"), "",
     {"<cbc:Note>x</cbc:Note>"}, {}},
    {"XsiTypeNotDerivedFromTheElementsTypeIsNamedWithIt",
     invoice("<cbc:Note " + kXsi + "xsi:type=\"cbc:CityNameType\">x</cbc:Note>"),
     "type '" + kCbc + "#CityNameType' is not derived from '" + kCbc + "#NoteType'", {}, {}},
    {"XsiTypeOfABaseIsNotDerivedEither",
     invoice("<cbc:InvoiceTypeCode " + kXsi + "xmlns:udt=\"" + kUdt +
             "\" xsi:type=\"udt:CodeType\">380</cbc:InvoiceTypeCode>"),
     "type '" + kUdt + "#CodeType' is not derived from '" + kCbc + "#InvoiceTypeCodeType'", {}, {}},
    // Extension content of any vocabulary survives, written ahead of UBLVersionID.
    {"ExtensionContentSurvivesAndComesFirst",
     invoice("", "", kPayable.c_str(), "",
             "<ext:UBLExtensions><ext:UBLExtension><cbc:ID>sig</cbc:ID>"
             "<ext:ExtensionURI>urn:tivalo:signature</ext:ExtensionURI><ext:ExtensionContent>"
             "<s:Signature xmlns:s=\"urn:example:signature\" s:version=\"2\" plain=\"p\">"
             "<s:Value>ab&amp;c</s:Value><s:Empty/><Unqualified>text</Unqualified></s:Signature>"
             "</ext:ExtensionContent></ext:UBLExtension></ext:UBLExtensions>"),
     "", {"\"><ext:UBLExtensions><ext:UBLExtension><cbc:ID>sig</cbc:ID>",
          "s:version=\"2\"", "plain=\"p\"",
          "<s:Value>ab&amp;c</s:Value><s:Empty/><Unqualified>text</Unqualified></s:Signature>"}, {}},
};

std::string without_indentation(const std::string& xml) {
  return std::regex_replace(xml, std::regex(">\\s+<"), "><");
}

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

class Content : public ::testing::TestWithParam<Case> {};

TEST_P(Content, ReadsAndWritesAsTheTableSays) {
  const Case& c = GetParam();
  auto document = create<IInvoice>(CLSID_Invoice);
  SetErrorInfo(0, nullptr);
  const HRESULT read = document->put_XML(string_of_bytes(c.document).get());
  const std::wstring message = take_error_report().description;
  if (!c.refusal.empty()) {
    EXPECT_EQ(DISP_E_EXCEPTION, read);
    EXPECT_EQ(std::wstring(c.refusal.begin(), c.refusal.end()), message);
    return;
  }
  ASSERT_EQ(S_OK, read) << std::string(message.begin(), message.end());
  Bstr xml;
  ASSERT_EQ(S_OK, document->get_XML(xml.put()));
  const std::string written = without_indentation(bytes_of(xml));
  for (const std::string& fragment : c.written)
    EXPECT_NE(std::string::npos, written.find(fragment)) << fragment << "\n" << written;
  for (const std::string& fragment : c.not_written)
    EXPECT_EQ(std::string::npos, written.find(fragment)) << fragment << "\n" << written;
}

INSTANTIATE_TEST_SUITE_P(Invoice, Content, ::testing::ValuesIn(cases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
