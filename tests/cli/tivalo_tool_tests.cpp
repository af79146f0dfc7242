// The tivalo tool as its users run it: a subprocess on real files, judged by exit status and
// output.
#include "run_tool.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

const std::string ubl_namespaces =
    " xmlns:cac=\"urn:oasis:names:specification:ubl:schema:xsd:CommonAggregateComponents-2\""
    " xmlns:cbc=\"urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2\"";

std::string invoice(const std::string& id, const std::string& issue_date,
                    const std::string& extra = "") {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!-- a test invoice -->\n"
         "<Invoice xmlns=\"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2\"" + ubl_namespaces + ">\n"
         "  <cbc:ID>" + id + "</cbc:ID>\n"
         "  <cbc:IssueDate>" + issue_date + "</cbc:IssueDate>\n" + extra +
         "  <cac:AccountingSupplierParty><cac:Party><cac:PartyName><cbc:Name>Atelier Lumière</cbc:Name>"
         "</cac:PartyName></cac:Party></cac:AccountingSupplierParty>\n"
         "  <cac:AccountingCustomerParty/>\n"
         "  <cac:LegalMonetaryTotal><cbc:PayableAmount currencyID=\"EUR\">10.5</cbc:PayableAmount>"
         "</cac:LegalMonetaryTotal>\n"
         "  <cac:InvoiceLine><cbc:ID>1</cbc:ID>"
         "<cbc:LineExtensionAmount currencyID=\"EUR\">10.5</cbc:LineExtensionAmount><cac:Item/>"
         "</cac:InvoiceLine>\n"
         "</Invoice>\n";
}

const std::string valid_invoice = invoice("T-1", "2024-01-31");
// Two problems: a date in the wrong form and an element the content model does not allow.
const std::string invalid_invoice = invoice("T-2", "31.01.2024", "  <cbc:Colour>red</cbc:Colour>\n");
const std::string broken_invoice =
    "<Invoice xmlns=\"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2\"" + ubl_namespaces +
    "><cbc:ID>T-3</Invoice>\n";

const std::string order =
    "<?xml version=\"1.0\"?>\n"
    "<Order xmlns=\"urn:oasis:names:specification:ubl:schema:xsd:Order-2\"" + ubl_namespaces + ">\n"
    "  <cbc:ID>PO-1</cbc:ID><cbc:IssueDate>2024-02-01</cbc:IssueDate>\n"
    "  <cac:BuyerCustomerParty/><cac:SellerSupplierParty/>\n"
    "  <cac:OrderLine><cac:LineItem><cbc:ID>1</cbc:ID><cac:Item/></cac:LineItem></cac:OrderLine>\n"
    "</Order>\n";

// Reports the document's ID as a rule finding when it starts with "T-".
const std::string rules =
    "<xsl:stylesheet version=\"1.0\" xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\"\n"
    "    xmlns:cbc=\"urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2\">\n"
    "  <xsl:template match=\"/\">\n"
    "    <xsl:if test=\"starts-with(/*/cbc:ID, 'T-')\">\n"
    "      <xsl:message>BR-9: test invoice <xsl:value-of select=\"/*/cbc:ID\"/> (Lumière)</xsl:message>\n"
    "    </xsl:if>\n"
    "  </xsl:template>\n"
    "</xsl:stylesheet>\n";

size_t count_lines(const std::string& text) {
  size_t lines = 0;
  for (char c : text) lines += c == '\n';
  return lines;
}

std::string without_carriage_returns(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
  return text;
}

class TivaloTool : public ::testing::Test {
 protected:
  void SetUp() override {
    directory_ = fs::temp_directory_path() /
                 ("tivalo-cli-" + std::to_string(::getpid()) + "-" +
                  ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(directory_);
  }
  void TearDown() override { fs::remove_all(directory_); }

  std::string file(const std::string& name, const std::string& content) const {
    const std::string path = (directory_ / name).string();
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }
  std::string path(const std::string& name) const { return (directory_ / name).string(); }

  static std::string read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  }

  static ToolRun tivalo(const std::vector<std::string>& arguments, const std::string& input = "") {
    return run_tool(TIVALO_TOOL, arguments, input);
  }

  // A usage error or an unreadable file: status 2, one line on standard error, nothing else.
  static void expect_failure_line(const ToolRun& run, const std::string& fragment) {
    EXPECT_EQ(2, run.status) << run.err;
    EXPECT_EQ(1u, count_lines(run.err)) << run.err;
    EXPECT_EQ(0u, run.err.rfind("tivalo: ", 0)) << run.err;
    EXPECT_NE(std::string::npos, run.err.find(fragment)) << run.err;
  }

  fs::path directory_;
};

TEST_F(TivaloTool, ValidDocumentsPassTheirBundledSchema) {
  const std::string sample = std::string(TIVALO_SOURCE_DIR) + "/samples/invoice.xml";
  const std::string own = file("valid.xml", valid_invoice);
  const std::string purchase = file("order.xml", order);  // checked against the Order schema
  ToolRun run = tivalo({"validate", sample, own, purchase});
  EXPECT_EQ(0, run.status) << run.out << run.err;
  EXPECT_EQ(sample + ": ok\n" + own + ": ok\n" + purchase + ": ok\n", run.out);
  EXPECT_EQ("", run.err);
}

TEST_F(TivaloTool, FindingsAreLocatedInTheDocument) {
  const std::string bad = file("invalid.xml", invalid_invoice);
  ToolRun run = tivalo({"validate", bad});
  EXPECT_EQ(1, run.status) << run.err;
  EXPECT_LE(2u, count_lines(run.out)) << run.out;
  EXPECT_EQ(0u, run.out.find(bad + ":5:")) << run.out;  // the date, on line 5
  EXPECT_NE(std::string::npos, run.out.find("\n" + bad + ":6:")) << run.out;  // the colour
  EXPECT_NE(std::string::npos, run.out.find(" error: no declaration found for element 'cbc:Colour'"))
      << run.out;

  ToolRun broken = tivalo({"validate", file("broken.xml", broken_invoice)});
  EXPECT_EQ(1, broken.status);
  EXPECT_EQ(1u, count_lines(broken.out)) << broken.out;
  EXPECT_NE(std::string::npos, broken.out.find("broken.xml:1:")) << broken.out;
}

TEST_F(TivaloTool, ExitStatusIsTheWorstOfAllFiles) {
  const std::string good = file("valid.xml", valid_invoice), bad = file("invalid.xml", invalid_invoice);
  ToolRun findings = tivalo({"validate", good, bad});
  EXPECT_EQ(1, findings.status);
  EXPECT_EQ(0u, findings.out.find(good + ": ok\n")) << findings.out;

  ToolRun unreadable = tivalo({"validate", bad, path("missing.xml"), good});
  EXPECT_EQ(2, unreadable.status);
  EXPECT_NE(std::string::npos, unreadable.out.find(good + ": ok")) << "later files still run";
  EXPECT_NE(std::string::npos, unreadable.err.find("missing.xml: cannot open")) << unreadable.err;
}

TEST_F(TivaloTool, DocumentsTheToolCannotTakeAreFailures) {
  expect_failure_line(tivalo({"validate", path("missing.xml")}), "missing.xml: cannot open");
  expect_failure_line(tivalo({"validate", file("notes.txt", "just words\n")}), "not an XML document");
  expect_failure_line(tivalo({"validate", file("foo.xml", "<?xml version=\"1.0\"?><Foo/>")}),
                      "root element 'Foo'");
  // An aggregate has a class of its own but is no document.
  expect_failure_line(tivalo({"validate", file("address.xml", "<Address/>")}), "root element 'Address'");
  expect_failure_line(tivalo({"convert", path("missing.xml")}), "cannot open");
}

TEST_F(TivaloTool, GivenSchemaReplacesTheBundledOne) {
  const std::string own = file("valid.xml", valid_invoice);
  const std::string order_schema =
      std::string(TIVALO_SCHEMA_DIR) + "/maindoc/UBL-Order-2.0.xsd";
  ToolRun wrong = tivalo({"validate", own, "--schema", order_schema});
  EXPECT_EQ(1, wrong.status) << wrong.err;
  EXPECT_NE(std::string::npos, wrong.out.find("Invoice")) << wrong.out;

  ToolRun right = tivalo({"validate", "--schema=" + std::string(TIVALO_SCHEMA_DIR) +
                                          "/maindoc/UBL-Invoice-2.0.xsd", own});
  EXPECT_EQ(0, right.status) << right.out << right.err;

  expect_failure_line(tivalo({"validate", own, "--schema", path("none.xsd")}),
                      "Schema file \"" + path("none.xsd") + "\" not found.");
}

TEST_F(TivaloTool, RulesRunAfterACleanSchemaCheck) {
  const std::string xsl = file("rules.xsl", rules);
  ToolRun reported = tivalo({"validate", file("valid.xml", valid_invoice), "--rules", xsl});
  EXPECT_EQ(1, reported.status) << reported.err;
  EXPECT_EQ(path("valid.xml") + ": BR-9: test invoice T-1 (Lumière)\n", reported.out);

  // Schema findings come first; the rules do not run on an invalid document.
  ToolRun invalid = tivalo({"validate", file("invalid.xml", invalid_invoice), "--rules", xsl});
  EXPECT_EQ(1, invalid.status);
  EXPECT_EQ(std::string::npos, invalid.out.find("BR-9")) << invalid.out;

  std::string quiet = valid_invoice;
  quiet.replace(quiet.find("T-1"), 3, "P-1");
  EXPECT_EQ(0, tivalo({"validate", file("quiet.xml", quiet), "--rules", xsl}).status);

  expect_failure_line(tivalo({"validate", path("valid.xml"), "--rules", path("none.xsl")}),
                      "XSL file is not a stylesheet.");
}

TEST_F(TivaloTool, StandardInputIsADocumentToo) {
  ToolRun valid = tivalo({"validate", "-"}, valid_invoice);
  EXPECT_EQ(0, valid.status) << valid.out << valid.err;
  EXPECT_EQ("<stdin>: ok\n", valid.out);

  ToolRun invalid = tivalo({"validate", "-"}, invalid_invoice);
  EXPECT_EQ(1, invalid.status);
  EXPECT_EQ(0u, invalid.out.find("<stdin>:5:")) << invalid.out;

  ToolRun rules_run = tivalo({"validate", "-", "--rules", file("rules.xsl", rules)}, valid_invoice);
  EXPECT_EQ(1, rules_run.status);
  EXPECT_EQ("<stdin>: BR-9: test invoice T-1 (Lumière)\n", rules_run.out);

  ToolRun converted = tivalo({"convert", "-"}, valid_invoice);
  EXPECT_EQ(0, converted.status) << converted.err;
  EXPECT_NE(std::string::npos, converted.out.find("<cbc:ID>T-1</cbc:ID>")) << converted.out;
}

TEST_F(TivaloTool, ConvertWritesTheComponentsForm) {
  const std::string source = file("valid.xml", valid_invoice);
  const std::string out = path("out.xml");
  ToolRun written = tivalo({"convert", source, "-o", out});
  EXPECT_EQ(0, written.status) << written.err;
  EXPECT_EQ("", written.out);
  const std::string text = read(out);
  EXPECT_NE(std::string::npos, text.find("encoding=\"UTF-8\"")) << text;
  EXPECT_NE(std::string::npos, text.find("xmlns:ext=")) << "all nine declarations: " << text;
  EXPECT_NE(std::string::npos, text.find("Atelier Lumière")) << "bytes kept as UTF-8";
  EXPECT_EQ(0, tivalo({"validate", out}).status);

  ToolRun printed = tivalo({"convert", source});
  EXPECT_EQ(0, printed.status);
  EXPECT_EQ(without_carriage_returns(text), without_carriage_returns(printed.out));

  // Written once, the form is stable.
  ToolRun again = tivalo({"convert", out});
  EXPECT_EQ(without_carriage_returns(text), without_carriage_returns(again.out));
}

TEST_F(TivaloTool, ConvertReportsTheComponentsMessage) {
  ToolRun broken = tivalo({"convert", file("broken.xml", broken_invoice)});
  EXPECT_EQ(1, broken.status);
  EXPECT_EQ("", broken.out);
  EXPECT_EQ(1u, count_lines(broken.err)) << broken.err;
  EXPECT_EQ(0u, broken.err.find("tivalo: " + path("broken.xml") + ":1:")) << broken.err;

  const std::string nowhere = path("no/such/dir/out.xml");
  ToolRun unwritable = tivalo({"convert", file("valid.xml", valid_invoice), "-o", nowhere});
  EXPECT_EQ(1, unwritable.status);
  EXPECT_EQ("tivalo: " + nowhere + ": Tivalo: Can't open file for write.\n", unwritable.err);
}

TEST_F(TivaloTool, ShowPrintsTheMembersThatAreSet) {
  ToolRun run = tivalo({"show", file("valid.xml", valid_invoice)});
  ASSERT_EQ(0, run.status) << run.err;
  EXPECT_EQ(0u, run.out.find("Invoice\n  ID: T-1\n  IssueDate: 2024-01-31\n")) << run.out;
  EXPECT_NE(std::string::npos,
            run.out.find("  AccountingSupplierParty\n    Party\n      PartyName[0]\n"
                         "        Name: Atelier Lumière\n")) << run.out;
  EXPECT_NE(std::string::npos, run.out.find("    PayableAmount: 10.5 [CurrencyID=EUR]\n")) << run.out;
  EXPECT_NE(std::string::npos, run.out.find("  InvoiceLine[0]\n    ID: 1\n")) << run.out;
  EXPECT_EQ(std::string::npos, run.out.find("UUID")) << "unset optional members stay out";
  EXPECT_EQ(std::string::npos, run.out.find("XML")) << run.out;
}

TEST_F(TivaloTool, CatalogueCommands) {
  ToolRun classes = tivalo({"classes"});
  EXPECT_EQ(0, classes.status);
  EXPECT_EQ(155u, count_lines(classes.out));
  EXPECT_NE(std::string::npos, classes.out.find("65   Invoice")) << classes.out;

  ToolRun members = tivalo({"members", "Invoice"});
  EXPECT_EQ(0, members.status);
  EXPECT_NE(std::string::npos, members.out.find("interface IInvoice {e56b9444-b0eb-11df-8a48-005056c00008}, 181 members"))
      << members.out;
  EXPECT_NE(std::string::npos,
            members.out.find("     1  propget     7  UBLVersionID([out, retval] IIdentifier** val)\n"))
      << members.out;
  EXPECT_NE(std::string::npos, members.out.find("     1  propput     8  UBLVersionID([in] IIdentifier*)\n"));
  EXPECT_NE(std::string::npos, members.out.find(
      "   148  method    187  GetValueValidationErrorsFromXML([in] BSTR xmldata, [in] BSTR xsldata, "
      "[out, retval] BSTR* errors)\n")) << members.out;

  ToolRun line = tivalo({"members", "iinvoiceline"});
  EXPECT_EQ(0, line.status);
  EXPECT_NE(std::string::npos, line.out.find(" item([out, retval] IItem** item)")) << line.out;
  expect_failure_line(tivalo({"members", "Nothing"}), "no class 'Nothing'");

  ToolRun idl = tivalo({"idl"});
  EXPECT_EQ(0, idl.status);
  EXPECT_NE(std::string::npos, idl.out.find("library TivaloCOMLib"));
}

TEST_F(TivaloTool, SchemasAndDocumentsUnderAnyNameCheckTheSame) {
  fs::copy(TIVALO_SCHEMA_DIR, directory_ / "\xC3\xA9", fs::copy_options::recursive);
  const std::string schema = path("\xC3\xA9/maindoc/UBL-Invoice-2.0.xsd");
  // A UTF-8 name and one that is not UTF-8 (Latin-1), as an older file system may hold.
  for (const std::string name : {std::string("d\xC3\xA9j\xC3\xA0 vu.xml"), std::string("d\xE9j\xE0.xml")}) {
    const std::string document = file(name, valid_invoice);
    ToolRun run = tivalo({"validate", "--schema", schema, document});
    EXPECT_EQ(0, run.status) << run.out << run.err;
    EXPECT_EQ(document + ": ok\n", run.out);
  }
  const std::string invalid = file("invalid.xml", invalid_invoice);
  ToolRun run = tivalo({"validate", "--schema", schema, invalid});
  ToolRun ascii = tivalo({"validate", "--schema",
                          std::string(TIVALO_SCHEMA_DIR) + "/maindoc/UBL-Invoice-2.0.xsd", invalid});
  EXPECT_EQ(1, run.status) << run.out << run.err;
  EXPECT_EQ(ascii.out, run.out);
}

// CV2ID stands after the account's other members, which keep the slots and DISPIDs they had.
TEST_F(TivaloTool, CardAccountMembersKeepTheirPublishedPlaces) {
  ToolRun members = tivalo({"members", "CardAccount"});
  EXPECT_EQ(0, members.status);
  for (const char* line : {"    13  propget    26  CardChipCode(", "    15  propget    29  ChipApplicationID(",
                           "    17  propget    32  HolderName(", "    19  propget    35  CV2ID(",
                           "    20  propget    37  IsCV2IDSet("})
    EXPECT_NE(std::string::npos, members.out.find(line)) << line << "\n" << members.out;
}

TEST_F(TivaloTool, UsageErrorsAreOneLine) {
  expect_failure_line(tivalo({}), "no command");
  expect_failure_line(tivalo({"frobnicate"}), "unknown command 'frobnicate'");
  expect_failure_line(tivalo({"validate"}), "missing operand");
  expect_failure_line(tivalo({"validate", "a.xml", "--strict"}), "unknown option '--strict'");
  expect_failure_line(tivalo({"validate", "a.xml", "--schema"}), "needs a value");
  expect_failure_line(tivalo({"convert", "a.xml", "b.xml"}), "unexpected operand 'b.xml'");
  expect_failure_line(tivalo({"validate", "-", "-"}), "only once");
  expect_failure_line(tivalo({"classes", "extra"}), "unexpected operand");
}

TEST_F(TivaloTool, HelpForTheToolAndEachCommand) {
  ToolRun help = tivalo({"--help"});
  EXPECT_EQ(0, help.status);
  for (const char* command : {"validate", "convert", "show", "classes", "members", "idl"}) {
    EXPECT_NE(std::string::npos, help.out.find(std::string("  ") + command)) << command;
    ToolRun one = tivalo({command, "--help"});
    EXPECT_EQ(0, one.status) << command;
    EXPECT_EQ(0u, one.out.find(std::string("usage: tivalo ") + command)) << one.out;
  }
  EXPECT_EQ("tivalo 1.2.2\n", tivalo({"--version"}).out);
}

}  // namespace
