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

// Validation runs: the exit status is the worst of all files (0 ok, 1 findings, 2 the tool's
// failure), and what standard output must and must not hold. A document named "-" is read from
// standard input.
TEST_F(TivaloTool, ValidationRuns) {
  const std::string sample = std::string(TIVALO_SOURCE_DIR) + "/samples/invoice.xml";
  const std::string good = file("valid.xml", valid_invoice), bad = file("invalid.xml", invalid_invoice);
  const std::string purchase = file("order.xml", order);  // checked against the Order schema
  const std::string broken = file("broken.xml", broken_invoice), xsl = file("rules.xsl", rules);
  std::string quiet_invoice = valid_invoice;
  const std::string quiet = file("quiet.xml", quiet_invoice.replace(quiet_invoice.find("T-1"), 3, "P-1"));
  const std::string schemas = std::string(TIVALO_SCHEMA_DIR) + "/maindoc/UBL-";
  const std::string finding = " error: BR-9: test invoice T-1 (Lumière)\n";
  const std::string text = file("notes.txt", "just words\n");
  const std::string foreign = file("foo.xml", "<?xml version=\"1.0\"?><Foo/>");
  const std::string aggregate = file("address.xml", "<Address/>");  // a class, but no document
  // A folder: every *.xml below it, sorted by path; other files are left alone.
  fs::create_directories(path("folder/b"));
  const std::string in_b = file("folder/b/one.xml", valid_invoice), in_a = file("folder/a.XML", valid_invoice);
  file("folder/b/readme.txt", "not a document");
  // A document the process reads from a pipe, which cannot be read twice.
  const std::string piped = "validate <(cat " + good + ")";
  const std::string fifo = path("fifo.xml");
  const std::string named_pipe = "mkfifo " + fifo + " && { cat " + good + " >" + fifo + " & } && " + TIVALO_TOOL +
                                 " validate " + fifo + " --rules " + xsl;
  const struct {
    std::vector<std::string> arguments;
    std::string input;
    int status;
    std::vector<std::string> out_has;
    std::string out_lacks;
  } runs[] = {
      {{"validate", sample, good, purchase}, "", 0,
       {sample + ": ok\n" + good + ": ok\n" + purchase + ": ok\n"}, ""},
      // Findings on their lines: the date on line 5, the colour on line 6.
      {{"validate", bad}, "", 1,
       {bad + ":5:", "\n" + bad + ":6:", " error: unexpected cbc:Colour: Invoice has no such child"}, ""},
      {{"validate", broken}, "", 1, {broken + ":1:"}, "\n" + broken},
      {{"validate", good, bad}, "", 1, {good + ": ok\n"}, ""},
      // Later files still run after one that cannot be read.
      {{"validate", bad, path("missing.xml"), good}, "", 2, {good + ": ok"}, ""},
      {{"validate", good, "--schema", schemas + "Order-2.0.xsd"}, "", 1, {"Invoice"}, ""},
      {{"validate", "--schema=" + schemas + "Invoice-2.0.xsd", good}, "", 0, {good + ": ok\n"}, ""},
      // Rules run after a clean schema check only.
      {{"validate", good, "--rules", xsl}, "", 1, {good + ":" + finding}, ""},
      {{"validate", bad, "--rules", xsl}, "", 1, {bad + ":5:"}, "BR-9"},
      {{"validate", quiet, "--rules", xsl}, "", 0, {quiet + ": ok\n"}, ""},
      {{"validate", "-"}, valid_invoice, 0, {"<stdin>: ok\n"}, ""},
      {{"validate", "-"}, invalid_invoice, 1, {"<stdin>:5:"}, ""},
      {{"validate", "-", "--rules", xsl}, valid_invoice, 1, {"<stdin>:" + finding}, ""},
      {{"convert", "-"}, valid_invoice, 0, {"<cbc:ID>T-1</cbc:ID>"}, ""},
      // Not XML, or not UBL: a finding of that file; the others are still checked.
      {{"validate", text, foreign, aggregate, good}, "", 1,
       {text + ": error: not an XML document", "\n" + foreign + ": error: root element 'Foo' is not one",
        "\n" + aggregate + ": error: root element 'Address'", "\n" + good + ": ok\n"}, ""},
      {{"validate", path("folder"), good}, "", 0, {in_a + ": ok\n" + in_b + ": ok\n" + good + ": ok\n"}, "readme"},
      // --no-schema: the rules alone, on a document the schema refuses.
      {{"validate", "--no-schema", bad, "--rules", xsl}, "", 1, {bad + ": error: BR-9: test invoice T-2"}, ":5:"},
      {{"validate", "--no-schema", "--rules", xsl, text}, "", 1, {text + ": error: not an XML document"}, ""},
      {{"/bin/bash", "-c", std::string(TIVALO_TOOL) + " " + piped}, "", 0, {"/dev/fd/"}, ""},
      {{"/bin/bash", "-c", std::string(TIVALO_TOOL) + " " + piped + " --rules " + xsl}, "", 1, {finding}, ""},
      {{"/bin/bash", "-c", named_pipe}, "", 1, {fifo + ":" + finding}, ""}};
  for (const auto& run : runs) {
    const ToolRun result = run.arguments[0][0] == '/'
                               ? run_tool(run.arguments[0], {run.arguments.begin() + 1, run.arguments.end()})
                               : tivalo(run.arguments, run.input);
    SCOPED_TRACE(run.arguments.back() + "\n" + result.out + result.err);
    EXPECT_EQ(run.status, result.status);
    for (const std::string& fragment : run.out_has) EXPECT_NE(std::string::npos, result.out.find(fragment)) << fragment;
    if (!run.out_lacks.empty()) EXPECT_EQ(std::string::npos, result.out.find(run.out_lacks));
    if (run.status == 0) EXPECT_EQ("", result.err);
  }
  expect_failure_line(tivalo({"validate", good, "--schema", path("none.xsd")}),
                      "Schema file \"" + path("none.xsd") + "\" not found.");
  expect_failure_line(tivalo({"validate", good, "--rules", path("none.xsl")}),
                      path("none.xsl") + ": cannot open the stylesheet: No such file or directory");
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
  EXPECT_EQ(2, unwritable.status);
  EXPECT_EQ("tivalo: " + nowhere + ": cannot write: No such file or directory\n", unwritable.err);
  expect_failure_line(tivalo({"convert", path("valid.xml"), "-o", directory_.string()}), "is a directory");

  // A failed conversion leaves the target as it was, and no temporary file beside it.
  const std::string kept = file("kept.xml", "old content");
  EXPECT_EQ(1, tivalo({"convert", path("broken.xml"), "-o", kept}).status);
  EXPECT_EQ("old content", read(kept));
  EXPECT_EQ(0, tivalo({"convert", path("valid.xml"), "-o", kept}).status);
  EXPECT_NE(std::string::npos, read(kept).find("T-1"));
  size_t files = 0;
  for (const auto& entry : fs::directory_iterator(directory_)) files += entry.is_regular_file();
  EXPECT_EQ(3u, files) << "valid.xml, broken.xml, kept.xml";

  // A symbolic link is written through and stays a link.
  const std::string link = path("link.xml");
  fs::create_symlink("kept.xml", link);
  EXPECT_EQ(0, tivalo({"convert", file("other.xml", invoice("T-9", "2024-01-31")), "-o", link}).status);
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_NE(std::string::npos, read(path("kept.xml")).find("T-9"));

  // A file the caller may not write is refused with the system's reason, though the directory
  // would let a temporary file take its place. Run as nobody when the tests run as root, whom
  // file modes do not stop.
  const std::string read_only = file("read-only.xml", "old content");
  fs::permissions(read_only, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
  fs::permissions(directory_, fs::perms::all);
  std::vector<std::string> arguments = {"convert", path("valid.xml"), "-o", read_only};
  std::string program = TIVALO_TOOL;
  if (::geteuid() == 0) {
    arguments.insert(arguments.begin(), {"--reuid=65534", "--regid=65534", "--clear-groups", program});
    program = "/usr/bin/setpriv";
  }
  const ToolRun refused = run_tool(program, arguments);
  EXPECT_EQ("tivalo: " + read_only + ": cannot write: Permission denied\n", refused.err);
  EXPECT_EQ("old content", read(read_only));
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
  EXPECT_NE(std::string::npos, members.out.find(
      "   148  method    187  GetValueValidationErrorsFromXML([in] BSTR xmldata, [in] BSTR xsldata, "
      "[out, retval] BSTR* errors)\n")) << members.out;

  ToolRun line = tivalo({"members", "iinvoiceline"});
  EXPECT_EQ(0, line.status);
  EXPECT_NE(std::string::npos, line.out.find(" item([out, retval] IItem** item)")) << line.out;

  ToolRun idl = tivalo({"idl"});
  EXPECT_EQ(0, idl.status);
  EXPECT_NE(std::string::npos, idl.out.find("library TivaloCOMLib"));

  // The UBL 2.1 library's catalogue: its own classes, identities and member rules.
  ToolRun classes21 = tivalo({"classes", "--ubl", "2.1"});
  EXPECT_EQ(0, classes21.status) << classes21.err;
  EXPECT_EQ(304u, count_lines(classes21.out));
  EXPECT_NE(std::string::npos, classes21.out.find("136  Invoice ")) << classes21.out;
  ToolRun members21 = tivalo({"members", "--ubl", "2.1", "InvoiceLine"});
  EXPECT_EQ(0, members21.status) << members21.err;
  EXPECT_NE(std::string::npos, members21.out.find(", TivaloCOM21.InvoiceLine\n")) << members21.out;
  EXPECT_NE(std::string::npos, members21.out.find(" Item([out, retval] IItem** item)")) << members21.out;
  ToolRun idl21 = tivalo({"idl", "--ubl", "2.1"});
  EXPECT_NE(std::string::npos, idl21.out.find("library TivaloCOM21"));
  EXPECT_NE(std::string::npos, idl21.out.find("uuid(3691431d-66ad-4637-a22b-6995746519df)"));
  EXPECT_EQ(2, tivalo({"classes", "--ubl", "2.2"}).status);
}

TEST_F(TivaloTool, SchemasAndDocumentsUnderAnyNameCheckTheSame) {
  fs::copy(TIVALO_SCHEMA_DIR, directory_ / "\xC3\xA9", fs::copy_options::recursive);
  const std::string schema = path("\xC3\xA9/maindoc/UBL-Invoice-2.0.xsd");
  // A UTF-8 name and one that is not UTF-8 (Latin-1), as an older file system may hold.
  for (const std::string name : {std::string("d\xC3\xA9j\xC3\xA0 vu.xml"), std::string("d\xE9j\xE0.xml")}) {
    const std::string document = file(name, valid_invoice);
    ToolRun run = tivalo({"validate", "--schema", schema, document});
    EXPECT_EQ(0, run.status) << run.out << run.err;
    // A name that is not UTF-8 is printed with its stray bytes escaped, as text from a file is.
    EXPECT_EQ(name[1] == '\xE9' ? path("d\\xe9j\\xe0.xml") + ": ok\n" : document + ": ok\n", run.out);
    // JSON is UTF-8: a stray byte comes as U+DC80 + byte, which Python's os.fsencode turns back.
    ToolRun json = tivalo({"validate", "--schema", schema, document, "--format", "json"});
    ToolRun named = run_tool("/usr/bin/python3", {"-c", "import json, os, sys\n"
                             "sys.stdout.buffer.write(os.fsencode(json.loads(sys.stdin.buffer.read())[0]['file']))"},
                             json.out);
    EXPECT_EQ(document, named.out) << json.out << named.err;
  }
  const std::string invalid = file("invalid.xml", invalid_invoice);
  ToolRun run = tivalo({"validate", "--schema", schema, invalid});
  ToolRun ascii = tivalo({"validate", "--schema",
                          std::string(TIVALO_SCHEMA_DIR) + "/maindoc/UBL-Invoice-2.0.xsd", invalid});
  EXPECT_EQ(1, run.status) << run.out << run.err;
  EXPECT_EQ(ascii.out, run.out);
}

// Usage errors and documents the tool cannot take: status 2 and one line naming the fault.
TEST_F(TivaloTool, FailuresAreOneLine) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{}, "no command"},
      {{"frobnicate"}, "unknown command 'frobnicate'"},
      {{"valdate", "x.xml"}, "did you mean 'validate'?"},
      {{"validate"}, "missing operand"},
      {{"validate", "a.xml", "--strict"}, "unknown option '--strict'"},
      {{"validate", "x.xml", "--rule", "r.xsl"}, "did you mean '--rules'?"},
      {{"validate", "a.xml", "--schema"}, "needs a value"},
      {{"convert", "a.xml", "b.xml"}, "unexpected operand 'b.xml'"},
      {{"validate", "-", "-"}, "only once"},
      {{"classes", "extra"}, "unexpected operand"},
      {{"members", "Nothing"}, "no class 'Nothing'"},
      {{"validate", path("missing.xml")}, "missing.xml: cannot open"},
      {{"convert", path("missing.xml")}, "cannot open"},
      {{"convert", file("notes.txt", "just words\n")}, "not an XML document"},
      {{"convert", directory_.string()}, directory_.string() + ": is a directory"},
      {{"validate", "x.xml", "--no-schema"}, "'--no-schema' needs '--rules'"},
      {{"validate", "x.xml", "--no-schema", "--schema", "a.xsd", "--rules", "r.xsl"}, "exclude each other"}};
  for (const auto& [arguments, fragment] : cases) {
    SCOPED_TRACE(fragment);
    expect_failure_line(tivalo(arguments), fragment);
  }
  // -q prints nothing, not even the tool's own failures; a report that cannot be written whole is
  // the tool's failure.
  const ToolRun quiet = tivalo({"validate", "-q", path("missing.xml"), path("notes.txt")});
  EXPECT_EQ(2, quiet.status);
  EXPECT_EQ("", quiet.out + quiet.err);
  for (const char* format : {"text", "json"}) {
    const ToolRun full = run_tool("/bin/bash", {"-c", std::string(TIVALO_TOOL) + " validate --format " + format +
                                                          " " + path("notes.txt") + " >/dev/full"});
    expect_failure_line(full, "cannot write the report: No space left on device");
  }
}

TEST_F(TivaloTool, HelpForTheToolAndEachCommand) {
  ToolRun help = tivalo({"--help"});
  EXPECT_EQ(0, help.status);
  for (const char* command : {"validate", "convert", "show", "classes", "members", "idl"}) {
    EXPECT_NE(std::string::npos, help.out.find(std::string("  ") + command)) << command;
    for (const ToolRun& one : {tivalo({command, "--help"}), tivalo({"help", command})}) {
      EXPECT_EQ(0, one.status) << command;
      EXPECT_EQ(0u, one.out.find(std::string("usage: tivalo ") + command)) << one.out;
    }
  }
  EXPECT_EQ("tivalo 1.2.2\n", tivalo({"--version"}).out);
  EXPECT_NE(std::string::npos, help.out.find("--version")) << help.out;
}

// A compiled Schematron rule set: the stylesheet writes an SVRL report.
const std::string svrl_rules =
    "<xsl:stylesheet version=\"1.0\" xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\"\n"
    "    xmlns:svrl=\"http://purl.oclc.org/dsdl/svrl\"\n"
    "    xmlns:cbc=\"urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2\">\n"
    "  <xsl:template match=\"/\">\n"
    "    <svrl:schematron-output>\n"
    "      <svrl:ns-prefix-in-attribute-values prefix=\"cbc\"\n"
    "          uri=\"urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2\"/>\n"
    "      <xsl:if test=\"not(starts-with(/*/cbc:ID, 'INV'))\">\n"
    "        <svrl:failed-assert id=\"BR-01\" flag=\"fatal\" test=\"starts-with(cbc:ID, 'INV')\"\n"
    "            location=\"/*[local-name()='Invoice']/cbc:ID[1]\">\n"
    "          <svrl:text>An invoice number starts with INV, not <xsl:value-of select=\"/*/cbc:ID\"/>.</svrl:text>\n"
    "        </svrl:failed-assert>\n"
    "      </xsl:if>\n"
    "    </svrl:schematron-output>\n"
    "  </xsl:template>\n"
    "</xsl:stylesheet>\n";

std::string messages_rules(const std::string& body) {
  return "<xsl:stylesheet version=\"1.0\" xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\"\n"
         "    xmlns:cbc=\"urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2\">\n"
         "  <xsl:template match=\"/\">" + body + "</xsl:template>\n</xsl:stylesheet>\n";
}

TEST_F(TivaloTool, RuleSetsFailClosed) {
  const std::string invoice_file = file("valid.xml", valid_invoice);
  ToolRun asserted = tivalo({"validate", invoice_file, "--rules", file("svrl.xsl", svrl_rules)});
  EXPECT_EQ(1, asserted.status) << asserted.err;
  EXPECT_EQ(invoice_file + ":4: error: [BR-01] An invoice number starts with INV, not T-1. "
            "(at /*[local-name()='Invoice']/cbc:ID[1])\n", asserted.out);

  // A stylesheet that cannot run is the tool's failure, said once for all files, with no
  // processor output of its own on standard error.
  const std::string unknown = file("unknown.xsl", messages_rules("<xsl:if test=\"matches(cbc:ID, 'x')\"/>"));
  ToolRun failed = tivalo({"validate", invoice_file, file("other.xml", valid_invoice), "--rules", unknown});
  expect_failure_line(failed, unknown + ": the stylesheet failed while running: ");
  EXPECT_NE(std::string::npos, failed.err.find("matches")) << failed.err;
  EXPECT_EQ("", failed.out);

  ToolRun not_xslt = tivalo({"validate", invoice_file, "--rules", invoice_file});
  expect_failure_line(not_xslt, invoice_file + ": cannot load the stylesheet: ");

  // Each message is a finding; a processor's remark about the stylesheet is not.
  ToolRun two = tivalo({"validate", invoice_file, "--rules",
                        file("two.xsl", messages_rules("<xsl:message>first</xsl:message>"
                                                       "<xsl:message>second\nline</xsl:message>"))});
  EXPECT_EQ(1, two.status);
  EXPECT_EQ(invoice_file + ": error: first\n" + invoice_file + ": error: second; line\n", two.out);
  EXPECT_EQ("", two.err);
  std::string newer = messages_rules("");
  newer.replace(newer.find("version=\"1.0\""), 13, "version=\"1.5\"");  // libxslt remarks on it
  ToolRun remark = tivalo({"validate", invoice_file, "--rules", file("newer.xsl", newer)});
  EXPECT_EQ(0, remark.status) << remark.err;
  EXPECT_EQ(invoice_file + ": ok\n", remark.out);
  EXPECT_NE(std::string::npos, remark.err.find("warning: ")) << remark.err;
}

std::string in_version(std::string stylesheet, const std::string& version) {
  return stylesheet.replace(stylesheet.find("version=\"1.0\""), 13, "version=\"" + version + "\"");
}

// XSLT 2.0 rule sets run on Saxon-HE, one Java process for the run, and give what XSLT 1.0 ones
// give through libxslt; a stylesheet that stops with xsl:message terminate="yes" has findings,
// it did not fail.
TEST_F(TivaloTool, RuleSetsInEitherXsltVersion) {
  const std::string one = file("valid.xml", valid_invoice), two = file("two.xml", valid_invoice);
  const std::string assertion = ":4: error: [BR-01] An invoice number starts with INV, not T-1. "
                                "(at /*[local-name()='Invoice']/cbc:ID[1])\n";
  for (const std::string version : {"1.0", "2.0"}) {
    SCOPED_TRACE(version);
    ToolRun asserted = tivalo({"validate", one, two, "-j", "2", "--rules",
                               file("svrl" + version + ".xsl", in_version(svrl_rules, version))});
    EXPECT_EQ(1, asserted.status) << asserted.err;
    EXPECT_EQ(one + assertion + two + assertion, asserted.out);
    EXPECT_EQ("", asserted.err);

    const std::string stops = file("stops" + version + ".xsl", in_version(messages_rules(
        "<xsl:message>first</xsl:message><xsl:message terminate=\"yes\">stop <xsl:value-of "
        "select=\"/*/cbc:ID\"/></xsl:message><xsl:message>never</xsl:message>"), version));
    ToolRun stopped = tivalo({"validate", one, two, "--rules", stops});
    EXPECT_EQ(1, stopped.status) << stopped.err;
    EXPECT_EQ(one + ": error: first\n" + one + ": error: stop T-1\n" + two + ": error: first\n" + two +
              ": error: stop T-1\n", stopped.out);
    EXPECT_EQ("", stopped.err);
  }
  // XPath 2.0 that only Saxon runs: a rule test on a fragment that is no UBL document.
  const std::string fragment = file("fragment.xml", "<cbc:ID " + ubl_namespaces + ">X-7</cbc:ID>");
  ToolRun matched = tivalo({"validate", "--no-schema", fragment, "--rules", file("matches.xsl", in_version(
      messages_rules("<xsl:if test=\"matches(cbc:ID, '^X-\\d$')\">BR-7 <xsl:value-of select=\"upper-case('ok')\"/>"
                     "</xsl:if><xsl:message select=\"'BR-8', string(//cbc:ID)\"/>"), "2.0"))});
  EXPECT_EQ(1, matched.status) << matched.err;
  EXPECT_EQ(fragment + ": error: BR-8 X-7\n", matched.out);

  // A stylesheet Saxon cannot compile, one that fails while running: said once, naming it.
  const std::string unknown = file("unknown.xsl", in_version(messages_rules("<xsl:value-of select=\"nosuch(1)\"/>"), "2.0"));
  ToolRun not_compiled = tivalo({"validate", one, "--rules", unknown});
  expect_failure_line(not_compiled, unknown + ": cannot load the stylesheet: ");
  EXPECT_NE(std::string::npos, not_compiled.err.find("nosuch")) << not_compiled.err;
  const std::string raises = file("raises.xsl", in_version(messages_rules(
      "<xsl:value-of select=\"error(QName('urn:x', 'BOOM'), 'gave up')\"/>"), "3.0"));
  ToolRun failed = tivalo({"validate", one, two, "--rules", raises});
  expect_failure_line(failed, raises + ": the stylesheet failed while running: ");
  EXPECT_NE(std::string::npos, failed.err.find("gave up")) << failed.err;
  EXPECT_EQ("", failed.out);
  // Without Java, the message names what to install.
  expect_failure_line(run_tool("/usr/bin/env", {"PATH=" + directory_.string(), TIVALO_TOOL, "validate", one,
                                                "--rules", unknown}),
                      "install the Debian packages default-jre-headless and libsaxonhe-java");
}

TEST_F(TivaloTool, JsonListsTheSameFindings) {
  const std::string rules_file = file("svrl.xsl", svrl_rules);
  const std::string invoice_file = file("valid.xml", valid_invoice);
  const std::string invalid_file = file("invalid.xml", invalid_invoice);
  ToolRun json = tivalo({"validate", invoice_file, invalid_file, "--rules", rules_file, "--format", "json"});
  EXPECT_EQ(1, json.status) << json.err;
  // Parsed by Python's json module, the findings come back field by field.
  const std::string script =
      "import json, sys\n"
      "for f in json.load(sys.stdin):\n"
      "    for g in f['findings']:\n"
      "        print(f['valid'], g['source'], g['severity'], g.get('line'), g.get('column'),\n"
      "              g.get('rule'), g.get('location'), g['message'])\n";
  ToolRun parsed = run_tool("/usr/bin/python3", {"-c", script}, json.out);
  ASSERT_EQ(0, parsed.status) << parsed.err << json.out;
  const std::vector<std::string> lines = [&] {
    std::vector<std::string> all;
    std::istringstream in(parsed.out);
    for (std::string line; std::getline(in, line);) all.push_back(line);
    return all;
  }();
  ASSERT_LE(3u, lines.size()) << parsed.out;
  EXPECT_EQ("False rules error 4 None BR-01 /*[local-name()='Invoice']/cbc:ID[1] An invoice number starts with INV, not T-1.", lines[0]);
  EXPECT_EQ(0u, lines[1].find("False schema error 5 ")) << lines[1];

  ToolRun quiet = tivalo({"validate", "-q", invoice_file, "--rules", rules_file});
  EXPECT_EQ(1, quiet.status);
  EXPECT_EQ("", quiet.out + quiet.err);
}

TEST_F(TivaloTool, ManyFilesInParallelReportInArgumentOrder) {
  std::vector<std::string> arguments{"validate"};
  std::string expected;
  for (int i = 0; i < 12; ++i) {
    const bool bad = i % 3 == 1;
    const std::string name = file("f" + std::to_string(i) + ".xml", bad ? invalid_invoice : valid_invoice);
    arguments.push_back(name);
    if (!bad) expected += name + ": ok\n";
  }
  const std::string rules_file = file("rules.xsl", rules);
  arguments.insert(arguments.end(), {"--rules", rules_file});
  std::vector<std::string> serial = arguments, parallel = arguments;
  serial.insert(serial.end(), {"-j", "1"});
  parallel.insert(parallel.end(), {"-j", "4"});
  ToolRun one = tivalo(serial), four = tivalo(parallel);
  EXPECT_EQ(1, four.status);
  EXPECT_EQ(one.out, four.out);
  EXPECT_EQ(one.err, four.err);
  EXPECT_NE(std::string::npos, four.out.find(arguments[2] + ":5:17: error: ")) << four.out;

  // A schema that cannot be used is said once, however many files.
  const std::string broken_schema = file("broken.xsd", "<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\"><xs:nonsense/></xs:schema>");
  ToolRun schema_run = tivalo({"validate", arguments[1], arguments[3], arguments[4], "--schema", broken_schema});
  expect_failure_line(schema_run, broken_schema + ": cannot use the schema: ");
}

TEST_F(TivaloTool, DocumentsAsTheComponentReadsThem) {
  // UTF-16 with a byte-order mark: the tool finds the root element as the component does.
  std::string utf16 = "\xFF\xFE";
  std::string text = valid_invoice;
  text.replace(text.find("encoding=\"UTF-8\""), 16, "encoding=\"UTF-16\"");
  for (char c : text) utf16 += std::string{c == '\xC3' || c == '\xA8' ? 'e' : c, '\0'};
  ToolRun wide = tivalo({"validate", file("utf16.xml", utf16), "--rules", file("rules.xsl", rules)});
  EXPECT_EQ(1, wide.status) << wide.err;
  EXPECT_NE(std::string::npos, wide.out.find("BR-9: test invoice T-1")) << wide.out << wide.err;

}

// 2.0 when UBLVersionID says so, 2.1 when it says 2.1 or nothing; --ubl overrides.
TEST_F(TivaloTool, ReadsEachDocumentWithTheLibraryOfItsVersion) {
  const std::string due = "  <cbc:DueDate>2024-02-28</cbc:DueDate>\n";  // a 2.1 element
  const auto declaring = [](std::string text, const std::string& version) {
    return text.replace(text.find("  <cbc:ID>"), 0, "  <cbc:UBLVersionID>" + version + "</cbc:UBLVersionID>\n");
  };
  const std::string unversioned = file("plain21.xml", invoice("T-5", "2024-01-31", due));
  const std::string declared21 = file("declared21.xml", declaring(invoice("T-6", "2024-01-31", due), "2.1"));
  const std::string declared20 = file("declared20.xml", declaring(invoice("T-7", "2024-01-31", due), "2.0"));

  ToolRun both = tivalo({"validate", unversioned, declared21});
  EXPECT_EQ(0, both.status) << both.out << both.err;
  EXPECT_EQ(unversioned + ": ok\n" + declared21 + ": ok\n", both.out);
  ToolRun shown = tivalo({"show", unversioned});
  EXPECT_EQ(0, shown.status) << shown.err;
  EXPECT_NE(std::string::npos, shown.out.find("\n  DueDate: 2024-02-28")) << shown.out;
  ToolRun converted = tivalo({"convert", declared21});
  EXPECT_EQ(0, converted.status) << converted.err;
  EXPECT_NE(std::string::npos, converted.out.find(">2024-02-28</cbc:DueDate>")) << converted.out;

  // A document that says 2.0 is checked against 2.0, which has no DueDate.
  ToolRun as20 = tivalo({"validate", declared20});
  EXPECT_EQ(1, as20.status);
  EXPECT_NE(std::string::npos, as20.out.find("DueDate")) << as20.out;
  EXPECT_EQ(0, tivalo({"validate", "--ubl", "2.1", declared20}).status);
  ToolRun forced = tivalo({"validate", "--ubl", "2.0", declared21});
  EXPECT_EQ(1, forced.status);
  EXPECT_NE(std::string::npos, forced.out.find(declared21 + ": note: UBL 2.1 document, read as UBL 2.0\n"))
      << forced.out;
  ToolRun refused = tivalo({"convert", "--ubl", "2.0", declared21});
  EXPECT_EQ(1, refused.status);
  EXPECT_NE(std::string::npos, refused.err.find("(UBL 2.1 document, read as UBL 2.0)")) << refused.err;
  EXPECT_EQ(2, tivalo({"validate", "--ubl", "3", unversioned}).status);

  // A later version is read as 2.1, and a problem says so.
  ToolRun later = tivalo({"validate", file("declared23.xml", declaring(invoice("T-8", "31.01.2024"), "2.3"))});
  EXPECT_EQ(1, later.status);
  EXPECT_NE(std::string::npos, later.out.find(": note: UBL 2.3 document, read as UBL 2.1\n")) << later.out;

  // The release's code-list check ships with the 2.1 schemas.
  const std::string code_lists = TIVALO_SOURCE_DIR "/schemas/ubl-2.1/UBL-DefaultDTQ-2.1.xsl";
  EXPECT_EQ(0, tivalo({"validate", unversioned, "--rules", code_lists}).status);
  std::string odd_currency = invoice("T-9", "2024-01-31", due);
  odd_currency.replace(odd_currency.find("currencyID=\"EUR\""), 16, "currencyID=\"EUX\"");
  ToolRun coded = tivalo({"validate", file("currency.xml", odd_currency), "--rules", code_lists});
  EXPECT_EQ(1, coded.status) << coded.err;
  EXPECT_NE(std::string::npos, coded.out.find("EUX")) << coded.out;
}

TEST_F(TivaloTool, ControlCharactersFromADocumentAreEscaped) {
  // U+009B is a terminal's control sequence introducer; XML 1.0 allows it as a reference.
  const std::string sneaky = file("sneaky.xml", invoice("T-&#x9B;31m&#x202E;", "2024-01-31"));
  ToolRun reported = tivalo({"validate", sneaky, "--rules", file("rules.xsl", rules)});
  EXPECT_EQ(1, reported.status) << reported.err;
  EXPECT_NE(std::string::npos, reported.out.find("test invoice T-\\u009b31m\\u202e (Lumi")) << reported.out;
  ToolRun shown = tivalo({"show", sneaky});
  EXPECT_NE(std::string::npos, shown.out.find("ID: T-\\u009b31m\\u202e\n")) << shown.out;
}

}  // namespace
