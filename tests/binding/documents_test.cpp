// Documents through their root parse and serialize functions.

#include <map>
#include <sstream>

#include <gtest/gtest.h>

#include "binding/docs/UBL-Invoice-2.0.hxx"
#include "binding/errors.h"
#include "binding_test_support.h"

namespace {

using namespace binding_test;
namespace ubl = Morvek::UBL2;

std::string sample_invoice() { return read_file(source_path("samples/invoice.xml")); }

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

TEST(Documents, SampleInvoiceRoundTripsWithTheSameElementContent) {
  const std::string input = sample_invoice();
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
  EXPECT_EQ(declarations(*written->getDocumentElement()), expected_declarations("Invoice"));
  EXPECT_EQ(out.str().rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"", 0), 0u);
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
  std::istringstream in(
      "<Order xmlns=\"urn:oasis:names:specification:ubl:schema:xsd:Order-2\"/>");
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

// The text without every occurrence of the element (with or without attributes).
std::string without(std::string xml, const std::string& element) {
  for (size_t begin; (begin = xml.find("<" + element)) != std::string::npos;) {
    const std::string close = "</" + element + ">";
    xml.erase(begin, xml.find(close, begin) + close.size() - begin);
  }
  return xml;
}

TEST(DocumentRoot, MissingRequiredChildrenAreExpectedElements) {
  const std::string full = sample_invoice();
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
  const std::string xml = without(sample_invoice(), "cac:InvoiceLine");
  std::istringstream in(xml);
  EXPECT_TRUE(ubl::Docs::Invoice::Invoice(in, kParseFlags)->InvoiceLine().empty());
}

}  // namespace
