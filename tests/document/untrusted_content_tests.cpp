// Content that no document can hold, and files that cannot take the bytes: every case fails the
// operation with a message and loses nothing; none ends the process.
#include "document_testing.h"

#include <cmath>
#include <limits>

#include <sys/resource.h>
#include <sys/wait.h>

using namespace document_testing;

namespace {

class UntrustedContent : public TempDirectory {
 protected:
  static ComPtr<IInvoice> new_invoice() { return create<IInvoice>(CLSID_Invoice); }

  static ComPtr<IIdentifier> id_of(IInvoice* invoice) {
    ComPtr<IIdentifier> id;
    EXPECT_EQ(S_OK, invoice->get_ID(id.put()));
    return id;
  }

  static ComPtr<IParty> supplier_party(IInvoice* invoice) {
    ComPtr<ISupplierParty> supplier;
    ComPtr<IParty> party;
    EXPECT_EQ(S_OK, invoice->get_AccountingSupplierParty(supplier.put()));
    EXPECT_EQ(S_OK, supplier->get_Party(party.put()));
    return party;
  }

  // The XML get fails with a report whose description contains every one of `parts`.
  static void expect_refused(IInvoice* invoice, std::initializer_list<const wchar_t*> parts) {
    Bstr untouched(L"untouched");
    BSTR xml = untouched.get();
    EXPECT_EQ(DISP_E_EXCEPTION, invoice->get_XML(&xml));
    EXPECT_EQ(untouched.get(), xml);
    const ErrorReport report = take_error_report();
    ASSERT_TRUE(report.present);
    EXPECT_EQ(L"TivaloCOM.Invoice.1", report.source);
    for (const wchar_t* part : parts)
      EXPECT_NE(std::wstring::npos, report.description.find(part)) << report.description;
  }
};

TEST_F(UntrustedContent, CharactersThatXml10CannotCarryFailTheWriteNamingTheElement) {
  const struct {
    std::wstring value;
    const wchar_t* code;
  } cases[] = {{std::wstring(L"a\x01" L"b"), L"U+0001"},
               {std::wstring(L"\x1F"), L"U+001F"},
               {std::wstring(L"x\xFFFE"), L"U+FFFE"},
               {std::wstring(L"\xFFFF"), L"U+FFFF"},
               {std::wstring(1, wchar_t(0xD800)) + L"z", L"U+D800"},
               {std::wstring(1, wchar_t(0xDC00)), L"U+DC00"},
               // The DOM ends a text at a NUL; the rest must not be dropped unsaid.
               {std::wstring(L"ab\0cd", 5), L"U+0000"},
               {std::wstring(L"\0", 1), L"U+0000"},
               {std::wstring(L"a\x01\0", 3), L"U+0001"},
               // Beyond Unicode: named by its value, not by the surrogate it would turn into.
               {std::wstring{L'a', wchar_t(0x110000)}, L"U+110000"},
               {std::wstring{wchar_t(0x7FFFFFFF), L'\0'}, L"U+7FFFFFFF"}};
  const std::wstring file = write_file("kept.xml", "earlier content");
  for (const auto& c : cases) {
    auto invoice = new_invoice();
    ASSERT_EQ(S_OK, id_of(invoice.get())->put_Value(Bstr(c.value).get()));
    expect_refused(invoice.get(), {L"cbc:ID", c.code});
    EXPECT_EQ(DISP_E_EXCEPTION, invoice->Write(Bstr(file).get()));
    take_error_report();
    EXPECT_EQ("earlier content", read_file("kept.xml"));
  }

  // Tab, line feed, carriage return and characters beyond the first plane are fine.
  auto invoice = new_invoice();
  ASSERT_EQ(S_OK, id_of(invoice.get())->put_Value(Bstr(L"a\tb\nc\rd\U0001F600").get()));
  Bstr xml;
  EXPECT_EQ(S_OK, invoice->get_XML(xml.put()));
}

TEST_F(UntrustedContent, AForbiddenCharacterInAnAttributeNamesTheAttribute) {
  auto invoice = new_invoice();
  ComPtr<IMonetaryTotal> total;
  ComPtr<IAmount> payable;
  ASSERT_EQ(S_OK, invoice->get_LegalMonetaryTotal(total.put()));
  ASSERT_EQ(S_OK, total->get_PayableAmount(payable.put()));
  ASSERT_EQ(S_OK, payable->put_CurrencyID(Bstr(L"E\x02R").get()));
  expect_refused(invoice.get(), {L"currencyID", L"cbc:PayableAmount", L"U+0002"});
  ASSERT_EQ(S_OK, payable->put_CurrencyID(Bstr(std::wstring(L"EUR\0X", 5)).get()));
  expect_refused(invoice.get(), {L"currencyID", L"cbc:PayableAmount", L"U+0000"});
}

TEST_F(UntrustedContent, AControlCharacterReadFromAnXml11DocumentIsNotWrittenBack) {
  auto invoice = new_invoice();
  const std::string xml11 = ubl_document("Invoice", valid_invoice_body("a&#1;b"));
  const std::string declared = "<?xml version=\"1.1\"" + xml11.substr(xml11.find(" encoding"));
  ASSERT_EQ(S_OK, invoice->put_XML(string_of_bytes(declared).get()));
  expect_refused(invoice.get(), {L"cbc:ID", L"U+0001"});
}

TEST_F(UntrustedContent, ADateOutsideTheCalendarFailsTheWrite) {
  for (double date : {3e6, -1e6, std::numeric_limits<double>::quiet_NaN(),
                      std::numeric_limits<double>::infinity()}) {
    auto invoice = new_invoice();
    ASSERT_EQ(S_OK, invoice->put_IssueDate(date));
    expect_refused(invoice.get(), {L"DATE value", L"years 100 to 9999"});
  }
  auto invoice = new_invoice();
  ASSERT_EQ(S_OK, invoice->put_IssueDate(2958465.0));  // 9999-12-31
  Bstr xml;
  ASSERT_EQ(S_OK, invoice->get_XML(xml.put()));
  EXPECT_NE(std::string::npos, bytes_of(xml).find("9999-12-31"));
}

TEST_F(UntrustedContent, AGraphWithACycleFailsTheWrite) {
  auto invoice = new_invoice();
  ComPtr<IParty> party = supplier_party(invoice.get());
  ASSERT_EQ(S_OK, party->put_AgentParty(party.get()));
  expect_refused(invoice.get(), {L"cycle"});

  // Sharing one object in two places is no cycle.
  auto other = create<IParty>(CLSID_Party);
  ASSERT_EQ(S_OK, party->put_AgentParty(other.get()));
  ComPtr<ICustomerParty> customer;
  ASSERT_EQ(S_OK, invoice->get_AccountingCustomerParty(customer.put()));
  ASSERT_EQ(S_OK, customer->put_Party(other.get()));
  Bstr xml;
  EXPECT_EQ(S_OK, invoice->get_XML(xml.put()));
}

TEST_F(UntrustedContent, AChainDeeperThanAnyDocumentFailsTheWrite) {
  auto invoice = new_invoice();
  ComPtr<IParty> party = supplier_party(invoice.get());
  for (int i = 0; i < 5000; ++i) {
    ComPtr<IParty> agent;
    ASSERT_EQ(S_OK, party->get_AgentParty(agent.put()));
    party = agent;
  }
  expect_refused(invoice.get(), {L"nested more than 1000"});
}

// Read takes documents nested 1000 elements deep: as deep is written, one more is not.
TEST_F(UntrustedContent, TheWriterNestsElementsAsDeepAsReadTakes) {
  auto invoice = new_invoice();
  ComPtr<IParty> party = supplier_party(invoice.get());  // the third element down
  for (int depth = 3; depth < 1000; ++depth) {
    ComPtr<IParty> agent;
    ASSERT_EQ(S_OK, party->get_AgentParty(agent.put()));
    party = agent;
  }
  Bstr xml;
  ASSERT_EQ(S_OK, invoice->get_XML(xml.put()));
  EXPECT_EQ(S_OK, new_invoice()->put_XML(xml.get()));
  ASSERT_EQ(S_OK, party->put_MarkCareIndicator(VARIANT_TRUE));
  expect_refused(invoice.get(), {L"more than 1000 deep"});
}

// A line whose item the schema lets be absent gets an empty one, as a new line has.
TEST_F(UntrustedContent, ACreditOrDebitNoteLineWithoutItemReadsAndWritesBack) {
  const std::string parties =
      "  <cac:AccountingSupplierParty/>\n  <cac:AccountingCustomerParty/>\n";
  const std::string credit = ubl_document(
      "CreditNote", "  <cbc:ID>C1</cbc:ID>\n  <cbc:IssueDate>2020-01-02</cbc:IssueDate>\n" +
                        parties +
                        "  <cac:LegalMonetaryTotal><cbc:PayableAmount currencyID=\"EUR\">1"
                        "</cbc:PayableAmount></cac:LegalMonetaryTotal>\n"
                        "  <cac:CreditNoteLine><cbc:ID>1</cbc:ID></cac:CreditNoteLine>\n");
  auto note = create<ICreditNote>(CLSID_CreditNote);
  ASSERT_EQ(S_OK, note->put_XML(string_of_bytes(credit).get()));
  ComPtr<ICreditNoteLine> line;
  ComPtr<IItem> item;
  ASSERT_EQ(S_OK, note->getCreditNoteLine(0, line.put()));
  ASSERT_EQ(S_OK, line->get_item(item.put()));
  ASSERT_TRUE(item);
  Bstr xml, errors(L"unset");
  ASSERT_EQ(S_OK, note->get_XML(xml.put()));
  EXPECT_NE(std::string::npos, bytes_of(xml).find("<cac:Item/>"));
  const Bstr schema(schema_of(L"CreditNote"));
  EXPECT_EQ(S_OK, note->GetSchemaValidationErrorsFromXML(xml.get(), schema.get(), errors.put()));
  EXPECT_EQ(L"", text(errors));

  const std::string debit = ubl_document(
      "DebitNote", "  <cbc:ID>D1</cbc:ID>\n  <cbc:IssueDate>2020-01-02</cbc:IssueDate>\n" +
                       parties +
                       "  <cac:RequestedMonetaryTotal><cbc:PayableAmount currencyID=\"EUR\">1"
                       "</cbc:PayableAmount></cac:RequestedMonetaryTotal>\n"
                       "  <cac:DebitNoteLine><cbc:ID>1</cbc:ID><cbc:LineExtensionAmount "
                       "currencyID=\"EUR\">1</cbc:LineExtensionAmount></cac:DebitNoteLine>\n");
  auto debit_note = create<IDebitNote>(CLSID_DebitNote);
  ASSERT_EQ(S_OK, debit_note->put_XML(string_of_bytes(debit).get()));
  Bstr debit_xml;
  ASSERT_EQ(S_OK, debit_note->get_XML(debit_xml.put()));
  EXPECT_NE(std::string::npos, bytes_of(debit_xml).find("<cac:Item/>"));
}

TEST_F(UntrustedContent, AWriteThatCannotReachTheDiskFails) {
  auto invoice = new_invoice();
  EXPECT_EQ(DISP_E_EXCEPTION, invoice->Write(Bstr(L"/dev/full").get()));
  const ErrorReport report = take_error_report();
  EXPECT_EQ(L"Tivalo: Can't write file: No space left on device.", report.description);
}

TEST_F(UntrustedContent, AWriteReplacesTheFileWholeAndLeavesNothingBeside) {
  const std::wstring file = write_file("out.xml", std::string(100000, 'x'));
  std::filesystem::permissions(std::filesystem::path(file), std::filesystem::perms(0640));
  auto invoice = new_invoice();
  ASSERT_EQ(S_OK, id_of(invoice.get())->put_Value(Bstr(L"NEW").get()));
  ASSERT_EQ(S_OK, invoice->Write(Bstr(file).get()));
  const std::string written = read_file("out.xml");
  EXPECT_EQ(0u, written.find("<?xml"));
  EXPECT_NE(std::string::npos, written.find("<cbc:ID>NEW</cbc:ID>"));
  EXPECT_EQ(std::filesystem::perms(0640),
            std::filesystem::status(std::filesystem::path(file)).permissions());
  const auto directory = std::filesystem::path(file).parent_path();
  EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(directory),
                             std::filesystem::directory_iterator()));
}

// An object aggregated in another of the component's objects, then used as a child: its content
// is its own, not the outer object's.
TEST_F(UntrustedContent, AnAggregatedObjectStoresItsOwnContent) {
  auto outer = create<IParty>(CLSID_Party);
  ComPtr<IUnknown> inner;
  ASSERT_EQ(S_OK, CoCreateInstance(CLSID_Identifier, outer.get(), CLSCTX_INPROC_SERVER,
                                   IID_IUnknown, inner.put_void()));
  ComPtr<IIdentifier> id;
  ASSERT_EQ(S_OK, inner->QueryInterface(IID_IIdentifier, id.put_void()));
  ASSERT_EQ(S_OK, id->put_Value(Bstr(L"AGGREGATED").get()));
  {
    auto invoice = new_invoice();
    ASSERT_EQ(S_OK, invoice->put_ID(id.get()));
    Bstr xml;
    ASSERT_EQ(S_OK, invoice->get_XML(xml.put()));
    EXPECT_NE(std::string::npos, bytes_of(xml).find("<cbc:ID>AGGREGATED</cbc:ID>"));
  }
  id.reset();
  inner.reset();
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TIVALO_NO_MEMORY_LIMIT
#endif
#endif
#else
#define TIVALO_NO_MEMORY_LIMIT
#endif

// Memory runs out for real (an address-space limit in a child process): members answer
// E_OUTOFMEMORY and document operations report it; the process goes on.
TEST_F(UntrustedContent, ExhaustedMemoryBecomesAStatusNotACrash) {
#ifdef TIVALO_NO_MEMORY_LIMIT
  GTEST_SKIP() << "sanitizers reserve address space of their own";
#else
  const pid_t child = fork();
  ASSERT_NE(-1, child);
  if (child == 0) {
    auto invoice = new_invoice();
    Bstr warm_up;  // starts the XML platform while memory lasts
    if (invoice->get_XML(warm_up.put()) != S_OK) _exit(2);
    rlimit limit{};
    getrlimit(RLIMIT_AS, &limit);
    std::ifstream status("/proc/self/statm");
    size_t pages = 0;
    status >> pages;
    limit.rlim_cur = pages * size_t(sysconf(_SC_PAGESIZE)) + (32u << 20);
    setrlimit(RLIMIT_AS, &limit);
    HRESULT hr = S_OK;
    for (int i = 0; i < 10000000 && SUCCEEDED(hr); ++i) {
      ComPtr<IInvoiceLine> line;
      hr = CoCreateInstance(CLSID_InvoiceLine, nullptr, CLSCTX_INPROC_SERVER, IID_IInvoiceLine,
                            line.put_void());
      if (SUCCEEDED(hr)) hr = invoice->addInvoiceLine(line.get());
    }
    const bool member_failed = hr == E_OUTOFMEMORY;
    Bstr out;
    // With memory this short even the error report may not be built: the bare status then.
    const HRESULT written = invoice->get_XML(out.put());
    const bool operation_failed = written == DISP_E_EXCEPTION || written == E_OUTOFMEMORY;
    _exit(member_failed && operation_failed ? 0 : 5);
  }
  int status = 0;
  ASSERT_EQ(child, waitpid(child, &status, 0));
  ASSERT_TRUE(WIFEXITED(status)) << "the child ended by signal " << WTERMSIG(status);
  EXPECT_EQ(0, WEXITSTATUS(status));
#endif
}

}  // namespace
