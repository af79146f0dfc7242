// The schema check against the vendored UBL 2.0 schemas: the result text, never an error return.
#include "document_testing.h"

using namespace document_testing;

namespace {

class SchemaCheck : public TempDirectory {
 protected:
  std::wstring errors_of_file(const std::wstring& file, const std::wstring& schema) {
    Bstr errors;
    EXPECT_EQ(S_OK, invoice_->GetSchemaValidationErrors(Bstr(file).get(), Bstr(schema).get(),
                                                        errors.put()));
    return text(errors);
  }

  std::wstring errors_of_text(const Bstr& xml, const std::wstring& schema) {
    Bstr errors;
    EXPECT_EQ(S_OK, invoice_->GetSchemaValidationErrorsFromXML(xml.get(), Bstr(schema).get(),
                                                               errors.put()));
    return text(errors);
  }

  // An Invoice with every member its schema requires, built through the objects.
  static ComPtr<IInvoice> complete_invoice() {
    auto invoice = create<IInvoice>(CLSID_Invoice);
    ComPtr<IIdentifier> id, line_id;
    ComPtr<IMonetaryTotal> total;
    ComPtr<IAmount> payable, line_amount;
    EXPECT_EQ(S_OK, invoice->get_ID(id.put()));
    EXPECT_EQ(S_OK, id->put_Value(Bstr(L"INV-1").get()));
    EXPECT_EQ(S_OK, invoice->put_IssueDate(43832.0));
    EXPECT_EQ(S_OK, invoice->get_LegalMonetaryTotal(total.put()));
    EXPECT_EQ(S_OK, total->get_PayableAmount(payable.put()));
    EXPECT_EQ(S_OK, payable->put_Value(10.0));
    EXPECT_EQ(S_OK, payable->put_CurrencyID(Bstr(L"EUR").get()));
    auto line = create<IInvoiceLine>(CLSID_InvoiceLine);
    EXPECT_EQ(S_OK, line->get_ID(line_id.put()));
    EXPECT_EQ(S_OK, line_id->put_Value(Bstr(L"1").get()));
    EXPECT_EQ(S_OK, line->get_LineExtensionAmount(line_amount.put()));
    EXPECT_EQ(S_OK, line_amount->put_Value(10.0));
    EXPECT_EQ(S_OK, line_amount->put_CurrencyID(Bstr(L"EUR").get()));
    EXPECT_EQ(S_OK, invoice->addInvoiceLine(line.get()));
    return invoice;
  }

  const std::wstring invoice_schema_ = schema_of(L"Invoice");
  ComPtr<IInvoice> invoice_ = create<IInvoice>(CLSID_Invoice);
};

TEST_F(SchemaCheck, ACompleteDocumentBuiltThroughTheObjectsIsValid) {
  auto invoice = complete_invoice();
  ASSERT_EQ(S_OK, invoice->Write(path_bstr("complete.xml").get()));
  Bstr errors(L"untouched"), xml;
  ASSERT_EQ(S_OK, invoice->GetSchemaValidationErrors(path_bstr("complete.xml").get(),
                                                     Bstr(invoice_schema_).get(), errors.put()));
  EXPECT_EQ(nullptr, errors.get()) << text(errors);

  ASSERT_EQ(S_OK, invoice->get_XML(xml.put()));
  EXPECT_EQ(L"", errors_of_text(xml, invoice_schema_));
}

TEST_F(SchemaCheck, EachProblemIsOneLineWithItsPosition) {
  std::string body = valid_invoice_body();
  body.replace(body.find("2020-01-02"), 10, "not-a-date");
  body.replace(body.find(">10</cbc:PayableAmount>"), 3, ">ten");
  const std::wstring errors = errors_of_file(write_file("two.xml", ubl_document("Invoice", body)),
                                             invoice_schema_);
  const size_t line_feed = errors.find(L'\n');
  ASSERT_NE(std::wstring::npos, line_feed) << errors;
  EXPECT_EQ(std::wstring::npos, errors.find(L'\n', line_feed + 1)) << errors;
  const std::wstring first = errors.substr(0, line_feed), second = errors.substr(line_feed + 1);
  EXPECT_EQ(0u, first.find(L":4:")) << first;
  EXPECT_NE(std::wstring::npos, first.find(L" error: ")) << first;
  EXPECT_NE(std::wstring::npos, first.find(L"not-a-date")) << first;
  EXPECT_EQ(0u, second.find(L":8:")) << second;
  EXPECT_NE(std::wstring::npos, second.find(L" error: ")) << second;
}

TEST_F(SchemaCheck, TextThatIsNotWellFormedGivesOneLineFromTheParser) {
  const std::wstring errors = errors_of_text(
      Bstr(L"<Invoice xmlns=\"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2\"\n"
           L"  broken=>\n</Invoice>"),
      invoice_schema_);
  EXPECT_EQ(L":2:10 error: attribute value expected", errors);
}

TEST_F(SchemaCheck, ASchemaForAnotherNamespaceFindsNoDeclaration) {
  const std::wstring errors =
      errors_of_file(write_file("invoice.xml", valid_invoice()), schema_of(L"Order"));
  EXPECT_NE(std::wstring::npos, errors.find(L"no declaration found for element 'Invoice'"))
      << errors;
}

TEST_F(SchemaCheck, AProblemInsideTheSchemaNamesTheSchemaFirst) {
  const std::wstring schema = write_file(
      "broken.xsd",
      "<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\"\n"
      "  targetNamespace=\"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2\">\n"
      "  <xs:element name=\"Invoice\" type=\"xs:nosuchtype\"/>\n"
      "</xs:schema>\n");
  const std::wstring errors = errors_of_file(write_file("invoice.xml", valid_invoice()), schema);
  EXPECT_EQ(0u, errors.find(schema + L":3:")) << errors;
  EXPECT_NE(std::wstring::npos, errors.find(L"nosuchtype")) << errors;
}

TEST_F(SchemaCheck, MissingFilesAreNamedInTheResult) {
  const std::wstring document = write_file("invoice.xml", valid_invoice());
  const std::wstring no_schema = path("no.xsd"), no_document = path("no.xml");
  EXPECT_EQ(L"Schema file \"" + no_schema + L"\" not found.",
            errors_of_file(document, no_schema));
  EXPECT_EQ(L"Schema file \"" + no_schema + L"\" not found.",
            errors_of_text(Bstr(L"not even XML"), no_schema));
  // The document is tested first.
  EXPECT_EQ(L"File \"" + no_document + L"\" not found.", errors_of_file(no_document, no_schema));
  EXPECT_FALSE(take_error_report().present);
}

TEST_F(SchemaCheck, TheCheckLeavesTheObjectAlone) {
  ComPtr<IIdentifier> id, after;
  Bstr value;
  ASSERT_EQ(S_OK, invoice_->get_ID(id.put()));
  ASSERT_EQ(S_OK, id->put_Value(Bstr(L"MINE").get()));
  EXPECT_EQ(L"", errors_of_file(write_file("other.xml", valid_invoice("OTHER")), invoice_schema_));
  ASSERT_EQ(S_OK, invoice_->get_ID(after.put()));
  ASSERT_EQ(S_OK, after->get_Value(value.put()));
  EXPECT_EQ(id.get(), after.get());
  EXPECT_EQ(L"MINE", text(value));
}

}  // namespace
