// What `tivalo validate` says about a schema-invalid document: one finding per problem, at the line
// of the element it is about, naming what is wrong in the document's own prefixes; the same in
// text and JSON; nothing from the XML library on standard error.
#include "run_tool.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <functional>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace {

std::string sample() {
  std::ifstream in(TIVALO_SOURCE_DIR "/samples/invoice.xml", std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const size_t at = text.find(from);
  EXPECT_NE(std::string::npos, at) << from;
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

struct Fault {
  const char* name;
  std::function<std::string(std::string)> edit;  // of the sample
  long line;
  std::string message;
};

std::string json_text(const std::string& text) {
  std::string out;
  for (char c : text) out += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
  return out;
}

long count(const std::string& text, const std::string& part) {
  long n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

class ToolSchemaFindings : public testing::Test {
 protected:
  void SetUp() override {
    directory_ = fs::temp_directory_path() / ("tivalo-findings-" + std::to_string(::getpid()));
    fs::create_directories(directory_);
  }
  void TearDown() override { fs::remove_all(directory_); }

  std::string file(const std::string& name, const std::string& content) {
    const fs::path path = directory_ / name;
    std::ofstream(path, std::ios::binary) << content;
    return path.string();
  }

  fs::path directory_;
};

TEST_F(ToolSchemaFindings, NameWhatIsWrongAtItsLine) {
  const std::string id = "  <cbc:ID>INV-2024-0042</cbc:ID>\n";
  const std::string copy = "  <cbc:CopyIndicator>false</cbc:CopyIndicator>\n";
  const std::string date = "  <cbc:IssueDate>2024-03-15</cbc:IssueDate>\n";
  const std::string version = "  <cbc:UBLVersionID>2.0</cbc:UBLVersionID>\n";
  const auto change = [](std::string from, std::string to) {
    return [=](const std::string& text) { return replaced(text, from, to); };
  };
  const std::vector<Fault> faults = {
      {"missing", change(id, ""), 7, "missing cbc:ID before cbc:CopyIndicator"},
      {"several missing", change(id + copy + date, ""), 7,
       "missing cbc:ID and cbc:IssueDate before cbc:InvoiceTypeCode"},
      {"misplaced", change(id + copy + date, copy + date + id), 7, "missing cbc:ID before cbc:CopyIndicator"},
      {"out of order", [&](const std::string& text) { return replaced(replaced(text, version, ""), date, version + date); },
       8, "misplaced cbc:UBLVersionID: it belongs before cbc:CustomizationID"},
      {"repeated", change(id, id + id), 8, "unexpected cbc:ID: Invoice takes at most 1"},
      {"unknown, with content", change(copy, copy + "  <cbc:Colour><cbc:Shade>red</cbc:Shade></cbc:Colour>\n"), 9,
       "unexpected cbc:Colour: Invoice has no such child"},
      {"missing before the next", [](const std::string& text) {
         const size_t from = text.find("  <cac:LegalMonetaryTotal>");
         return std::string(text).erase(from, text.find("  <cac:InvoiceLine>") - from);
       }, 75, "missing cac:LegalMonetaryTotal before cac:InvoiceLine"},
      {"missing at the end", [](const std::string& text) {
         const size_t from = text.find("  <cac:InvoiceLine>");
         return std::string(text).erase(from, text.find("</Invoice>") - from);
       }, 81, "missing cac:InvoiceLine at the end of Invoice"},
      {"empty parent", change("<cac:OrderReference>\n    <cbc:ID>PO-7781</cbc:ID>\n  </cac:OrderReference>",
                              "<cac:OrderReference/>"),
       13, "missing cbc:ID in cac:OrderReference"},
      {"bad date", change("<cbc:IssueDate>2024-03-15", "<cbc:IssueDate>2024-13-45"), 9,
       "cbc:IssueDate: '2024-13-45' is not a valid DateType"},
      {"value on two lines", change("<cbc:IssueDate>2024-03-15", "<cbc:IssueDate>2024-\n03-15"), 9,
       "cbc:IssueDate: '2024-\\n03-15' is not a valid DateType"},
      {"bad amount", change(">60.10</cbc:TaxAmount>", ">12,50</cbc:TaxAmount>"), 61,
       "cbc:TaxAmount: '12,50' is not a valid AmountType"},
      {"bad indicator", change("<cbc:CopyIndicator>false", "<cbc:CopyIndicator>maybe"), 8,
       "cbc:CopyIndicator: 'maybe' is not a valid IndicatorType"},
      {"missing attribute", change(" currencyID=\"EUR\">60.10", ">60.10"), 61,
       "cbc:TaxAmount: attribute currencyID is missing"},
      {"the document's own prefixes", [&](std::string text) {
         text = replaced(text, id, "");
         for (size_t at; (at = text.find("cbc:")) != std::string::npos;) text.replace(at, 4, "basic:");
         return replaced(text, "xmlns:cbc=", "xmlns:basic=");
       }, 7, "missing basic:ID before basic:CopyIndicator"},
  };
  const std::string invoice = sample();
  for (const Fault& fault : faults) {
    SCOPED_TRACE(fault.name);
    const std::string path = file("invoice.xml", fault.edit(invoice));

    const ToolRun text = run_tool(TIVALO_TOOL, {"validate", path});
    EXPECT_EQ(1, text.status);
    EXPECT_EQ("", text.err);
    EXPECT_EQ(path + ":" + std::to_string(fault.line) + ":", text.out.substr(0, text.out.find(':', path.size() + 1) + 1));
    EXPECT_NE(std::string::npos, text.out.find(": error: " + fault.message + "\n")) << text.out;
    EXPECT_EQ(1, count(text.out, "\n")) << "one finding, said once: " << text.out;

    const ToolRun json = run_tool(TIVALO_TOOL, {"validate", "--format", "json", path});
    EXPECT_EQ(1, json.status);
    EXPECT_NE(std::string::npos, json.out.find("\"line\": " + std::to_string(fault.line) + ",")) << json.out;
    EXPECT_NE(std::string::npos, json.out.find("\"message\": \"" + json_text(fault.message) + "\"")) << json.out;
  }
}

// Documents the tool's check does not read are left to the component, whose words stay: a
// document type declaration, a document that is not well formed, a year the component cannot
// hold (schema-valid), and a schema that does not load.
TEST_F(ToolSchemaFindings, LeaveTheRestToTheComponent) {
  const std::string invoice = sample();
  const ToolRun dtd = run_tool(TIVALO_TOOL, {"validate", file("dtd.xml", replaced(invoice, "<Invoice ", "<!DOCTYPE Invoice [<!ENTITY e \"x\">]>\n<Invoice "))});
  EXPECT_EQ(1, dtd.status);
  EXPECT_NE(std::string::npos, (dtd.out + dtd.err).find("documents with DTDs are not read")) << dtd.out << dtd.err;

  const ToolRun year = run_tool(TIVALO_TOOL, {"validate", file("year.xml", replaced(invoice, "<cbc:IssueDate>2024-03-15", "<cbc:IssueDate>12345-03-15"))});
  EXPECT_EQ(1, year.status);
  EXPECT_NE(std::string::npos, year.out.find("invalid value '12345-03-15' for cbc:IssueDate at line 9")) << year.out;
  // The 2.1 library's check reads the values as its Read does, and words them as its reader does.
  const ToolRun year21 = run_tool(TIVALO_TOOL, {"validate", "--ubl", "2.1", file("year.xml", replaced(invoice, "<cbc:IssueDate>2024-03-15", "<cbc:IssueDate>12345-03-15"))});
  EXPECT_EQ(1, year21.status);
  EXPECT_NE(std::string::npos, year21.out.find("year.xml:9:18: error: cbc:IssueDate: the value '12345-03-15' is not a date")) << year21.out;

  const ToolRun valid = run_tool(TIVALO_TOOL, {"validate", file("valid.xml", invoice)});
  EXPECT_EQ(0, valid.status) << valid.out << valid.err;
  EXPECT_EQ("", valid.err);
}

}  // namespace
