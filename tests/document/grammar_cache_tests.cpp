// Schema grammars kept between calls change no result: the same text with and without the cache,
// on every document class and on broken documents and schemas; an edited schema is seen at once;
// threads that share one cached grammar see what one thread sees.
#include "document/grammar_cache.h"
#include "document_testing.h"

#include <chrono>
#include <functional>
#include <thread>
#include <vector>

using namespace document_testing;
using Morvek::Tivalo::Documents::grammar_cache;

namespace {

const char* const documents[] = {
    "ApplicationResponse", "AttachedDocument", "BillOfLading", "Catalogue", "CatalogueDeletion",
    "CatalogueItemSpecificationUpdate", "CataloguePricingUpdate", "CatalogueRequest",
    "CertificateOfOrigin", "CreditNote", "DebitNote", "DespatchAdvice", "ForwardingInstructions",
    "FreightInvoice", "Invoice", "Order", "OrderCancellation", "OrderChange", "OrderResponse",
    "OrderResponseSimple", "PackingList", "Quotation", "ReceiptAdvice", "Reminder",
    "RemittanceAdvice", "RequestForQuotation", "SelfBilledCreditNote", "SelfBilledInvoice",
    "Statement", "TransportationStatus", "Waybill"};

std::wstring wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }

std::string sample_invoice() {
  std::ifstream in(TIVALO_SOURCE_DIR "/samples/invoice.xml", std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  text.replace(text.find(from), from.size(), to);
  return text;
}

class GrammarCache : public TempDirectory {
 protected:
  void TearDown() override {
    grammar_cache().set_capacity(8);
    TempDirectory::TearDown();
  }

  // The check of the document's own class, late bound as a script calls it.
  static std::wstring check(const std::string& document, const std::string& xml,
                            const std::wstring& schema) {
    CLSID clsid{};
    EXPECT_EQ(S_OK, CLSIDFromProgID(wide("TivaloCOM." + document).c_str(), &clsid));
    ComPtr<IDispatch> object;
    EXPECT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch,
                                     object.put_void()));
    DISPID id = 0;
    LPOLESTR name = const_cast<LPOLESTR>(L"GetSchemaValidationErrorsFromXML");
    EXPECT_EQ(S_OK, object->GetIDsOfNames(IID_NULL, &name, 1, 0, &id));
    Bstr xml_text = string_of_bytes(xml), schema_text(schema);
    VARIANT args[2];
    args[1].vt = VT_BSTR;
    args[1].bstrVal = xml_text.get();
    args[0].vt = VT_BSTR;
    args[0].bstrVal = schema_text.get();
    DISPPARAMS params{args, nullptr, 2, 0};
    VARIANT result;
    VariantInit(&result);
    EXPECT_EQ(S_OK, object->Invoke(id, IID_NULL, 0, DISPATCH_METHOD, &params, &result, nullptr,
                                   nullptr));
    std::wstring found = result.vt == VT_BSTR && result.bstrVal ? result.bstrVal : L"";
    VariantClear(&result);
    return found;
  }

  // The results of `checks` without the cache, then twice with it (once loading, once kept).
  static void expect_same_with_and_without_cache(
      const std::vector<std::function<std::wstring()>>& checks) {
    grammar_cache().set_capacity(0);
    std::vector<std::wstring> uncached;
    for (const auto& run : checks) uncached.push_back(run());
    grammar_cache().set_capacity(8);
    for (int round = 0; round < 2; ++round) {
      for (size_t i = 0; i < checks.size(); ++i)
        EXPECT_EQ(uncached[i], checks[i]()) << "check " << i << ", round " << round;
    }
  }

  // A file that has not changed for an hour counts as settled and may be kept.
  void settle(const std::wstring& file, std::chrono::minutes age = std::chrono::minutes(60)) {
    std::filesystem::last_write_time(file, std::filesystem::file_time_type::clock::now() - age);
  }

  std::wstring own_schema(const std::string& name, const std::string& invoice_content,
                          const std::string& extra = "") {
    return write_file(name,
                      "<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\"\n"
                      "  targetNamespace=\"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2\"\n"
                      "  elementFormDefault=\"qualified\">\n" +
                          extra + "  <xs:element name=\"Invoice\">" + invoice_content +
                          "</xs:element>\n</xs:schema>\n");
  }
};

TEST_F(GrammarCache, EveryDocumentClassGetsTheSameTextWithAndWithoutTheCache) {
  std::vector<std::function<std::wstring()>> checks;
  for (const char* document : documents) {
    const std::string incomplete =
        ubl_document(document, "  <cbc:ID>1</cbc:ID>\n  <cbc:Unknown/>\n");
    checks.push_back([=] { return check(document, incomplete, schema_of(wide(document))); });
  }
  expect_same_with_and_without_cache(checks);
}

TEST_F(GrammarCache, ValidBrokenAndMisdirectedInvoicesGetTheSameText) {
  const std::string sample = sample_invoice();
  const std::wstring invoice = schema_of(L"Invoice");
  const std::vector<std::string> texts = {
      sample,
      replaced(sample, "2024-03-15", "2024-13-45"),
      replaced(sample, "<cbc:ID>INV-2024-0042</cbc:ID>", ""),
      replaced(sample, "<cbc:InvoiceTypeCode>380</cbc:InvoiceTypeCode>",
               "<cbc:InvoiceTypeCode listID=\"a\" unknown=\"b\">380</cbc:InvoiceTypeCode>"),
      replaced(sample, "</cac:OrderReference>", "</cac:OrderRef>"),
      replaced(sample, "<cbc:Note", "<cbc:Nope"),
      "<?xml version=\"1.0\"?><Invoice xmlns=\"urn:other\"/>",
      "not XML at all",
      valid_invoice(),
  };
  std::vector<std::function<std::wstring()>> checks;
  for (const std::string& text : texts) {
    checks.push_back([=] { return check("Invoice", text, invoice); });
    checks.push_back([=] { return check("Invoice", text, schema_of(L"Order")); });
  }
  expect_same_with_and_without_cache(checks);
}

TEST_F(GrammarCache, ASchemaWithProblemsIsNeverKeptAndReportsThemEveryTime) {
  const std::wstring broken = write_file("broken.xsd",
             "<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\"\n"
             "  targetNamespace=\"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2\">\n"
             "  <xs:element name=\"Invoice\" type=\"xs:nosuchtype\"/>\n"
             "</xs:schema>\n");
  settle(broken);
  expect_same_with_and_without_cache({[&] { return check("Invoice", valid_invoice(), broken); }});
  grammar_cache().set_capacity(0);
  grammar_cache().set_capacity(8);
  const std::wstring errors = check("Invoice", valid_invoice(), broken);
  EXPECT_EQ(0u, errors.find(broken + L":3:")) << errors;
  EXPECT_EQ(0u, grammar_cache().size());
}

TEST_F(GrammarCache, ASchemaEditedBetweenTwoCallsIsSeenByTheSecond) {
  const std::string any_content =
      "<xs:complexType><xs:sequence><xs:any processContents=\"skip\" minOccurs=\"0\" "
      "maxOccurs=\"unbounded\" namespace=\"##any\"/></xs:sequence></xs:complexType>";
  const std::string empty_content = "<xs:complexType><xs:sequence/></xs:complexType>";
  const std::wstring schema = own_schema("own.xsd", any_content);
  settle(schema);
  const std::string invoice = valid_invoice();
  const size_t before = grammar_cache().size();
  EXPECT_EQ(L"", check("Invoice", invoice, schema));
  EXPECT_EQ(before + 1, grammar_cache().size());

  // Same modification time, other size.
  const auto kept_time = std::filesystem::last_write_time(schema);
  own_schema("own.xsd", empty_content);
  std::filesystem::last_write_time(schema, kept_time);
  EXPECT_NE(L"", check("Invoice", invoice, schema));

  // Same size, other modification time.
  own_schema("own.xsd", any_content);
  settle(schema, std::chrono::minutes(30));
  EXPECT_EQ(L"", check("Invoice", invoice, schema));
  std::string same_size = any_content;
  same_size.replace(same_size.find("##any"), 5, "##own");  // invoice's children are in cbc/cac
  own_schema("own.xsd", same_size);
  settle(schema, std::chrono::minutes(20));
  EXPECT_NE(L"", check("Invoice", invoice, schema));

  // Same size and modification time: rewritten in place, then replaced by a rename.
  const auto settled_time = std::filesystem::last_write_time(schema);
  own_schema("own.xsd", any_content);
  std::filesystem::last_write_time(schema, settled_time);
  EXPECT_EQ(L"", check("Invoice", invoice, schema));
  std::filesystem::rename(own_schema("replacement.xsd", same_size), schema);
  std::filesystem::last_write_time(schema, settled_time);
  EXPECT_NE(L"", check("Invoice", invoice, schema));
}

TEST_F(GrammarCache, AnEditedIncludedFileIsSeenToo) {
  const std::wstring included = write_file(
      "types.xsd",
      "<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\"\n"
      "  targetNamespace=\"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2\">\n"
      "  <xs:complexType name=\"T\"><xs:sequence><xs:any processContents=\"skip\" "
      "minOccurs=\"0\" maxOccurs=\"unbounded\" namespace=\"##any\"/></xs:sequence>"
      "</xs:complexType>\n</xs:schema>\n");
  const std::wstring schema =
      own_schema("main.xsd", "", "  <xs:include schemaLocation=\"types.xsd\"/>\n");
  write_file("main.xsd",
             "<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\"\n"
             "  xmlns:i=\"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2\"\n"
             "  targetNamespace=\"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2\">\n"
             "  <xs:include schemaLocation=\"types.xsd\"/>\n"
             "  <xs:element name=\"Invoice\" type=\"i:T\"/>\n</xs:schema>\n");
  settle(schema);
  settle(included);
  const std::string invoice = valid_invoice();
  EXPECT_EQ(L"", check("Invoice", invoice, schema));
  EXPECT_EQ(L"", check("Invoice", invoice, schema));

  std::string text = read_file("types.xsd");
  write_file("types.xsd", replaced(text, "namespace=\"##any\"", "namespace=\"##local\""));
  settle(included, std::chrono::minutes(10));
  EXPECT_NE(L"", check("Invoice", invoice, schema));
}

TEST_F(GrammarCache, EightThreadsSharingOneGrammarSeeWhatOneThreadSees) {
  const std::string sample = sample_invoice();
  const std::vector<std::string> texts = {sample, replaced(sample, "2024-03-15", "someday"),
                                          replaced(sample, "</cac:OrderReference>", "</x>"),
                                          valid_invoice()};
  const std::wstring schema = schema_of(L"Invoice");
  std::vector<std::wstring> expected;
  for (const auto& text : texts) expected.push_back(check("Invoice", text, schema));

  std::vector<std::vector<std::wstring>> seen(8);
  std::vector<std::thread> threads;
  for (auto& results : seen) {
    threads.emplace_back([&] {
      CoInitialize(nullptr);
      for (int round = 0; round < 5; ++round) {
        for (const auto& text : texts) results.push_back(check("Invoice", text, schema));
      }
      CoUninitialize();
    });
  }
  for (auto& thread : threads) thread.join();
  for (const auto& results : seen) {
    ASSERT_EQ(texts.size() * 5, results.size());
    for (size_t i = 0; i < results.size(); ++i) EXPECT_EQ(expected[i % texts.size()], results[i]);
  }
}

}  // namespace
