// How numbers leave a document: amounts and the decimal types in plain decimal notation with the
// fewest digits that read back to the same double, valid for the UBL schema; numbers that are not
// finite are refused; and the numbers of every document the project ships survive a round trip.
#include "../module/script_host.h"
#include "document_testing.h"

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <regex>

using namespace document_testing;

namespace {

// The exact value of a double in plain notation, so that the document holds precisely that double
// before the component writes it its own way.
std::string exact_text(double value) {
  if (value == 0) return std::signbit(value) ? "-0" : "0";
  char buffer[1500];
  std::snprintf(buffer, sizeof buffer, "%.1100f", value);
  std::string text = buffer;
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text;
}

// An Invoice with the number in an element of amount, quantity, numeric, percent and rate type
// (measures and values are read and written by the quantity's decimal type).
std::string invoice_with_numbers(const std::string& n) {
  return ubl_document(
      "Invoice",
      "  <cbc:ID>N-1</cbc:ID>\n"
      "  <cbc:IssueDate>2024-01-31</cbc:IssueDate>\n"
      "  <cac:AccountingSupplierParty/>\n"
      "  <cac:AccountingCustomerParty/>\n"
      "  <cac:TaxExchangeRate><cbc:SourceCurrencyCode>EUR</cbc:SourceCurrencyCode>"
      "<cbc:TargetCurrencyCode>DKK</cbc:TargetCurrencyCode>"
      "<cbc:CalculationRate>" + n + "</cbc:CalculationRate></cac:TaxExchangeRate>\n"
      "  <cac:TaxTotal><cbc:TaxAmount currencyID=\"EUR\">1</cbc:TaxAmount><cac:TaxSubtotal>"
      "<cbc:TaxAmount currencyID=\"EUR\">1</cbc:TaxAmount>"
      "<cbc:CalculationSequenceNumeric>" + n + "</cbc:CalculationSequenceNumeric>"
      "<cbc:Percent>" + n + "</cbc:Percent><cac:TaxCategory><cac:TaxScheme/></cac:TaxCategory>"
      "</cac:TaxSubtotal></cac:TaxTotal>\n"
      "  <cac:LegalMonetaryTotal>"
      "<cbc:PayableAmount currencyID=\"EUR\">" + n + "</cbc:PayableAmount></cac:LegalMonetaryTotal>\n"
      "  <cac:InvoiceLine><cbc:ID>1</cbc:ID>"
      "<cbc:InvoicedQuantity unitCode=\"EA\">" + n + "</cbc:InvoicedQuantity>"
      "<cbc:LineExtensionAmount currencyID=\"EUR\">1</cbc:LineExtensionAmount>"
      "<cac:Item/></cac:InvoiceLine>\n");
}

const std::regex number_element(
    R"(<cbc:(\w*(?:Amount|Quantity|Measure|Numeric|Percent|Rate))\b[^>]*>([^<]*)</cbc:\1>)");

// Each numeric basic component of a document, as element name and text, in document order.
std::vector<std::pair<std::string, std::string>> numbers_in(const std::string& document) {
  std::vector<std::pair<std::string, std::string>> numbers;
  for (std::sregex_iterator m(document.begin(), document.end(), number_element), end; m != end; ++m)
    numbers.emplace_back((*m)[1], (*m)[2]);
  return numbers;
}

std::string without_trailing_zeros(std::string number) {
  if (number.find('.') == std::string::npos) return number;
  number.erase(number.find_last_not_of('0') + 1);
  if (number.back() == '.') number.pop_back();
  return number;
}

class NumberWriting : public TempDirectory, public ::testing::WithParamInterface<double> {};

TEST_P(NumberWriting, IsPlainShortestAndReadsBackAsTheSameDouble) {
  const double value = GetParam();
  auto invoice = create<IInvoice>(CLSID_Invoice);
  ASSERT_EQ(S_OK, invoice->put_XML(string_of_bytes(invoice_with_numbers(exact_text(value))).get()));
  Bstr xml;
  ASSERT_EQ(S_OK, invoice->get_XML(xml.put()));
  const std::string written = bytes_of(xml);

  const auto numbers = numbers_in(written);
  ASSERT_EQ(8u, numbers.size()) << written;
  for (const auto& [element, text] : numbers) {
    if (text == "1") continue;  // the fixed tax amounts and line amount
    EXPECT_TRUE(std::regex_match(text, std::regex(R"(-?[0-9]+(\.[0-9]+)?)"))) << element << ": " << text;
    const double read_back = std::strtod(text.c_str(), nullptr);
    EXPECT_EQ(0, std::memcmp(&read_back, value == 0 ? &read_back : &value, sizeof value))
        << element << ": " << text;
    if (value == 0) EXPECT_EQ("0", text) << element;
    // Shortest: one digit fewer would not read back as the same double.
    const std::string digits = std::regex_replace(text, std::regex("[-.]"), "");
    if (digits.size() > 1 && text.find('.') != std::string::npos) {
      const std::string shorter = text.substr(0, text.size() - 1);
      EXPECT_NE(value, std::strtod(shorter.c_str(), nullptr)) << element << ": " << text;
    }
  }
  Bstr errors;
  ASSERT_EQ(S_OK, invoice->GetSchemaValidationErrorsFromXML(xml.get(), Bstr(schema_of(L"Invoice")).get(),
                                                           errors.put()));
  EXPECT_EQ(L"", text(errors));
}

INSTANTIATE_TEST_SUITE_P(
    Table, NumberWriting,
    ::testing::Values(0.0, -0.0, 1.0, 19.6, 123.45, 100.50, 0.1 + 0.2, 1e-7, 12345678901234567.89,
                      1e21, -42.125, DBL_MAX, -DBL_MAX, DBL_MIN, std::numeric_limits<double>::denorm_min()));

// Values that no document can carry: the write fails through the error report and names them.
class NonFiniteNumbers : public TempDirectory {};

TEST_F(NonFiniteNumbers, AreNotWritten) {
  for (const double value : {std::nan(""), HUGE_VAL, -HUGE_VAL}) {
    auto invoice = create<IInvoice>(CLSID_Invoice);
    ASSERT_EQ(S_OK, invoice->put_XML(string_of_bytes(valid_invoice()).get()));
    ComPtr<IMonetaryTotal> total;
    ComPtr<IAmount> payable;
    ASSERT_EQ(S_OK, invoice->get_LegalMonetaryTotal(total.put()));
    ASSERT_EQ(S_OK, total->get_PayableAmount(payable.put()));
    ASSERT_EQ(S_OK, payable->put_Value(value));

    const std::wstring shown = std::isnan(value) ? L"NaN" : (value > 0 ? L"INF" : L"-INF");
    const std::wstring message = L"Tivalo: The value " + shown + L" of cbc:PayableAmount";
    Bstr xml;
    EXPECT_EQ(DISP_E_EXCEPTION, invoice->get_XML(xml.put()));
    EXPECT_EQ(0u, take_error_report().description.find(message));
    EXPECT_EQ(DISP_E_EXCEPTION, invoice->Write(path_bstr("out.xml").get()));
    EXPECT_EQ(0u, take_error_report().description.find(message));
  }
}

// Every document the project ships, read and written: each number's text stays as it was, or
// loses no more than trailing zeros.
TEST(ShippedDocuments, KeepTheTextOfTheirNumbers) {
  namespace fs = std::filesystem;
  int documents = 0;
  for (const char* directory : {"samples", "tests", "examples"}) {
    const fs::path root = fs::path(TIVALO_SOURCE_DIR) / directory;
    if (!fs::exists(root)) continue;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
      // Hostile documents and fuzz seeds are meant to fail somewhere; they have tests of their own.
      const fs::path folder = entry.path().parent_path().filename();
      if (entry.path().extension() != ".xml" || folder == "hostile" || folder == "corpus" ||
          folder == "corpus21")
        continue;
      std::ifstream in(entry.path(), std::ios::binary);
      const std::string original{std::istreambuf_iterator<char>(in), {}};
      std::smatch root;
      if (!std::regex_search(original, root, std::regex(R"(<([A-Za-z]\w*)[\s/>])"))) continue;
      const std::wstring progid = L"TivaloCOM." + std::wstring(root[1].first, root[1].second);
      CLSID clsid;
      if (CLSIDFromProgID(progid.c_str(), &clsid) != S_OK) continue;  // not a UBL document
      auto document = script::create(progid.c_str());
      ASSERT_TRUE(document);
      script::put(document.get(), L"XML", script::Var::text(string_of_bytes(original).get()));
      const std::string written = bytes_of(Bstr(script::get(document.get(), L"XML").as_text()));

      const auto before = numbers_in(original), after = numbers_in(written);
      ASSERT_EQ(before.size(), after.size()) << entry.path();
      for (std::size_t i = 0; i < before.size(); ++i) {
        EXPECT_EQ(before[i].first, after[i].first) << entry.path();
        EXPECT_EQ(without_trailing_zeros(before[i].second), without_trailing_zeros(after[i].second))
            << entry.path() << " " << before[i].first << ": " << before[i].second << " -> "
            << after[i].second;
      }
      ++documents;
    }
  }
  EXPECT_GT(documents, 0);
}

}  // namespace
