// How element content, attributes and values are read and written: the rules every generated
// class shares, seen through an Invoice.

#include <sstream>
#include <type_traits>

#include <gtest/gtest.h>
#include <xsd/cxx/tree/type-factory-map.hxx>
#include <xsd/cxx/tree/type-serializer-map.hxx>

#include "binding/docs/UBL-Invoice-2.0.hxx"
#include "binding_test_support.h"

namespace {

using namespace binding_test;
namespace ubl = Morvek::UBL2;
namespace cac = Morvek::UBL2::Common::AggregateComponents;
namespace cbc = Morvek::UBL2::Common::BasicComponents;
namespace udt = Morvek::UBL2::Types::Unqualified;
namespace qdt = Morvek::UBL2::Types::Qualified;
using ubl::Docs::Invoice::InvoiceType;

constexpr char kCbc[] = "urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2";
constexpr char kCac[] = "urn:oasis:names:specification:ubl:schema:xsd:CommonAggregateComponents-2";

// An Invoice with the required members; `header` goes after IssueDate, `supplier` inside the
// supplier's Party, `total` inside LegalMonetaryTotal and `tail` after it.
std::string invoice(const std::string& header = "", const std::string& supplier = "",
                    const std::string& total = "<cbc:PayableAmount currencyID=\"EUR\">1</cbc:PayableAmount>",
                    const std::string& tail = "", const std::string& extensions = "") {
  return std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>") +
         "<Invoice xmlns=\"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2\" xmlns:cbc=\"" +
         kCbc + "\" xmlns:cac=\"" + kCac +
         "\" xmlns:ext=\"urn:oasis:names:specification:ubl:schema:xsd:CommonExtensionComponents-2\">" +
         extensions + "<cbc:UBLVersionID>2.0</cbc:UBLVersionID><cbc:ID>1</cbc:ID>" +
         "<cbc:IssueDate>2024-01-31</cbc:IssueDate>" + header +
         "<cac:AccountingSupplierParty><cac:Party>" + supplier +
         "</cac:Party></cac:AccountingSupplierParty>"
         "<cac:AccountingCustomerParty/><cac:LegalMonetaryTotal>" + total +
         "</cac:LegalMonetaryTotal>" + tail + "</Invoice>";
}

std::unique_ptr<InvoiceType> parse(const std::string& xml) {
  std::istringstream in(xml);
  return ubl::Docs::Invoice::Invoice(in, kParseFlags);
}

std::string write(const InvoiceType& object) {
  std::ostringstream out;
  ubl::Docs::Invoice::Invoice(out, object, namespace_map(L"Invoice"), L"UTF-8",
                              xml_schema::flags::dont_initialize);
  return out.str();
}

std::string parse_error(const std::string& xml) {
  try {
    parse(xml);
  } catch (const xml_schema::exception& e) {
    return message(e);
  }
  return "(parsed)";
}

const cac::AddressType& supplier_address(const InvoiceType& invoice) {
  return invoice.AccountingSupplierParty().Party()->PostalAddress().get();
}

// The first element named `local` below `root`, in document order.
const xercesc::DOMElement* find(const xercesc::DOMElement& root, const std::string& local) {
  for (const xercesc::DOMElement* child : child_elements(root)) {
    if (narrow(child->getLocalName()) == local) return child;
    if (const xercesc::DOMElement* found = find(*child, local)) return found;
  }
  return nullptr;
}

std::vector<std::string> child_names(const xercesc::DOMElement& element) {
  std::vector<std::string> names;
  for (const xercesc::DOMElement* child : child_elements(element)) names.push_back(qualified(*child));
  return names;
}

// --- element content ---------------------------------------------------------------------------

TEST(ElementContent, AddressWithCityAndCountryWritesExactlyThoseInOrder) {
  auto parsed = parse(invoice("", "<cac:PostalAddress><cbc:CityName>Lyon</cbc:CityName>"
                                  "<cac:Country><cbc:IdentificationCode>FR</cbc:IdentificationCode>"
                                  "</cac:Country></cac:PostalAddress>"));
  EXPECT_EQ(supplier_address(*parsed).CityName().get(), L"Lyon");

  // The same address built member by member.
  cac::AddressType address;
  cac::CountryType country;
  country.IdentificationCode(cbc::IdentificationCodeType(L"FR"));
  address.Country(country);
  address.CityName(cbc::CityNameType(L"Lyon"));
  parsed->AccountingSupplierParty().Party()->PostalAddress(address);

  auto written = parse_dom(write(*parsed));
  const xercesc::DOMElement* postal = find(*written->getDocumentElement(), "PostalAddress");
  ASSERT_NE(postal, nullptr);
  EXPECT_EQ(child_names(*postal),
            (std::vector<std::string>{std::string(kCbc) + "#CityName", std::string(kCac) + "#Country"}));
}

TEST(ElementContent, DuplicateChildEndsTheWalkOfItsParentOnly) {
  auto parsed = parse(invoice("", "<cac:PostalAddress><cbc:StreetName>First</cbc:StreetName>"
                                  "<cbc:StreetName>Second</cbc:StreetName>"
                                  "<cbc:CityName>Lyon</cbc:CityName></cac:PostalAddress>"
                                  "<cac:Contact><cbc:Name>Kept</cbc:Name></cac:Contact>"));
  const cac::AddressType& address = supplier_address(*parsed);
  EXPECT_EQ(address.StreetName().get(), L"First");
  EXPECT_FALSE(address.CityName().present());
  // The party goes on after its address.
  EXPECT_EQ(parsed->AccountingSupplierParty().Party()->Contact()->Name().get(), L"Kept");
}

TEST(ElementContent, ChildOutOfOrderFillsAnEmptyMemberAndARepeatEndsTheWalk) {
  // Each child goes to the first member of its name that is still empty, wherever it stands;
  // a child whose member is already filled ends the walk.
  auto parsed = parse(invoice("", "<cac:PostalAddress><cbc:CityName>Lyon</cbc:CityName>"
                                  "<cbc:StreetName>Late</cbc:StreetName>"
                                  "<cbc:CityName>Again</cbc:CityName>"
                                  "<cbc:PostalZone>69002</cbc:PostalZone></cac:PostalAddress>"));
  const cac::AddressType& address = supplier_address(*parsed);
  EXPECT_EQ(address.CityName().get(), L"Lyon");
  EXPECT_EQ(address.StreetName().get(), L"Late");
  EXPECT_FALSE(address.PostalZone().present());
}

TEST(ElementContent, UnknownChildEndsTheWalk) {
  auto parsed = parse(invoice("", "<cac:PostalAddress><cbc:StreetName>Rue</cbc:StreetName>"
                                  "<cbc:Unknown>?</cbc:Unknown>"
                                  "<cbc:CityName>Lyon</cbc:CityName></cac:PostalAddress>"));
  EXPECT_EQ(supplier_address(*parsed).StreetName().get(), L"Rue");
  EXPECT_FALSE(supplier_address(*parsed).CityName().present());
}

TEST(ElementContent, ConsecutiveChildrenOfOneNameFillTheSequence) {
  auto parsed = parse(invoice("<cbc:Note>a</cbc:Note><cbc:Note>b</cbc:Note><cbc:Note>c</cbc:Note>"));
  ASSERT_EQ(parsed->Note().size(), 3u);
  EXPECT_EQ(parsed->Note()[2], L"c");
}

TEST(ElementContent, SimpleContentWithChildElementsIsRefused) {
  EXPECT_EQ(parse_error(invoice("<cbc:Note><b>bold</b></cbc:Note>")), "expected text content");
}

// --- attributes ------------------------------------------------------------------------------

TEST(Attributes, AmountAndMeasureRequireTheirUnitQuantityDoesNot) {
  EXPECT_EQ(parse_error(invoice("", "", "<cbc:PayableAmount>1</cbc:PayableAmount>")),
            "expected attribute 'currencyID'");
  const std::string measure_without_unit =
      "<cac:TaxTotal><cbc:TaxAmount currencyID=\"EUR\">1</cbc:TaxAmount><cac:TaxSubtotal>"
      "<cbc:TaxAmount currencyID=\"EUR\">1</cbc:TaxAmount><cbc:BaseUnitMeasure>1</cbc:BaseUnitMeasure>"
      "<cac:TaxCategory><cac:TaxScheme/></cac:TaxCategory></cac:TaxSubtotal></cac:TaxTotal>";
  // TaxTotal comes after the parties, just before LegalMonetaryTotal.
  std::string xml = invoice();
  xml.insert(xml.find("<cac:LegalMonetaryTotal>"), measure_without_unit);
  EXPECT_EQ(parse_error(xml), "expected attribute 'unitCode'");

  xml = invoice("", "", "<cbc:PayableAmount currencyID=\"EUR\">1</cbc:PayableAmount>",
                "<cac:InvoiceLine><cbc:ID>1</cbc:ID><cbc:InvoicedQuantity>3</cbc:InvoicedQuantity>"
                "<cbc:LineExtensionAmount currencyID=\"EUR\">3</cbc:LineExtensionAmount>"
                "<cac:Item/></cac:InvoiceLine>");
  auto parsed = parse(xml);
  ASSERT_TRUE(parsed->InvoiceLine()[0].InvoicedQuantity().present());
  EXPECT_FALSE(parsed->InvoiceLine()[0].InvoicedQuantity()->unitCode().present());
}

TEST(Attributes, UnknownAndForeignAttributesAreIgnoredAndNotWritten) {
  auto parsed = parse(invoice(
      "", "", "<cbc:PayableAmount xmlns:x=\"urn:other\" currencyID=\"EUR\" "
              "currencyCodeListVersionID=\"2001\" x:note=\"n\">1</cbc:PayableAmount>"));
  auto written = parse_dom(write(*parsed));
  const xercesc::DOMElement* amount = find(*written->getDocumentElement(), "PayableAmount");
  ASSERT_NE(amount, nullptr);
  EXPECT_EQ(amount->getAttributes()->getLength(), 1u);
  EXPECT_EQ(narrow(amount->getAttribute(xsd::cxx::xml::string(L"currencyID").c_str())), "EUR");

  // A prefixed attribute does not stand in for the unqualified one.
  EXPECT_EQ(parse_error(invoice("", "", "<cbc:PayableAmount xmlns:x=\"urn:other\" "
                                        "x:currencyID=\"EUR\">1</cbc:PayableAmount>")),
            "expected attribute 'currencyID'");
}

TEST(Attributes, CurrencyIdIsNotCheckedAgainstTheCodeList) {
  auto parsed = parse(invoice("", "", "<cbc:PayableAmount currencyID=\"XYZ1\">1</cbc:PayableAmount>"));
  EXPECT_EQ(parsed->LegalMonetaryTotal().PayableAmount().currencyID(), L"XYZ1");
}

TEST(Attributes, QualifiedCodeWritesNoDefaultAttributes) {
  auto parsed = parse(invoice("<cbc:DocumentCurrencyCode>EUR</cbc:DocumentCurrencyCode>"));
  EXPECT_FALSE(parsed->DocumentCurrencyCode()->listID().present());
  auto written = parse_dom(write(*parsed));
  const xercesc::DOMElement* code = find(*written->getDocumentElement(), "DocumentCurrencyCode");
  ASSERT_NE(code, nullptr);
  EXPECT_EQ(code->getAttributes()->getLength(), 0u);
}

// --- values ----------------------------------------------------------------------------------

TEST(Values, AmountReadsAsDoubleAndWritesInPlainForm) {
  auto parsed = parse(invoice("", "", "<cbc:LineExtensionAmount currencyID=\"EUR\">100.50"
                                      "</cbc:LineExtensionAmount><cbc:PayableAmount currencyID=\"EUR\">"
                                      "1E20</cbc:PayableAmount>"));
  EXPECT_EQ(parsed->LegalMonetaryTotal().LineExtensionAmount().get(), 100.5);
  const std::string xml = write(*parsed);
  EXPECT_NE(xml.find(">100.5</cbc:LineExtensionAmount>"), std::string::npos) << xml;
  EXPECT_NE(xml.find(">100000000000000000000</cbc:PayableAmount>"), std::string::npos) << xml;
}

TEST(Values, OtherNumbersWriteInDecimalForm) {
  std::string xml = invoice("<cbc:LineCountNumeric>100000000000000000000.0</cbc:LineCountNumeric>");
  xml = write(*parse(xml));
  EXPECT_NE(xml.find(">100000000000000000000</cbc:LineCountNumeric>"), std::string::npos) << xml;
}

TEST(Values, DataTypesHoldTheirValueInTheRuntimeBase) {
  using xsd::cxx::tree::fundamental_base;
  using xsd::cxx::tree::schema_type;
  static_assert(std::is_base_of_v<fundamental_base<double, wchar_t, xml_schema::simple_type,
                                                   schema_type::double_>, udt::AmountType>);
  static_assert(std::is_base_of_v<fundamental_base<double, wchar_t, xml_schema::simple_type,
                                                   schema_type::decimal>, udt::MeasureType>);
  static_assert(std::is_same_v<udt::AmountType::currencyID_type, xml_schema::normalized_string>);
  static_assert(std::is_same_v<udt::MeasureType::unitCode_type, xml_schema::normalized_string>);
  static_assert(std::is_same_v<udt::BinaryObjectType::mimeCode_type, xml_schema::normalized_string>);
  static_assert(std::is_base_of_v<xml_schema::string, udt::NameType> &&
                !std::is_base_of_v<udt::TextType, udt::NameType>);
  static_assert(std::is_base_of_v<udt::CodeType, qdt::CurrencyCodeType>);
  static_assert(std::is_base_of_v<qdt::CurrencyCodeType, cbc::DocumentCurrencyCodeType>);
  static_assert(std::is_base_of_v<udt::IdentifierType, cbc::CV2IDType>);
  static_assert(std::is_base_of_v<xml_schema::type, cac::AddressType>);
}

// --- polymorphism ------------------------------------------------------------------------------

// A type derived from a member's type and registered like a generated one.
class SignedNoteType : public cbc::NoteType {
 public:
  using cbc::NoteType::NoteType;
  SignedNoteType(const xercesc::DOMElement& e, xml_schema::flags f = 0,
                 xml_schema::container* c = nullptr)
      : cbc::NoteType(e, f, c) {}
  SignedNoteType(const SignedNoteType& x, xml_schema::flags f = 0,
                 xml_schema::container* c = nullptr)
      : cbc::NoteType(x, f, c) {}
  SignedNoteType* _clone(xml_schema::flags f = 0, xml_schema::container* c = nullptr) const override {
    return new SignedNoteType(*this, f, c);
  }
};

void operator<<(xercesc::DOMElement& e, const SignedNoteType& x) {
  e << static_cast<const cbc::NoteType&>(x);
}

// The plates come first, as in generated code: they create the maps the initializers fill.
const xsd::cxx::tree::type_factory_plate<0, wchar_t> factory_plate;
const xsd::cxx::tree::type_serializer_plate<0, wchar_t> serializer_plate;
const xsd::cxx::tree::type_factory_initializer<0, wchar_t, SignedNoteType> signed_note_factory(
    L"SignedNoteType", L"urn:tivalo:test");
const xsd::cxx::tree::type_serializer_initializer<0, wchar_t, SignedNoteType> signed_note_serializer(
    L"SignedNoteType", L"urn:tivalo:test");

TEST(Polymorphism, DerivedMemberWritesWithXsiTypeAndReadsBack) {
  auto parsed = parse(invoice("<cbc:Note>plain</cbc:Note>"));
  parsed->Note().push_back(SignedNoteType(L"signed"));

  const std::string xml = write(*parsed);
  auto written = parse_dom(xml);
  const xercesc::DOMElement* plain = find(*written->getDocumentElement(), "Note");
  ASSERT_NE(plain, nullptr);
  const XMLCh* xsi = xercesc::SchemaSymbols::fgURI_XSI;
  const xsd::cxx::xml::string type(L"type");
  EXPECT_FALSE(plain->hasAttributeNS(xsi, type.c_str()));
  const xercesc::DOMElement* derived = plain->getNextElementSibling();
  ASSERT_NE(derived, nullptr);
  EXPECT_EQ(qualified(*derived), std::string(kCbc) + "#Note");
  const std::string xsi_type = narrow(derived->getAttributeNS(xsi, type.c_str()));
  EXPECT_NE(xsi_type.find(":SignedNoteType"), std::string::npos) << xml;

  auto reread = parse(xml);
  ASSERT_EQ(reread->Note().size(), 2u);
  EXPECT_EQ(typeid(reread->Note()[0]), typeid(cbc::NoteType));
  EXPECT_EQ(typeid(reread->Note()[1]), typeid(SignedNoteType));
  EXPECT_EQ(reread->Note()[1], L"signed");
}

TEST(Polymorphism, XsiTypeThatDoesNotDeriveFromTheElementsTypeIsNamedWithIt) {
  const std::string xsi = "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" ";
  EXPECT_EQ(parse_error(invoice("<cbc:Note " + xsi + "xsi:type=\"cbc:CityNameType\">x</cbc:Note>")),
            "type '" + std::string(kCbc) + "#CityNameType' is not derived from '" + kCbc + "#NoteType'");
  // A base of the element's type is not derived from it either.
  const std::string udt = "urn:un:unece:uncefact:data:specification:UnqualifiedDataTypesSchemaModule:2";
  EXPECT_EQ(parse_error(invoice("<cbc:InvoiceTypeCode " + xsi + "xmlns:udt=\"" + udt +
                                "\" xsi:type=\"udt:CodeType\">380</cbc:InvoiceTypeCode>")),
            "type '" + udt + "#CodeType' is not derived from '" + kCbc + "#InvoiceTypeCodeType'");
}

// --- extensions ------------------------------------------------------------------------------

TEST(Extensions, ArbitraryContentSurvivesParseAndWrite) {
  const std::string extensions =
      "<ext:UBLExtensions><ext:UBLExtension><cbc:ID>sig</cbc:ID>"
      "<ext:ExtensionURI>urn:tivalo:signature</ext:ExtensionURI><ext:ExtensionContent>"
      "<s:Signature xmlns:s=\"urn:example:signature\" s:version=\"2\" plain=\"p\">"
      "<s:Value>ab&amp;c</s:Value><s:Empty/><Unqualified>text</Unqualified></s:Signature>"
      "</ext:ExtensionContent></ext:UBLExtension></ext:UBLExtensions>";
  const std::string input = invoice("", "", "<cbc:PayableAmount currencyID=\"EUR\">1</cbc:PayableAmount>",
                                    "", extensions);
  auto parsed = parse(input);
  ASSERT_TRUE(parsed->UBLExtensions().present());
  const auto& content = parsed->UBLExtensions()->UBLExtension()[0].ExtensionContent();
  ASSERT_TRUE(content.any().present());
  EXPECT_EQ(qualified(content.any().get()), "urn:example:signature#Signature");

  const std::string output = write(*parsed);
  auto original = parse_dom(input), written = parse_dom(output);
  EXPECT_EQ(compare_elements(*original->getDocumentElement(), *written->getDocumentElement()), "");
  // UBLExtensions is written first, before UBLVersionID.
  EXPECT_EQ(narrow(written->getDocumentElement()->getFirstElementChild()->getLocalName()),
            "UBLExtensions");
}

TEST(Extensions, CopiesOwnTheirContent) {
  const std::string input = invoice(
      "", "", "<cbc:PayableAmount currencyID=\"EUR\">1</cbc:PayableAmount>", "",
      "<ext:UBLExtensions><ext:UBLExtension><ext:ExtensionContent><x:A xmlns:x=\"urn:x\"/>"
      "</ext:ExtensionContent></ext:UBLExtension></ext:UBLExtensions>");
  std::unique_ptr<InvoiceType> copy;
  {
    auto parsed = parse(input);
    copy.reset(parsed->_clone());
  }
  const auto& content = copy->UBLExtensions()->UBLExtension()[0].ExtensionContent();
  EXPECT_EQ(qualified(content.any().get()), "urn:x#A");
}

}  // namespace
