// Text and paths at the boundary: the thread's code page follows its locale, and paths reach the
// parsers as the file system's bytes.
#include "document_testing.h"
#include "tests/thread_locale.h"

using namespace document_testing;

namespace {

const std::wstring kUnicode = L"\u00e9 \u20ac \u4e2d \U0001F600";  // é € 中 😀
const std::string kUnicodeUtf8 = "\xC3\xA9 \xE2\x82\xAC \xE4\xB8\xAD \xF0\x9F\x98\x80";

class BoundaryText : public TempDirectory {
 protected:
  std::wstring xml_of(IInvoice* invoice) {
    Bstr xml;
    EXPECT_EQ(S_OK, invoice->get_XML(xml.put()));
    return text(xml);
  }

  std::wstring first_note(IInvoice* invoice) {
    ComPtr<IText> note;
    Bstr value;
    EXPECT_EQ(S_OK, invoice->getNote(0, note.put()));
    EXPECT_EQ(S_OK, note->get_Value(value.put()));
    return text(value);
  }

  static std::wstring invoice_with_note(const std::wstring& note) {
    std::string body = valid_invoice_body();
    body.insert(body.find("  <cac:AccountingSupplierParty"), "  <cbc:Note>@</cbc:Note>\n");
    const std::string document = ubl_document("Invoice", body);
    std::wstring wide(document.begin(), document.end());
    return wide.replace(wide.find(L'@'), 1, note);
  }

  std::string rules_saying(const std::string& message) {
    return "<xsl:stylesheet version=\"1.0\" xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\">"
           "<xsl:template match=\"/\"><xsl:message>" + message + "</xsl:message></xsl:template>"
           "</xsl:stylesheet>";
  }

  ComPtr<IInvoice> invoice_ = create<IInvoice>(CLSID_Invoice);
};

TEST_F(BoundaryText, InAUtf8LocaleXmlCarriesRealUnicode) {
  ThreadLocale utf8("C.UTF-8");
  if (!utf8) GTEST_SKIP() << "no C.UTF-8 locale";
  ASSERT_EQ(S_OK, invoice_->put_XML(Bstr(invoice_with_note(kUnicode)).get()));
  EXPECT_EQ(kUnicode, first_note(invoice_.get()));
  const std::wstring xml = xml_of(invoice_.get());
  EXPECT_NE(std::wstring::npos, xml.find(L"<cbc:Note>" + kUnicode + L"</cbc:Note>")) << xml;
  ASSERT_EQ(S_OK, invoice_->put_XML(Bstr(xml).get()));
  EXPECT_EQ(xml, xml_of(invoice_.get()));

  Bstr errors(L"untouched");
  ASSERT_EQ(S_OK, invoice_->GetSchemaValidationErrorsFromXML(Bstr(xml).get(),
                                                             Bstr(schema_of(L"Invoice")).get(),
                                                             errors.put()));
  EXPECT_EQ(nullptr, errors.get()) << text(errors);
}

// A string is characters, not bytes: whatever encoding its declaration names, and through both
// readers (a declaration of UTF-8 or none is the streaming reader's, any other the binding's).
TEST_F(BoundaryText, InAUtf8LocaleXmlIsReadAsItsCharactersWhateverItsDeclarationSays) {
  ThreadLocale utf8("C.UTF-8");
  if (!utf8) GTEST_SKIP() << "no C.UTF-8 locale";
  for (const std::wstring encoding : {L"ISO-8859-1", L"UTF-16", L"UTF-7", L"US-ASCII", L"UTF-8"}) {
    std::wstring document = invoice_with_note(kUnicode);
    document.replace(document.find(L"UTF-8"), 5, encoding);
    ASSERT_EQ(S_OK, invoice_->put_XML(Bstr(document).get())) << encoding;
    EXPECT_EQ(kUnicode, first_note(invoice_.get())) << encoding;
  }
}

TEST_F(BoundaryText, InTheCLocaleXmlKeepsOneCharacterPerByte) {
  ASSERT_EQ(S_OK, invoice_->put_XML(string_of_bytes(valid_invoice()).get()));
  ComPtr<IText> note = create<IText>(CLSID_Text);
  ASSERT_EQ(S_OK, note->put_Value(Bstr(kUnicode).get()));
  ASSERT_EQ(S_OK, invoice_->addNote(note.get()));
  const std::wstring xml = xml_of(invoice_.get());
  EXPECT_NE(std::string::npos, bytes_of(Bstr(xml)).find("<cbc:Note>" + kUnicodeUtf8 + "</cbc:Note>"));
  ASSERT_EQ(S_OK, invoice_->put_XML(Bstr(xml).get()));
  EXPECT_EQ(kUnicode, first_note(invoice_.get()));
}

TEST_F(BoundaryText, TextTheCodePageCannotCarryFailsTheCallAndKeepsTheContent) {
  ASSERT_EQ(S_OK, invoice_->put_XML(string_of_bytes(valid_invoice("KEEP")).get()));
  const std::wstring before = xml_of(invoice_.get());

  EXPECT_EQ(DISP_E_EXCEPTION, invoice_->put_XML(Bstr(invoice_with_note(L"12 \u20ac")).get()));
  ErrorReport report = take_error_report();
  EXPECT_NE(std::wstring::npos, report.description.find(L"U+20AC at offset ")) << report.description;
  EXPECT_EQ(0u, report.description.find(L"Tivalo: ")) << report.description;

  ThreadLocale utf8("C.UTF-8");
  if (!utf8) GTEST_SKIP() << "no C.UTF-8 locale";
  const std::wstring lone_surrogate = invoice_with_note(std::wstring(1, wchar_t(0xD800)));
  EXPECT_EQ(DISP_E_EXCEPTION, invoice_->put_XML(Bstr(lone_surrogate).get()));
  report = take_error_report();
  EXPECT_NE(std::wstring::npos, report.description.find(L"lone surrogate (U+D800)"))
      << report.description;
  EXPECT_EQ(before, xml_of(invoice_.get()));
  if constexpr (sizeof(wchar_t) == 4) {  // a host's 32-bit unit that is no code point at all
    const wchar_t beyond_unicode = static_cast<wchar_t>(-128);
    EXPECT_EQ(DISP_E_EXCEPTION,
              invoice_->put_XML(Bstr(invoice_with_note(std::wstring(1, beyond_unicode))).get()));
    EXPECT_NE(std::wstring::npos, take_error_report().description.find(L"U+FFFFFF80 at offset "));
  }

  Bstr errors;
  ASSERT_EQ(S_OK, invoice_->GetSchemaValidationErrorsFromXML(Bstr(lone_surrogate).get(),
                                                             Bstr(schema_of(L"Invoice")).get(),
                                                             errors.put()));
  EXPECT_EQ(report.description, text(errors));
}

TEST_F(BoundaryText, RuleMessagesArriveInTheThreadsCodePage) {
  const Bstr document = string_of_bytes(valid_invoice());
  const Bstr rules(write_file("rules.xsl", rules_saying("\xC3\xA9 \xE2\x82\xAC")));
  Bstr errors;
  ASSERT_EQ(S_OK, invoice_->GetValueValidationErrorsFromXML(document.get(), rules.get(), errors.put()));
  EXPECT_EQ("\xC3\xA9 \xE2\x82\xAC", bytes_of(errors)) << "the C locale: one character per byte";

  ThreadLocale utf8("C.UTF-8");
  if (!utf8) GTEST_SKIP() << "no C.UTF-8 locale";
  ASSERT_EQ(S_OK, invoice_->GetValueValidationErrorsFromXML(document.get(), rules.get(), errors.put()));
  EXPECT_EQ(L"\u00e9 \u20ac", text(errors));
}

TEST_F(BoundaryText, SchemasUnderANonAsciiDirectoryCheckAsUnderAnAsciiOne) {
  namespace fs = std::filesystem;
  const fs::path directory = fs::path(path("valid.xml")).parent_path();
  fs::copy(TIVALO_SCHEMA_DIR, directory / "ascii", fs::copy_options::recursive);
  fs::copy(TIVALO_SCHEMA_DIR, directory / "\xC3\xA9", fs::copy_options::recursive);
  std::string body = valid_invoice_body();
  body.replace(body.find("2020-01-02"), 10, "not-a-date");
  const std::wstring valid = write_file("valid.xml", valid_invoice()),
                     invalid = write_file("invalid.xml", ubl_document("Invoice", body));

  auto errors = [&](const std::wstring& file, const std::wstring& schemas) {
    Bstr result(L"untouched");
    const std::wstring schema = directory.wstring() + L"/" + schemas + L"/maindoc/UBL-Invoice-2.0.xsd";
    EXPECT_EQ(S_OK, invoice_->GetSchemaValidationErrors(Bstr(file).get(), Bstr(schema).get(),
                                                        result.put()));
    return text(result);
  };
  EXPECT_EQ(L"", errors(valid, L"\u00e9"));
  const std::wstring expected = errors(invalid, L"ascii");
  EXPECT_EQ(0u, expected.find(L":4:")) << expected;
  EXPECT_EQ(expected, errors(invalid, L"\u00e9"));
}

}  // namespace
