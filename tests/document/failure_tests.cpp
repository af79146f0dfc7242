// Failed Read, Write and XML put: the message, the error information, and the content that the
// document keeps.
#include "document_testing.h"

using namespace document_testing;

namespace {

class DocumentFailures : public TempDirectory {
 protected:
  // An Invoice loaded from a known text, so that a failed load can be seen to keep it.
  ComPtr<IInvoice> loaded_invoice() {
    auto invoice = create<IInvoice>(CLSID_Invoice);
    EXPECT_EQ(S_OK, invoice->put_XML(Bstr(widen(valid_invoice("KEEP"))).get()));
    return invoice;
  }

  static std::wstring widen(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

  static std::wstring id_of(IInvoice* invoice) {
    ComPtr<IIdentifier> id;
    Bstr value;
    EXPECT_EQ(S_OK, invoice->get_ID(id.put()));
    EXPECT_EQ(S_OK, id->get_Value(value.put()));
    return text(value);
  }

  static void expect_report(HRESULT hr, const std::wstring& message) {
    EXPECT_EQ(DISP_E_EXCEPTION, hr);
    const ErrorReport report = take_error_report();
    ASSERT_TRUE(report.present);
    EXPECT_EQ(message, report.description);
    EXPECT_EQ(L"TivaloCOM.Invoice.1", report.source);
    EXPECT_TRUE(IsEqualGUID(IID_IInvoice, report.guid));
  }
};

// Each failure reports through the error information and leaves the loaded content as it was.
TEST_F(DocumentFailures, FailedReadsAndWritesKeepTheContent) {
  const std::wstring order = write_file("order.xml", ubl_document("Order", "  <cbc:ID>O-1</cbc:ID>\n"));
  const std::wstring without_id =
      write_file("no-id.xml", ubl_document("Invoice", "  <cbc:IssueDate>2020-01-02</cbc:IssueDate>\n"));
  const struct { bool read; Bstr file; std::wstring message; } cases[] = {
      {true, path_bstr("missing.xml"), L"Tivalo: Can't open file for read."},
      {true, Bstr(), L"Tivalo: Can't open file for read."},
      {false, path_bstr("no-such-directory/out.xml"), L"Tivalo: Can't open file for write."},
      {false, Bstr(), L"Tivalo: Can't open file for write."},
      {true, Bstr(order),
       L"unexpected element 'urn:oasis:names:specification:ubl:schema:xsd:Order-2#Order'"
       L" instead of 'urn:oasis:names:specification:ubl:schema:xsd:Invoice-2#Invoice'"},
      {true, Bstr(without_id),
       L"expected element 'urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2#ID'"}};
  for (const auto& c : cases) {
    auto invoice = loaded_invoice();
    expect_report(c.read ? invoice->Read(c.file.get()) : invoice->Write(c.file.get()), c.message);
    EXPECT_EQ(L"KEEP", id_of(invoice.get()));
  }
}

TEST_F(DocumentFailures, TextThatIsNotWellFormedGivesTheParserDiagnostics) {
  auto invoice = loaded_invoice();
  const HRESULT hr = invoice->put_XML(Bstr(L"<Invoice>\n<unclosed>\n</Invoice>").get());
  EXPECT_EQ(DISP_E_EXCEPTION, hr);
  const ErrorReport report = take_error_report();
  // The runtime's diagnostics: no entity name for the document itself, then line and column.
  EXPECT_EQ(0u, report.description.find(L":3:")) << report.description;
  EXPECT_NE(std::wstring::npos, report.description.find(L" error: ")) << report.description;
  EXPECT_EQ(L"KEEP", id_of(invoice.get()));
}

TEST_F(DocumentFailures, AMisplacedOptionalElementLoadsUpToWhereTheWalkStops) {
  // A second UUID after the parties has no member left to take it: the walk stops there without
  // an error and the line behind it is not read.
  std::string body = valid_invoice_body("LATE-UUID");
  body.insert(body.find("  <cbc:IssueDate>"), "  <cbc:UUID>U1</cbc:UUID>\n");
  body.insert(body.find("  <cac:InvoiceLine>"), "  <cbc:UUID>U2</cbc:UUID>\n");
  const std::wstring file = write_file("late-uuid.xml", ubl_document("Invoice", body));

  auto invoice = create<IInvoice>(CLSID_Invoice);
  ASSERT_EQ(S_OK, invoice->Read(Bstr(file).get())) << take_error_report().description;
  EXPECT_EQ(L"LATE-UUID", id_of(invoice.get()));
  ComPtr<IIdentifier> uuid;
  Bstr value;
  ASSERT_EQ(S_OK, invoice->get_UUID(uuid.put()));
  ASSERT_EQ(S_OK, uuid->get_Value(value.put()));
  EXPECT_EQ(L"U1", text(value));
  LONG lines = -1;
  ASSERT_EQ(S_OK, invoice->get_InvoiceLineCount(&lines));
  EXPECT_EQ(0, lines);

  Bstr errors;
  ASSERT_EQ(S_OK, invoice->GetSchemaValidationErrors(Bstr(file).get(),
                                                     Bstr(schema_of(L"Invoice")).get(),
                                                     errors.put()));
  EXPECT_EQ(0u, text(errors).find(L":17:")) << text(errors);  // reported where the root closes
  EXPECT_NE(std::wstring::npos, text(errors).find(L"'UUID'")) << text(errors);
}

TEST_F(DocumentFailures, ASuccessfulReadReplacesTheWholeContent) {
  auto invoice = loaded_invoice();
  auto note = create<IText>(CLSID_Text);
  ASSERT_EQ(S_OK, invoice->addNote(note.get()));
  ASSERT_EQ(S_OK, invoice->Read(Bstr(write_file("other.xml", valid_invoice("OTHER"))).get()));
  EXPECT_EQ(L"OTHER", id_of(invoice.get()));
  LONG notes = -1;
  ASSERT_EQ(S_OK, invoice->get_NoteCount(&notes));
  EXPECT_EQ(0, notes);
  EXPECT_FALSE(take_error_report().present);
}

// A document type declaration is refused before anything it names is fetched; schema hints in
// the document are ignored.
TEST_F(DocumentFailures, NetworkReferencesInADocumentAreNeverFetched) {
  const std::string prolog =
      "<!DOCTYPE Invoice SYSTEM \"http://example.invalid/invoice.dtd\" [\n"
      "  <!ENTITY remote SYSTEM \"http://example.invalid/remote.txt\">\n]>\n";
  const std::string hints =
      " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xsi:schemaLocation=\""
      "urn:oasis:names:specification:ubl:schema:xsd:Invoice-2 http://example.invalid/x.xsd\"";
  auto invoice = loaded_invoice();
  expect_report(invoice->Read(Bstr(write_file(
                    "net.xml", ubl_document("Invoice", valid_invoice_body("NET&remote;"), prolog,
                                            hints))).get()),
                L"Tivalo: The document has a document type declaration; documents with DTDs are "
                L"not read.");
  EXPECT_EQ(L"KEEP", id_of(invoice.get()));

  const std::wstring hinted = write_file("hinted.xml", ubl_document("Invoice", valid_invoice_body("NET"), "", hints));
  ASSERT_EQ(S_OK, invoice->Read(Bstr(hinted).get())) << take_error_report().description;
  EXPECT_EQ(L"NET", id_of(invoice.get()));
  Bstr errors;
  ASSERT_EQ(S_OK, invoice->GetSchemaValidationErrors(Bstr(hinted).get(),
                                                     Bstr(schema_of(L"Invoice")).get(),
                                                     errors.put()));
  EXPECT_EQ(L"", text(errors));
}

}  // namespace
