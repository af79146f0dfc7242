// The streaming reader held to the binding's reader. Every document of the corpus (the samples,
// the hostile corpus, the fuzz seeds, and generated documents that reach every class and member
// of all 31 document classes, with their faulty variants) is read with Read three times:
// - binding only (Xerces-C's DOM, the binding's tree, the load step): the reference;
// - the streaming reader alone, as for a class with no binding: it must load exactly when the
//   binding does and leave the same objects, compared through their `XML` get; a refusal names
//   its line, column and element in the reader's own words. It refuses one thing the binding
//   reads: XML 1.1;
// - as the component reads: the same result as the reference, error texts included (a document
//   the streaming reader refuses is read again by the binding, which names the fault).
// A failed read leaves the object as it was.
#include "corpus.h"

#include "cli/root_element.h"
#include "document/stream_reader.h"
#include "document/streams.h"
#include "platform/automation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Morvek::Tivalo::Documents::ReadPath;
using Morvek::Tivalo::Documents::set_read_path;
using tivalo::ComPtr;

struct Outcome {
  bool loaded = false;
  std::wstring text;  // the XML got after the put, or the put's error text
};

HRESULT invoke(IDispatch* object, const wchar_t* name, WORD flags, VARIANT* argument,
               VARIANT* result, std::wstring* error) {
  LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
  DISPID id = DISPID_UNKNOWN;
  HRESULT hr = object->GetIDsOfNames(IID_NULL, names, 1, 0, &id);
  if (FAILED(hr)) return hr;
  DISPID named_put = DISPID_PROPERTYPUT;
  DISPPARAMS params{argument, argument ? &named_put : nullptr, argument ? 1u : 0u,
                    argument ? 1u : 0u};
  EXCEPINFO exception{};
  hr = object->Invoke(id, IID_NULL, 0, flags, &params, result, &exception, nullptr);
  if (error && exception.bstrDescription) *error = exception.bstrDescription;
  SysFreeString(exception.bstrSource);
  SysFreeString(exception.bstrDescription);
  SysFreeString(exception.bstrHelpFile);
  return hr;
}

std::wstring xml_of(IDispatch* document) {
  VARIANT result;
  VariantInit(&result);
  std::wstring error;
  if (FAILED(invoke(document, L"XML", DISPATCH_PROPERTYGET, nullptr, &result, &error)))
    return L"(get failed: " + error + L")";
  std::wstring text(result.bstrVal, SysStringLen(result.bstrVal));
  VariantClear(&result);
  return text;
}

ComPtr<IDispatch> new_document(const std::wstring& progid) {
  CLSID clsid;
  EXPECT_EQ(S_OK, CLSIDFromProgID(progid.c_str(), &clsid));
  ComPtr<IDispatch> document;
  EXPECT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch,
                                   document.put_void()));
  return document;
}

// Reads the file into a new document of the class: Read hands the parser the file's bytes as
// they are.
Outcome read_with(ReadPath path, const std::wstring& progid, const fs::path& file) {
  set_read_path(path);
  const ComPtr<IDispatch> document = new_document(progid);
  const std::wstring before = xml_of(document.get());
  VARIANT name;
  VariantInit(&name);
  name.vt = VT_BSTR;
  const std::wstring path_text = file.wstring();
  name.bstrVal = SysAllocStringLen(path_text.data(), UINT(path_text.size()));
  Outcome outcome;
  std::wstring error;
  DISPPARAMS params{&name, nullptr, 1, 0};
  LPOLESTR names[] = {const_cast<LPOLESTR>(L"Read")};
  DISPID id = DISPID_UNKNOWN;
  EXPECT_EQ(S_OK, document->GetIDsOfNames(IID_NULL, names, 1, 0, &id));
  EXCEPINFO exception{};
  outcome.loaded = SUCCEEDED(
      document->Invoke(id, IID_NULL, 0, DISPATCH_METHOD, &params, nullptr, &exception, nullptr));
  if (exception.bstrDescription) error = exception.bstrDescription;
  SysFreeString(exception.bstrSource);
  SysFreeString(exception.bstrDescription);
  SysFreeString(exception.bstrHelpFile);
  VariantClear(&name);
  if (outcome.loaded) {
    outcome.text = xml_of(document.get());
  } else {
    outcome.text = error;
    // A failed read leaves the document as it was.
    EXPECT_EQ(before, xml_of(document.get())) << file;
  }
  set_read_path(ReadPath::streaming);
  return outcome;
}

// Puts the bytes, each as one character, as a string got from `XML` holds a document.
Outcome put_with(ReadPath path, const std::wstring& progid, const std::string& bytes) {
  set_read_path(path);
  const ComPtr<IDispatch> document = new_document(progid);
  std::wstring text;
  for (unsigned char c : bytes) text += wchar_t(c);
  VARIANT argument;
  VariantInit(&argument);
  argument.vt = VT_BSTR;
  argument.bstrVal = SysAllocStringLen(text.data(), UINT(text.size()));
  Outcome outcome;
  outcome.loaded = SUCCEEDED(
      invoke(document.get(), L"XML", DISPATCH_PROPERTYPUT, &argument, nullptr, &outcome.text));
  VariantClear(&argument);
  if (outcome.loaded) outcome.text = xml_of(document.get());
  set_read_path(ReadPath::streaming);
  return outcome;
}

// The document class a file's root element names; the invoice for anything else.
std::wstring progid_of(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  const std::string root = tivalo::cli::root_element_name(in);
  std::wstring name(root.begin(), root.end());
  CLSID clsid;
  if (name.empty() || CLSIDFromProgID((L"TivaloCOM." + name).c_str(), &clsid) != S_OK)
    name = L"Invoice";
  return L"TivaloCOM." + name;
}

bool ends_with(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::vector<std::string> groups() { return corpus::groups(TIVALO_STREAM_DOCUMENTS); }

std::vector<fs::path> files_of(const std::string& group) {
  return corpus::files_of(group, TIVALO_SOURCE_DIR, TIVALO_STREAM_DOCUMENTS);
}

// A refusal the reader alone makes where the binding's parser reads the document.
bool refused_only_alone(const Outcome& alone) {
  using namespace Morvek::Tivalo;
  return !alone.loaded && alone.text.find(stream_version_refused) != std::wstring::npos;
}

// "Tivalo: Line 7, column 17, cbc:IssueDate: ...", "..., in cac:Party: ...", or before or after
// the root element for what stands outside it.
bool names_place_and_element(const std::wstring& text) {
  static const std::wregex form(
      L"Tivalo: Line [1-9][0-9]*, column [0-9]+, (in [^ :,]+(:[^ :,]+)?|[^ :,]+(:[^ :,]+)?|"
      L"before the root element|after the root element): .+\\.");
  return std::regex_match(text, form);
}

class ReaderComparison : public testing::TestWithParam<std::string> {};

TEST_P(ReaderComparison, StreamingReaderMatchesTheBinding) {
  const std::vector<fs::path> files = files_of(GetParam());
  EXPECT_FALSE(files.empty());
  for (const fs::path& file : files) {
    SCOPED_TRACE(file.string());
    const std::wstring progid = progid_of(file);
    const Outcome reference = read_with(ReadPath::binding_only, progid, file);
    const Outcome alone = read_with(ReadPath::streaming_alone, progid, file);
    const Outcome component = read_with(ReadPath::streaming, progid, file);

    EXPECT_EQ(reference.loaded, component.loaded);
    EXPECT_EQ(reference.text, component.text);
    if (refused_only_alone(alone)) continue;
    EXPECT_EQ(reference.loaded, alone.loaded)
        << "binding: " << testing::PrintToString(reference.text)
        << "\nalone: " << testing::PrintToString(alone.text);
    if (reference.loaded && alone.loaded) EXPECT_EQ(reference.text, alone.text);
    if (!alone.loaded)
      EXPECT_TRUE(names_place_and_element(alone.text)) << testing::PrintToString(alone.text);
  }
}

INSTANTIATE_TEST_SUITE_P(Corpus, ReaderComparison, testing::ValuesIn(groups()),
                         [](const testing::TestParamInfo<std::string>& info) { return info.param; });

// The comparison means something only if the streaming reader reads the documents itself: every
// generated document of every class, in schema order and reversed, in each encoding, and the
// sample.
TEST(StreamingReader, ReadsEveryClassItself) {
  int read = 0;
  for (const std::string& group : groups()) {
    if (group == "hostile" || group == "fuzz") continue;
    for (const fs::path& file : files_of(group)) {
      const std::string stem = file.stem().string();
      bool plain = group == "samples" || stem == group;
      for (const char* form : {".reversed", ".utf16", ".utf16be", ".utf16-no-mark", ".latin1",
                               ".latin9", ".windows1252", ".ascii", ".koi8r", ".no-declaration",
                               ".other-prefixes", ".xsi-type"})
        plain = plain || ends_with(stem, form);
      if (!plain) continue;
      const Outcome streaming = read_with(ReadPath::streaming_alone, progid_of(file), file);
      EXPECT_TRUE(streaming.loaded) << file << ": " << testing::PrintToString(streaming.text);
      ++read;
    }
  }
  EXPECT_GE(read, 31 * 13);
}

// Where the first `anchor` of `text` begins, or ends: "Line 7, column 17, ", the column counted
// in characters.
std::wstring place_of(const std::string& text, const std::string& anchor, bool after) {
  std::size_t at = text.find(anchor);
  if (at == std::string::npos) return L"(anchor not found) ";
  if (after) at += anchor.size();
  const std::size_t line_start = text.rfind('\n', at == 0 ? 0 : at - 1);
  const std::size_t from = line_start == std::string::npos ? 0 : line_start + 1;
  const auto line = 1 + std::count(text.begin(), text.begin() + std::ptrdiff_t(at), '\n');
  const auto column = 1 + std::count_if(text.begin() + std::ptrdiff_t(from),
                                        text.begin() + std::ptrdiff_t(at),
                                        [](char c) { return (c & 0xC0) != 0x80; });
  return L"Line " + std::to_wstring(line) + L", column " + std::to_wstring(column) + L", ";
}

std::string repeated(const std::string& text, int times) {
  std::string out;
  for (int i = 0; i < times; ++i) out += text;
  return out;
}

// The reader alone names each fault of the generated invoice's variants where it is, through Read
// and through the `XML` put alike: the element, and what was expected or what is wrong.
TEST(StreamingReader, AloneNamesEachFault) {
  struct Expected {
    const char* variant;
    std::string anchor;  // the fault is where this first stands (or just after it)
    bool after;
    const wchar_t* message;
  };
  const Expected faults[] = {
      {"missing-document-id", "<cbc:CopyIndicator", false,
       L"in Invoice: missing cbc:ID before cbc:CopyIndicator."},
      {"unknown-child-ends-walk", "<cbc:Unknown", false,
       L"in ext:UBLExtension: an unexpected element cbc:Unknown where ext:ExtensionContent was "
       L"expected."},
      {"repeated-child-bad-value", "</cbc:IssueDate>", true,
       L"in Invoice: a second cbc:IssueDate where cac:AccountingSupplierParty was expected."},
      {"bad-date", "<cbc:IssueDate>", true,
       L"cbc:IssueDate: the value '2024-02-30' is not a date (udt:DateType, YYYY-MM-DD in the "
       L"years 100 to 9999)."},
      {"bad-indicator", "<cbc:CopyIndicator>", true,
       L"cbc:CopyIndicator: the value 'yes' is not an indicator (udt:IndicatorType, true, false, "
       L"1 or 0)."},
      {"bad-amount", "<cbc:Amount currencyID=\"EUR\">", true,
       L"cbc:Amount: the value '1,5' is not an amount (udt:AmountType, a decimal number)."},
      {"bad-base64", "filename=\"a\tb.txt\">", true,
       L"cbc:EmbeddedDocumentBinaryObject: the value 'S=GV' is not binary data "
       L"(udt:BinaryObjectType, base64)."},
      {"missing-currency", "<cbc:Amount>", false,
       L"cbc:Amount: the required attribute currencyID is missing."},
      {"element-in-text", "<x/>", false, L"in cbc:IssueDate: an element x where text is expected."},
      {"xsi-type-foreign", "<cbc:ID xmlns:xsi", false,
       L"cbc:ID: xsi:type 'cbc:NoteType' is not the element's type cbc:IDType."},
      {"wrong-root-namespace", "<Invoice", false,
       L"Invoice: the root element is Invoice of namespace "
       L"'urn:oasis:names:specification:ubl:schema:xsd:Other-2'; expected Invoice of namespace "
       L"'urn:oasis:names:specification:ubl:schema:xsd:Invoice-2'."},
      {"undeclared-prefix", "<zz:ID", false,
       L"in ext:UBLExtension: a namespace error: Namespace prefix zz on ID is not defined."},
      {"doctype", "<!DOCTYPE", false,
       L"before the root element: the document has a document type declaration (<!DOCTYPE x>); "
       L"documents with DTDs are not read."},
      {"xml11", "<?xml", false,
       L"before the root element: the document is XML 1.1; only XML 1.0 documents are read."},
      // The markup scan stops the parser where the excess begins.
      {"too-deep", "<ext:UBLExtensions>" + repeated("<x>", 996), true,
       L"in x: the document nests elements more than 1000 deep; such documents are not read."},
      {"too-many-attributes", "<cbc:ID a0", false,
       L"cbc:ID: an element has more than 100 attributes; such documents are not "
       L"read."},
  };
  for (const Expected& fault : faults) {
    SCOPED_TRACE(fault.variant);
    const fs::path file =
        fs::path(TIVALO_STREAM_DOCUMENTS) / (std::string("Invoice.") + fault.variant + ".xml");
    std::ifstream in(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    const std::wstring expected =
        L"Tivalo: " + place_of(text, fault.anchor, fault.after) + fault.message;
    const Outcome read = read_with(ReadPath::streaming_alone, L"TivaloCOM.Invoice", file);
    EXPECT_FALSE(read.loaded);
    EXPECT_EQ(expected, read.text);
    const Outcome put = put_with(ReadPath::streaming_alone, L"TivaloCOM.Invoice", text);
    EXPECT_FALSE(put.loaded);
    EXPECT_EQ(expected, put.text);
  }
}

// UTF-8 text as UTF-16, little-endian with its byte order mark, declared so.
std::string utf16_with_mark(std::string text) {
  const std::string declared = "encoding=\"UTF-8\"";
  text.replace(text.find(declared), declared.size(), "encoding=\"UTF-16\"");
  std::string out = "\xFF\xFE";
  auto unit = [&](char32_t u) { out += char(u & 0xFF), out += char(u >> 8); };
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    char32_t c = length == 1 ? lead : lead & (0x7F >> length);
    for (std::size_t k = 1; k < length; ++k)
      c = c << 6 | (static_cast<unsigned char>(text[i + k]) & 0x3F);
    i += length;
    if (c >= 0x10000) {
      unit(0xD800 + ((c - 0x10000) >> 10));
      unit(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      unit(c);
    }
  }
  return out;
}

// A document many pieces long, whose tags, multi-byte characters, comments and CDATA sections fall
// across the ends of the pieces a file is read in at ever other places.
TEST(StreamingReader, ReadsAFileManyPiecesLongAsTheBindingDoes) {
  std::ifstream in(TIVALO_SOURCE_DIR "/samples/invoice.xml", std::ios::binary);
  const std::string sample{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  const std::string open = "  <cac:InvoiceLine>\n", close = "  </cac:InvoiceLine>\n";
  const std::size_t first = sample.find(open);
  const std::size_t end = sample.find(close, first) + close.size();
  const std::string line = sample.substr(first, end - first);
  const std::string id = "<cbc:ID>1</cbc:ID>";
  std::string lines;
  for (int n = 0; n < 3000; ++n) {
    std::string copy = line;
    copy.replace(copy.find(id), id.size(),
                 "<cbc:ID><![CDATA[\u00e9\u20ac\U0001F600-" + std::to_string(n) +
                     "]]></cbc:ID><!--" +
                     std::string(std::size_t(n % 101), '.') + "-->");
    lines += copy;
  }
  const std::string text = sample.substr(0, first) + lines + sample.substr(end);
  const fs::path file = fs::temp_directory_path() / "tivalo-many-pieces.xml";
  for (const bool utf16 : {false, true}) {
    SCOPED_TRACE(utf16 ? "UTF-16" : "UTF-8");
    std::ofstream(file, std::ios::binary) << (utf16 ? utf16_with_mark(text) : text);
    ASSERT_GT(fs::file_size(file), std::uintmax_t(20) * 65536);
    const Outcome reference = read_with(ReadPath::binding_only, L"TivaloCOM.Invoice", file);
    const Outcome streaming = read_with(ReadPath::streaming_alone, L"TivaloCOM.Invoice", file);
    ASSERT_TRUE(reference.loaded) << testing::PrintToString(reference.text);
    EXPECT_TRUE(streaming.loaded) << testing::PrintToString(streaming.text);
    EXPECT_TRUE(reference.text == streaming.text);
  }
  fs::remove(file);
}

}  // namespace
