// The hostile-document corpus: every NAME.xml of this directory with its NAME.expect, and the
// large documents generated below, run through the component as a script host drives it (Read,
// XML put, Write, XML get, the schema checks) and through the tivalo tool (convert, validate).
//
// NAME.expect holds one expectation per line ('#' starts a comment):
//   read: TEXT   Read, XML put and `tivalo convert` fail with TEXT in the message, and the
//                document keeps what it held
//   write: TEXT  the document reads, but Write, XML get and `tivalo convert` fail with TEXT
//   check: TEXT  the schema checks and `tivalo validate` report TEXT
//   tool: TEXT   `tivalo validate` reports TEXT instead (its schema findings have words of their own)
//   read21: TEXT the UBL 2.1 library's refusal (its reader's own words) holds TEXT
//   TEXT         read: and check: with the same TEXT
// Without read: or write:, the document reads and writes. Whatever happens, no output, message or
// value ever holds a byte of a local file, and the component prints nothing.
#include "../cli/run_tool.h"
#include "../document/document_testing.h"
#include "../module/script_host.h"
#include "cli/root_element.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <regex>
#include <thread>

namespace fs = std::filesystem;
using document_testing::TempDirectory;

namespace {

// The first line of /etc/passwd, which the corpus's entities and includes try to bring in.
const std::string local_file_content = "root:x:0:0:";

struct Expectation {
  std::optional<std::string> read, write, check, tool, read21;
};

struct Case {
  std::string name;
  std::function<std::string()> document;  // generated on demand: some are megabytes
  Expectation expect;
  // Whether the document is also given as text (XML put, the FromXML check): not in UTF-16 or
  // UTF-32, whose NUL bytes would end the string.
  bool as_text = true;
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

std::string file_content(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

Expectation parse_expectation(const std::string& text) {
  Expectation expect;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] == '#') continue;
    const auto value = [&](const std::string& key) -> std::optional<std::string> {
      if (line.rfind(key, 0) != 0) return std::nullopt;
      return line.substr(key.size());
    };
    if (auto read = value("read: ")) expect.read = read;
    else if (auto write = value("write: ")) expect.write = write;
    else if (auto check = value("check: ")) expect.check = check;
    else if (auto tool = value("tool: ")) expect.tool = tool;
    else if (auto read21 = value("read21: ")) expect.read21 = read21;
    else expect.read = expect.check = line;
  }
  return expect;
}

std::vector<Case> committed_cases() {
  std::vector<Case> cases;
  for (const auto& entry : fs::directory_iterator(TIVALO_SOURCE_DIR "/tests/hostile")) {
    if (entry.path().extension() != ".xml") continue;
    fs::path expect = entry.path();
    expect.replace_extension(".expect");
    const fs::path document = entry.path();
    cases.push_back({document.stem().string(), [document] { return file_content(document); },
                     parse_expectation(file_content(expect))});
  }
  std::sort(cases.begin(), cases.end(), [](const Case& a, const Case& b) { return a.name < b.name; });
  return cases;
}

// An Invoice that the schema accepts, with `inside` as the content of a UBL extension and
// `id_attributes` on its cbc:ID.
std::string invoice(const std::string& inside = "", const std::string& id_attributes = "",
                    const std::string& prolog = "", const std::string& id = "H-1") {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + prolog +
         "<Invoice xmlns=\"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2\""
         " xmlns:cbc=\"urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2\""
         " xmlns:cac=\"urn:oasis:names:specification:ubl:schema:xsd:CommonAggregateComponents-2\""
         " xmlns:ext=\"urn:oasis:names:specification:ubl:schema:xsd:CommonExtensionComponents-2\">\n"
         "<ext:UBLExtensions><ext:UBLExtension><ext:ExtensionContent>" + inside +
         "</ext:ExtensionContent></ext:UBLExtension></ext:UBLExtensions>\n"
         "<cbc:ID" + id_attributes + ">" + id + "</cbc:ID>\n"
         "<cbc:IssueDate>2024-01-31</cbc:IssueDate>\n"
         "<cac:AccountingSupplierParty/><cac:AccountingCustomerParty/>\n"
         "<cac:LegalMonetaryTotal><cbc:PayableAmount currencyID=\"EUR\">10.5</cbc:PayableAmount>"
         "</cac:LegalMonetaryTotal>\n"
         "<cac:InvoiceLine><cbc:ID>1</cbc:ID>"
         "<cbc:LineExtensionAmount currencyID=\"EUR\">10.5</cbc:LineExtensionAmount><cac:Item/>"
         "</cac:InvoiceLine>\n</Invoice>\n";
}

std::string attributes(std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += " a" + std::to_string(i) + "=\"\"";
  return text;
}

// Extension content nested `depth` elements deep; the root and the three extension elements
// around it make the document four deeper.
std::string nested(std::size_t depth) {
  std::string open, close;
  for (std::size_t i = 0; i < depth; ++i) open += "<x>", close += "</x>";
  return open + close;
}

// The same document in UTF-16, little-endian with a byte order mark.
std::string utf16le(std::string ascii) {
  ascii.replace(ascii.find("UTF-8"), 5, "UTF-16");
  std::string bytes = "\xFF\xFE";
  for (char c : ascii) bytes += c, bytes += '\0';
  return bytes;
}

// The same in UTF-32, with or without a byte order mark.
std::string utf32le(std::string ascii, bool mark) {
  ascii.replace(ascii.find("UTF-8"), 5, "UCS-4");
  std::string bytes = mark ? std::string("\xFF\xFE\0\0", 4) : std::string();
  for (char c : ascii) bytes += c, bytes += std::string(3, '\0');
  return bytes;
}

// The same in EBCDIC (code page 037); the generated documents are ASCII letters, digits and
// markup.
std::string ebcdic(std::string ascii) {
  ascii.replace(ascii.find("UTF-8"), 5, "IBM037");
  static const char printable[] =  // the EBCDIC bytes of ASCII 0x20 to 0x7E
      "\x40\x5A\x7F\x7B\x5B\x6C\x50\x7D\x4D\x5D\x5C\x4E\x6B\x60\x4B\x61\xF0\xF1\xF2\xF3"
      "\xF4\xF5\xF6\xF7\xF8\xF9\x7A\x5E\x4C\x7E\x6E\x6F\x7C\xC1\xC2\xC3\xC4\xC5\xC6\xC7"
      "\xC8\xC9\xD1\xD2\xD3\xD4\xD5\xD6\xD7\xD8\xD9\xE2\xE3\xE4\xE5\xE6\xE7\xE8\xE9\xBA"
      "\xE0\xBB\xB0\x6D\x79\x81\x82\x83\x84\x85\x86\x87\x88\x89\x91\x92\x93\x94\x95\x96"
      "\x97\x98\x99\xA2\xA3\xA4\xA5\xA6\xA7\xA8\xA9\xC0\x4F\xD0\xA1";
  for (char& c : ascii) c = c == '\n' ? '\x25' : printable[c - 0x20];
  return ascii;
}

// The same in UTF-7 after its declaration, with the markup characters in base64 ("+ADw-" is
// '<'), as an encoder may write them: no markup byte is left for a byte scan to count.
std::string utf7(std::string ascii) {
  ascii.replace(ascii.find("UTF-8"), 5, "UTF-7");
  const std::size_t body = ascii.find("?>") + 2;
  std::string bytes = ascii.substr(0, body);
  const std::string encoded = "<>=\"'";
  static const char base64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (char c : ascii.substr(body)) {
    if (encoded.find(c) == std::string::npos) {
      bytes += c;
      continue;
    }
    const unsigned bits = unsigned(static_cast<unsigned char>(c)) << 2;  // 16 bits, 2 of padding
    bytes += '+', bytes += base64[bits >> 12], bytes += base64[(bits >> 6) & 63];
    bytes += base64[bits & 63], bytes += '-';
  }
  return bytes;
}

std::vector<Case> generated_cases() {
  const std::string deep = "nests elements more than 1000 deep";
  const std::string crowded = "has more than 100 attributes";
  const std::string doctype = "document type declaration";
  const auto both = [](const std::string& text) { return Expectation{text, std::nullopt, text}; };
  // The quadratic blow-up: one large entity referred to many times.
  const auto blowup = [] {
    const std::string entity(30000, 'a');
    std::string references;
    for (int i = 0; i < 30000; ++i) references += "&a;";
    return invoice("", "", "<!DOCTYPE Invoice [<!ENTITY a \"" + entity + "\">]>\n", references);
  };
  // A document is read in pieces, the first 64 KiB long, each looked at as it arrives: markup
  // across the end of the first piece is counted once and whole.
  const auto id_across_first_piece = [](std::size_t count) {
    const std::size_t tag = invoice("<!---->", attributes(count)).find("<cbc:ID ");
    return invoice("<!--" + std::string(65536 - 200 - tag, ' ') + "-->", attributes(count));
  };
  const auto tag_in_comment_across_first_piece = [] {
    return invoice("<!--" + std::string(65536 - 1000, ' ') + "<x" + attributes(200) + ">-->");
  };
  // Constructs far longer than a piece (64 KiB) are looked at once, whole, wherever they end.
  const auto long_values = [](std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
      text += " a" + std::to_string(i) + "=\"" + std::string(4096, i % 2 ? '>' : '/') + "\"";
    return text;
  };
  const auto markup_in_long_constructs = [] {
    return invoice("<!--" + std::string(200000, ' ') + "<x" +
                   attributes(200) + "> -->"
                   "<?pi " + std::string(200000, '?') + "<x" + attributes(200) + "> ?>"
                   "<x><![CDATA[" + std::string(200000, ']') + "<x" + attributes(200) + ">]]></x>");
  };
  // Invalid UTF-8 far into a document, after its first pieces: refused where it stands.
  const auto bad_utf8_late = [] {
    return invoice("<!--" + std::string(300000, ' ') + "-->", "", "\n\n", "H-\xF0\x80\x80\xAF");
  };
  const Expectation bad_utf8 = {
      "6:11 error: the document is not well formed: invalid UTF-8 (F0 80 80 AF)", std::nullopt,
      "not well formed: invalid UTF-8 (F0 80 80 AF)"};
  return {
      {"generated-101-long-attributes", [=] { return invoice("", long_values(101)); }, both(crowded)},
      {"generated-100-long-attributes", [=] { return invoice("", long_values(100)); }, {}},
      {"generated-markup-in-long-constructs", markup_in_long_constructs, {}},
      {"generated-invalid-utf8-late", bad_utf8_late, bad_utf8},
      {"generated-utf32-without-mark", [] { return utf32le(invoice(), false); }, {}, false},
      {"generated-100k-attributes-utf32",
       [] { return utf32le(invoice("", attributes(100000)), true); }, both(crowded), false},
      {"generated-100k-nesting-utf32", [] { return utf32le(invoice(nested(100000)), true); },
       both(deep), false},
      {"generated-100-attributes-ebcdic", [] { return ebcdic(invoice("", attributes(100))); }, {}},
      {"generated-101-attributes-ebcdic", [] { return ebcdic(invoice("", attributes(101))); },
       both(crowded)},
      {"generated-1M-attributes-ebcdic", [] { return ebcdic(invoice("", attributes(1000000))); },
       both(crowded)},
      {"generated-100k-nesting-ebcdic", [] { return ebcdic(invoice(nested(100000))); }, both(deep)},
      // The flood is refused before the parser meets the fault ahead of it: it was looked at first.
      {"generated-101-attributes-after-a-fault-ebcdic",
       [] { return ebcdic(invoice("<a></b>", attributes(101))); }, both(crowded)},
      {"generated-101-attributes-after-a-fault-utf7",
       [] { return utf7(invoice("<a></b>", attributes(101))); }, both(crowded)},
      {"generated-100-attributes-utf7", [] { return utf7(invoice("", attributes(100))); }, {}},
      {"generated-101-attributes-utf7", [] { return utf7(invoice("", attributes(101))); },
       both(crowded)},
      {"generated-1M-attributes-utf7", [] { return utf7(invoice("", attributes(1000000))); },
       both(crowded)},
      {"generated-100k-nesting-utf7", [] { return utf7(invoice(nested(100000))); }, both(deep)},
      {"generated-100-attributes-across-pieces", [=] { return id_across_first_piece(100); }, {}},
      {"generated-101-attributes-across-pieces", [=] { return id_across_first_piece(101); },
       both(crowded)},
      {"generated-tag-in-comment-across-pieces", tag_in_comment_across_first_piece, {}},
      {"generated-quadratic-blowup", blowup, both(doctype)},
      {"generated-100k-attributes", [] { return invoice("", attributes(100000)); }, both(crowded)},
      {"generated-1M-attributes", [] { return invoice("", attributes(1000000)); }, both(crowded)},
      {"generated-100k-attributes-utf16",
       [] { return utf16le(invoice("", attributes(100000))); }, both(crowded), false},
      {"generated-100-attributes", [] { return invoice("", attributes(100)); }, {}},
      {"generated-101-attributes", [] { return invoice("", attributes(101)); }, both(crowded)},
      {"generated-100k-nesting", [] { return invoice(nested(100000)); }, both(deep)},
      {"generated-100k-nesting-utf16", [] { return utf16le(invoice(nested(100000))); }, both(deep),
       false},
      {"generated-1000-nesting", [] { return invoice(nested(996)); }, {}},
      {"generated-1001-nesting", [] { return invoice(nested(997)); }, both(deep)},
  };
}

std::vector<Case> all_cases() {
  std::vector<Case> cases = committed_cases();
  for (Case& generated : generated_cases()) cases.push_back(std::move(generated));
  return cases;
}

std::wstring wide(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

// Each byte as one character, as a string got from `XML` holds a document.
std::wstring bytes_as_text(const std::string& bytes) {
  std::wstring text;
  text.reserve(bytes.size());
  for (char c : bytes) text += static_cast<wchar_t>(static_cast<unsigned char>(c));
  return text;
}

std::string narrow(const std::wstring& text) {
  std::string bytes;
  for (wchar_t c : text) bytes += c < 256 ? static_cast<char>(c) : '?';
  return bytes;
}

class HostileDocuments : public TempDirectory, public ::testing::WithParamInterface<Case> {
 protected:
  void SetUp() override {
    TempDirectory::SetUp();
    document_ = GetParam().document();
    file_ = write_file("document.xml", document_);
    root_ = cli_root();
  }

  // The class of the document, named by its root element ("Invoice").
  std::string cli_root() const {
    std::istringstream in(document_);
    const std::string root = tivalo::cli::root_element_name(in);
    return root.empty() ? "Invoice" : root;  // UTF-16 documents: all generated ones are invoices
  }

  std::wstring schema() const {
    return wide(TIVALO_SCHEMA_DIR "/maindoc/UBL-" + root_ + "-2.0.xsd");
  }

  tivalo::ComPtr<IDispatch> document_object() const {
    return script::create(wide("TivaloCOM." + root_).c_str());
  }

  // A document that holds "KEEP" as its ID, so that a failed read can be seen to keep it.
  tivalo::ComPtr<IDispatch> kept_document() const {
    auto object = document_object();
    script::put(script::get_object(object.get(), L"ID").get(), L"Value", script::Var::text(L"KEEP"));
    return object;
  }

  static std::wstring id_of(IDispatch* object) {
    return script::get(script::get_object(object, L"ID").get(), L"Value").as_text();
  }

  static void expect_no_local_file(const std::string& text) {
    EXPECT_EQ(std::string::npos, text.find(local_file_content)) << text.substr(0, 2000);
  }

  // A failing call: its status, and its message holding `text`.
  static void expect_refused(const script::Call& call, const std::string& text) {
    EXPECT_EQ(DISP_E_EXCEPTION, call.hr);
    const std::string message =
        call.exception.bstrDescription ? narrow(call.exception.bstrDescription) : "";
    EXPECT_NE(std::string::npos, message.find(text)) << message;
    // Plain words: not the runtime's wording of what went wrong inside it.
    EXPECT_EQ(std::string::npos, message.find("buffer boundary")) << message;
    expect_no_local_file(message);
  }

  static void invoke(script::Call& call, IDispatch* object, const wchar_t* name, WORD flags,
                     std::vector<script::Var> arguments) {
    script::invoke(call, object, script::dispid_of(object, name), flags, std::move(arguments));
  }

  std::string document_;
  std::wstring file_;
  std::string root_;
};

// Whatever a document holds, the component prints nothing: the host's standard error is its own.
class StandardErrorCaught {
 public:
  explicit StandardErrorCaught(const std::wstring& file) {
    std::fflush(stderr);
    saved_ = ::dup(2);
    const int caught = ::open(narrow(file).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(caught, 2);
    ::close(caught);
  }
  ~StandardErrorCaught() { release(); }
  void release() {
    if (saved_ < 0) return;
    std::fflush(stderr);
    ::dup2(saved_, 2);
    ::close(saved_);
    saved_ = -1;
  }

 private:
  int saved_ = -1;
};

TEST_P(HostileDocuments, ThroughTheComponent) {
  const Expectation& expect = GetParam().expect;
  StandardErrorCaught printed(path("stderr.txt"));
  auto object = kept_document();

  script::Call read;
  const auto start = std::chrono::steady_clock::now();
  invoke(read, object.get(), L"Read", DISPATCH_METHOD, {script::Var::text(file_.c_str())});
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
  std::cout << "[ measured ] Read of " << GetParam().name << ": " << took.count() << " ms\n";

  script::Call put;
  put.hr = expect.read ? DISP_E_EXCEPTION : S_OK;
  if (GetParam().as_text)
    invoke(put, object.get(), L"XML", DISPATCH_PROPERTYPUT,
           {script::Var::text(bytes_as_text(document_).c_str())});
  if (expect.read) {
    expect_refused(read, *expect.read);
    if (GetParam().as_text) expect_refused(put, *expect.read);
    EXPECT_EQ(L"KEEP", id_of(object.get()));
  } else {
    EXPECT_EQ(S_OK, read.hr) << narrow(read.exception.bstrDescription ? read.exception.bstrDescription : L"");
    EXPECT_EQ(S_OK, put.hr);
    script::Call write, get;
    invoke(write, object.get(), L"Write", DISPATCH_METHOD,
           {script::Var::text(path("written.xml").c_str())});
    invoke(get, object.get(), L"XML", DISPATCH_PROPERTYGET, {});
    if (expect.write) {
      expect_refused(write, *expect.write);
      expect_refused(get, *expect.write);
    } else {
      EXPECT_EQ(S_OK, write.hr);
      EXPECT_EQ(S_OK, get.hr);
      expect_no_local_file(read_file("written.xml"));
      expect_no_local_file(narrow(get.result.as_text()));
    }
  }

  for (const auto& [name, arguments] :
       {std::pair{L"GetSchemaValidationErrors", std::vector{script::Var::text(file_.c_str())}},
        std::pair{L"GetSchemaValidationErrorsFromXML",
                  std::vector{script::Var::text(bytes_as_text(document_).c_str())}}}) {
    if (!GetParam().as_text && std::wstring(name).find(L"FromXML") != std::wstring::npos) continue;
    std::vector<script::Var> with_schema = arguments;
    with_schema.push_back(script::Var::text(schema().c_str()));
    const std::string findings = narrow(script::call(object.get(), name, with_schema).as_text());
    if (expect.check) EXPECT_NE(std::string::npos, findings.find(*expect.check)) << findings;
    expect_no_local_file(findings);
  }
  printed.release();
  EXPECT_EQ("", read_file("stderr.txt"));
}

// The corpus's texts are the UBL 2.0 library's; without a UBLVersionID the tool reads as 2.1.
TEST_P(HostileDocuments, ThroughTheTool) {
  const Expectation& expect = GetParam().expect;
  const std::string file = narrow(file_), output = narrow(path("converted.xml"));

  const ToolRun convert = run_tool(TIVALO_TOOL, {"convert", "--ubl", "2.0", file, "-o", output});
  expect_no_local_file(convert.out + convert.err);
  if (const auto& refusal = expect.read ? expect.read : expect.write) {
    EXPECT_NE(0, convert.status);
    EXPECT_NE(std::string::npos, convert.err.find(*refusal)) << convert.err;
    if (expect.read) EXPECT_FALSE(fs::exists(output));
  } else {
    EXPECT_EQ(0, convert.status) << convert.err;
    expect_no_local_file(read_file("converted.xml"));
  }

  const ToolRun validate = run_tool(TIVALO_TOOL, {"validate", "--ubl", "2.0", file});
  expect_no_local_file(validate.out + validate.err);
  if (const auto& said = expect.tool ? expect.tool : expect.check) {
    EXPECT_NE(0, validate.status);
    EXPECT_NE(std::string::npos, (validate.out + validate.err).find(*said))
        << validate.out << validate.err;
  }
}

// The UBL 2.1 library reads on the streaming engine alone and words its own refusals: it refuses
// what 2.0 refuses, reads every encoding 2.0 reads, leaks nothing, and its check finds what 2.0's
// finds. It wants an element in each extension, where the corpus's are often empty, and declares
// the attributes of its types.
TEST_P(HostileDocuments, ThroughTheUbl21Library) {
  const Expectation& expect = GetParam().expect;
  const std::string file = narrow(file_), output = narrow(path("converted21.xml"));

  const ToolRun convert = run_tool(TIVALO_TOOL, {"convert", file, "-o", output});
  expect_no_local_file(convert.out + convert.err);
  if (expect.read) {
    EXPECT_EQ(1, convert.status) << convert.err;
    EXPECT_EQ(0u, convert.err.find("tivalo: " + file + ":")) << convert.err;
    EXPECT_EQ(convert.err.size() - 1, convert.err.find('\n')) << convert.err;  // one line
    EXPECT_FALSE(fs::exists(output));
    if (expect.read21) {
      // The tool places the reader's "Line L, column C, " as "file:L:C error: ".
      std::string placed = *expect.read21;
      std::smatch parts;
      if (std::regex_match(placed, parts, std::regex(R"(Line (\d+), column (\d+), (.*))")))
        placed = ":" + parts[1].str() + ":" + parts[2].str() + " error: " + parts[3].str();
      EXPECT_NE(std::string::npos, convert.err.find(placed)) << convert.err;
    }
  } else if (!expect.write) {
    EXPECT_EQ(0, convert.status) << convert.err;
    expect_no_local_file(read_file("converted21.xml"));
  }

  const ToolRun validate = run_tool(TIVALO_TOOL, {"validate", file});
  expect_no_local_file(validate.out + validate.err);
  if (expect.tool || expect.check) {
    EXPECT_EQ(1, validate.status) << validate.out << validate.err;
    return;
  }
  std::istringstream said(validate.out);
  for (std::string line; std::getline(said, line);) {
    const bool about_extension = line.find("ext:ExtensionContent") != std::string::npos ||
                                 line.find("content model '()'") != std::string::npos;
    // 2.0's identifiers take attributes of any name; 2.1's only their own.
    const bool foreign_attribute = line.find("' is not declared for element 'ID'") != std::string::npos ||
                                   line.find(" error: cbc:ID: attribute a") != std::string::npos;
    EXPECT_TRUE(line == file + ": ok" || about_extension || foreign_attribute) << line;
  }
}

INSTANTIATE_TEST_SUITE_P(Corpus, HostileDocuments, ::testing::ValuesIn(all_cases()),
                         [](const ::testing::TestParamInfo<Case>& info) {
                           std::string name = info.param.name;
                           for (char& c : name)
                             if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                           return name;
                         });

// A listening socket on the loopback interface, told whether anything connected to it. A
// connection is closed at once, so a parser that does reach out fails fast instead of waiting for
// an answer that never comes.
class LoopbackListener {
 public:
  LoopbackListener() {
    socket_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ::bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::listen(socket_, 16);
    ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    answering_ = std::thread([this] {
      while (!stop_) {
        pollfd waiting{socket_, POLLIN, 0};
        if (::poll(&waiting, 1, 20) <= 0) continue;
        const int peer = ::accept(socket_, nullptr, nullptr);
        if (peer < 0) continue;
        connected_ = true;
        ::close(peer);
      }
    });
  }
  ~LoopbackListener() {
    stop_ = true;
    answering_.join();
    ::close(socket_);
  }

  std::string url(const std::string& file) const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/" + file;
  }
  bool connected() const { return connected_; }

 private:
  int socket_ = -1;
  int port_ = 0;
  std::atomic<bool> stop_{false}, connected_{false};
  std::thread answering_;
};

class NetworkBlock : public TempDirectory {};

// The caller's schema may include and import local files, but no location, however it is
// spaced, reaches the network; neither do the document's schema hints.
TEST_F(NetworkBlock, SchemaLocationsNeverReachTheNetwork) {
  const LoopbackListener listener;
  const std::string xsd = "http://www.w3.org/2001/XMLSchema";
  write_file("local.xsd", "<xsd:schema xmlns:xsd=\"" + xsd + "\" targetNamespace="
             "\"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2\">"
             "<xsd:element name=\"Invoice\"/></xsd:schema>");
  std::string imports = "<xsd:include schemaLocation=\" local.xsd\"/>"
                        "<xsd:include schemaLocation=\" " + listener.url("include.xsd") + "\"/>";
  int n = 0;
  for (const std::string& space : {" ", "&#9;", "&#10;", "&#13;", ""})
    imports += "<xsd:import namespace=\"urn:x" + std::to_string(++n) + "\" schemaLocation=\"" +
               space + listener.url("import.xsd") + "\"/>";
  imports += "<xsd:import namespace=\"urn:y\" schemaLocation=\"//127.0.0.1:1/x.xsd\"/>";
  const std::wstring schema = write_file(
      "schema.xsd", "<xsd:schema xmlns:xsd=\"" + xsd + "\" targetNamespace="
                    "\"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2\">" + imports +
                    "</xsd:schema>");
  const std::string hinted =
      "<Invoice xmlns=\"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2\""
      " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xsi:schemaLocation=\""
      "urn:oasis:names:specification:ubl:schema:xsd:Invoice-2 &#9;" + listener.url("hint.xsd") +
      "\" xsi:noNamespaceSchemaLocation=\" " + listener.url("hint.xsd") + "\"/>";

  auto invoice = script::create(L"TivaloCOM.Invoice");
  const std::string findings = narrow(
      script::call(invoice.get(), L"GetSchemaValidationErrors",
                   {script::Var::text(write_file("hinted.xml", hinted).c_str()),
                    script::Var::text(schema.c_str())}).as_text());
  EXPECT_EQ(std::string::npos, findings.find("no declaration found for element 'Invoice'"))
      << findings;
  EXPECT_FALSE(listener.connected());

  // The tool's own schema check (libxml2) loads the same schema.
  const ToolRun tool = run_tool(TIVALO_TOOL, {"validate", "--schema", narrow(schema),
                                              narrow(write_file("hinted.xml", hinted))});
  EXPECT_EQ(std::string::npos, (tool.out + tool.err).find("no declaration found")) << tool.out << tool.err;
  EXPECT_FALSE(listener.connected());
}

}  // namespace
