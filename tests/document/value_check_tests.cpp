// The stylesheet check and the combined checks: the stylesheet's last message is the result.
#include "document_testing.h"

using namespace document_testing;

namespace {

std::string stylesheet(const std::string& template_body) {
  return "<xsl:stylesheet version=\"1.0\" "
         "xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\">\n"
         "  <xsl:template match=\"/\">" + template_body + "</xsl:template>\n"
         "</xsl:stylesheet>\n";
}

class ValueCheck : public TempDirectory {
 protected:
  void SetUp() override {
    TempDirectory::SetUp();
    valid_ = write_file("valid.xml", valid_invoice());
    two_messages_ = write_file(
        "two.xsl", stylesheet("<xsl:message>first</xsl:message><xsl:message>second "
                              "<xsl:value-of select=\"name(*)\"/></xsl:message>"));
    silent_ = write_file("silent.xsl", stylesheet("<out>output text only</out>"));
  }

  std::wstring value_errors(const std::wstring& file, const std::wstring& xsl) {
    Bstr errors(L"untouched");
    EXPECT_EQ(S_OK, invoice_->GetValueValidationErrors(Bstr(file).get(), Bstr(xsl).get(),
                                                       errors.put()));
    return text(errors);
  }

  std::wstring value_errors_of_text(const std::string& xml, const std::wstring& xsl) {
    Bstr errors(L"untouched");
    EXPECT_EQ(S_OK, invoice_->GetValueValidationErrorsFromXML(string_of_bytes(xml).get(),
                                                              Bstr(xsl).get(), errors.put()));
    return text(errors);
  }

  std::wstring combined_errors(const std::wstring& file, const std::wstring& schema,
                               const std::wstring& xsl) {
    Bstr errors(L"untouched");
    EXPECT_EQ(S_OK, invoice_->GetValidationErrors(Bstr(file).get(), Bstr(schema).get(),
                                                  Bstr(xsl).get(), errors.put()));
    return text(errors);
  }

  std::wstring combined_errors_of_text(const std::string& xml, const std::wstring& schema,
                                       const std::wstring& xsl) {
    Bstr errors(L"untouched");
    EXPECT_EQ(S_OK, invoice_->GetValidationErrorsFromXML(string_of_bytes(xml).get(),
                                                         Bstr(schema).get(), Bstr(xsl).get(),
                                                         errors.put()));
    return text(errors);
  }

  std::wstring valid_, two_messages_, silent_;
  ComPtr<IInvoice> invoice_ = create<IInvoice>(CLSID_Invoice);
};

// Only the last message is kept; a stylesheet without one gives nothing (a null text), whatever
// its output, and a later check starts from an empty text.
TEST_F(ValueCheck, TheLastMessageIsTheResult) {
  EXPECT_EQ(L"second Invoice", value_errors(valid_, two_messages_));
  EXPECT_EQ(L"second Invoice", value_errors_of_text(valid_invoice(), two_messages_));
  Bstr errors(L"untouched");
  ASSERT_EQ(S_OK, invoice_->GetValueValidationErrors(Bstr(valid_).get(), Bstr(silent_).get(),
                                                     errors.put()));
  EXPECT_EQ(nullptr, errors.get());
  EXPECT_EQ(L"second Invoice", value_errors(valid_, two_messages_));
  EXPECT_EQ(L"", value_errors(valid_, silent_));
}

TEST_F(ValueCheck, ProcessorErrorsArriveFormattedWithTheirArguments) {
  const std::wstring bad_name =
      write_file("bad-name.xsl", stylesheet("<xsl:element name=\"{concat('1', 'bad')}\"/>"));
  const std::wstring errors = value_errors(valid_, bad_name);
  EXPECT_NE(std::wstring::npos, errors.find(L"'1bad'")) << errors;
}

// Every check of this kind returns its findings as text, never a failure of the call.
TEST_F(ValueCheck, UnusableInputIsNamedInTheResult) {
  const std::wstring refused = L"XSL file is not a stylesheet.";
  EXPECT_EQ(refused, value_errors(valid_, path("missing.xsl")));
  EXPECT_EQ(refused, value_errors(valid_, valid_));  // XML, but not XSLT
  EXPECT_EQ(refused, value_errors(valid_, write_file("garbage.xsl", "not <xml")));
  EXPECT_EQ(refused, value_errors_of_text(valid_invoice(), L""));

  const std::wstring malformed = value_errors_of_text("<Invoice>\n<a>\n</Invoice>", two_messages_);
  EXPECT_EQ(0u, malformed.find(L"Tivalo: The document is not well-formed XML")) << malformed;
  EXPECT_NE(std::wstring::npos, malformed.find(L"line 3")) << malformed;

  const std::wstring missing = path("missing.xml");
  const std::wstring not_found = L"File \"" + missing + L"\" not found.";
  EXPECT_EQ(not_found, value_errors(missing, two_messages_));
  EXPECT_EQ(not_found, combined_errors(missing, schema_of(L"Invoice"), two_messages_));
  EXPECT_EQ(not_found, combined_errors(missing, path("missing.xsd"), path("missing.xsl")));
  EXPECT_FALSE(take_error_report().present);
}

TEST_F(ValueCheck, TheStylesheetRunsOnlyAfterTheSchemaCheckPassed) {
  const std::wstring schema = schema_of(L"Invoice");
  EXPECT_EQ(L"second Invoice", combined_errors(valid_, schema, two_messages_));
  EXPECT_EQ(L"second Invoice", combined_errors_of_text(valid_invoice(), schema, two_messages_));
  EXPECT_EQ(L"", combined_errors(valid_, schema, silent_));

  // A document the schema refuses: the schema's text, and the stylesheet never runs.
  std::string body = valid_invoice_body();
  body.replace(body.find("2020-01-02"), 10, "not-a-date");
  const std::string invalid = ubl_document("Invoice", body);
  const std::wstring schema_text = combined_errors(write_file("invalid.xml", invalid), schema,
                                                   two_messages_);
  EXPECT_EQ(0u, schema_text.find(L":4:")) << schema_text;
  EXPECT_EQ(std::wstring::npos, schema_text.find(L"second")) << schema_text;
  EXPECT_EQ(schema_text, combined_errors_of_text(invalid, schema, two_messages_));

  const std::wstring no_schema = path("missing.xsd");
  EXPECT_EQ(L"Schema file \"" + no_schema + L"\" not found.",
            combined_errors(valid_, no_schema, two_messages_));
}

TEST_F(ValueCheck, ADocumentWithADocumentTypeIsRefusedBeforeAnythingIsFetched) {
  const std::string prolog =
      "<!DOCTYPE Invoice SYSTEM \"http://example.invalid/invoice.dtd\" [\n"
      "  <!ENTITY secret SYSTEM \"file:///etc/passwd\">\n]>\n";
  const std::string document = ubl_document("Invoice", valid_invoice_body("N&secret;"), prolog);
  const std::wstring refused =
      L"Tivalo: The document has a document type declaration; documents with DTDs are not read.";
  EXPECT_EQ(refused, value_errors_of_text(document, two_messages_));
  EXPECT_EQ(refused, value_errors(write_file("dtd.xml", document), two_messages_));
}

TEST_F(ValueCheck, DocumentsInWideEncodingsReachTheStylesheet) {
  std::string utf16 = "\xFF\xFE";  // byte-order mark, then UTF-16LE
  for (char c : valid_invoice()) utf16 += std::string{c, '\0'};
  EXPECT_EQ(L"second Invoice", value_errors(write_file("utf16.xml", utf16), two_messages_));
}

TEST_F(ValueCheck, AStylesheetThatFailsWhileRunningNeverPassesSilently) {
  const std::wstring unknown_function = write_file(
      "unknown.xsl", stylesheet("<xsl:if test=\"matches(., 'x')\"><xsl:message>m</xsl:message></xsl:if>"));
  EXPECT_NE(std::wstring::npos, value_errors(valid_, unknown_function).find(L"matches"));
}

TEST_F(ValueCheck, AStylesheetMayNotWriteFiles) {
  const std::wstring writer = write_file(
      "writer.xsl", "<xsl:stylesheet version=\"1.1\" xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\">"
                    "<xsl:template match=\"/\"><xsl:document href=\"" + std::filesystem::path(path("out/x.txt")).string() +
                    "\" method=\"text\">x</xsl:document></xsl:template></xsl:stylesheet>");
  EXPECT_NE(std::wstring::npos, value_errors(valid_, writer).find(L"denied"));
  EXPECT_FALSE(std::filesystem::exists(path("out")));
}

}  // namespace
