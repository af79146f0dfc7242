// The tool's worded schema findings (libxml2's validator) held to the component's schema check
// (Xerces-C) over the whole corpus: for every document and every schema set, both say valid or
// both say invalid. The tool leaves two kinds of documents to the component, and each must be one
// the component finds at fault: those libxml2 does not read (a DTD, not well formed, beyond the
// markup limits), and schema-valid ones whose values the component cannot read (a year after
// 9999), which Read refuses.
#include "cli/root_element.h"
#include "corpus.h"
#include "document/markup_limits.h"
#include "document/schema_findings.h"
#include "platform/automation.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
namespace Schema = Morvek::Tivalo::SchemaFindings;
using tivalo::ComPtr;

struct SchemaSet {
  std::string name;  // "2.0"
  fs::path directory;
};

std::vector<SchemaSet> schema_sets() {
  std::vector<SchemaSet> sets{{"2.0", TIVALO_SCHEMA_DIR}};
#ifdef TIVALO_UBL21_SCHEMA_DIR
  sets.push_back({"2.1", TIVALO_UBL21_SCHEMA_DIR});
#endif
  return sets;
}

// The document class its root element names; the invoice for anything else.
std::string class_of(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  const std::string root = tivalo::cli::root_element_name(in);
  CLSID clsid;
  const std::wstring progid = L"TivaloCOM." + std::wstring(root.begin(), root.end());
  return root.empty() || CLSIDFromProgID(progid.c_str(), &clsid) != S_OK ? "Invoice" : root;
}

// A method of a new document of the class called with text arguments (last argument first);
// its text result, and whether it succeeded.
std::pair<HRESULT, std::wstring> call(const std::string& document_class, const wchar_t* name,
                                      std::vector<std::wstring> texts) {
  CLSID clsid;
  const std::wstring progid = L"TivaloCOM." + std::wstring(document_class.begin(), document_class.end());
  EXPECT_EQ(S_OK, CLSIDFromProgID(progid.c_str(), &clsid));
  ComPtr<IDispatch> document;
  EXPECT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch,
                                   document.put_void()));
  LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
  DISPID id = DISPID_UNKNOWN;
  EXPECT_EQ(S_OK, document->GetIDsOfNames(IID_NULL, names, 1, 0, &id));
  std::vector<VARIANT> arguments(texts.size());
  for (size_t i = 0; i < texts.size(); ++i) {
    VariantInit(&arguments[i]);
    arguments[i].vt = VT_BSTR;
    arguments[i].bstrVal = SysAllocString(texts[i].c_str());
  }
  DISPPARAMS params{arguments.data(), nullptr, static_cast<UINT>(arguments.size()), 0};
  VARIANT result;
  VariantInit(&result);
  EXCEPINFO exception{};
  const HRESULT status = document->Invoke(id, IID_NULL, 0, DISPATCH_METHOD, &params, &result, &exception, nullptr);
  std::wstring text = result.vt == VT_BSTR && result.bstrVal ? result.bstrVal : L"";
  if (exception.bstrDescription) text = exception.bstrDescription;
  SysFreeString(exception.bstrSource);
  SysFreeString(exception.bstrDescription);
  SysFreeString(exception.bstrHelpFile);
  VariantClear(&result);
  for (VARIANT& argument : arguments) VariantClear(&argument);
  return {status, text};
}

// The component's schema check of the file: its text, empty when the document is valid. A check
// that fails outright (an XML 1.5 document) says so in its error text.
std::wstring component_errors(const std::string& document_class, const fs::path& file,
                              const fs::path& schema) {
  const auto [status, text] = call(document_class, L"GetSchemaValidationErrors", {schema.wstring(), file.wstring()});
  EXPECT_TRUE(status == S_OK || !text.empty());
  return text;
}

std::string bytes_of(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

struct Case {
  SchemaSet schemas;
  std::string group;
};

std::vector<Case> cases() {
  std::vector<Case> all;
  for (const SchemaSet& set : schema_sets())
    for (const std::string& group : corpus::groups(TIVALO_STREAM_DOCUMENTS)) all.push_back({set, group});
  return all;
}

void PrintTo(const Case& c, std::ostream* os) { *os << "UBL " << c.schemas.name << " schemas, " << c.group; }

class SameVerdict : public testing::TestWithParam<Case> {};

TEST_P(SameVerdict, AsTheComponentsSchemaCheck) {
  const Case& c = GetParam();
  const std::vector<fs::path> files = corpus::files_of(c.group, TIVALO_SOURCE_DIR, TIVALO_STREAM_DOCUMENTS);
  ASSERT_FALSE(files.empty());
  int valid = 0, invalid = 0, refused = 0, values_not_read = 0;
  for (const fs::path& file : files) {
    SCOPED_TRACE(file.string());
    const std::string document_class = class_of(file);
    const fs::path schema = c.schemas.directory / "maindoc" / ("UBL-" + document_class + "-" + c.schemas.name + ".xsd");
    ASSERT_TRUE(fs::exists(schema)) << schema;
    const std::string bytes = bytes_of(file);
    const Schema::Report worded = Schema::check(bytes, schema.string());
    ASSERT_NE(Schema::Report::Outcome::schema_not_loaded, worded.outcome) << worded.problem;
    if (worded.outcome == Schema::Report::Outcome::document_refused) {
      ++refused;
      // Left to the component: documents in other encodings than UTF-8, whatever their verdict.
      if (!Morvek::Tivalo::read_as_utf8(bytes)) continue;
      // libxml2 holds a namespace name to be a URI; the component takes any text. A check that
      // fails outright (XML 1.5) is no more a valid verdict than a finding.
      const auto [status, component] =
          call(document_class, L"GetSchemaValidationErrors", {schema.wstring(), file.wstring()});
      if (file.filename() != "namespace-name-not-a-uri.xml")
        EXPECT_TRUE(status != S_OK || !component.empty())
            << "libxml2 refuses a document the component finds valid";
      continue;
    }
    const std::wstring component = component_errors(document_class, file, schema);
    // A document type declaration is never read.
    EXPECT_EQ(std::string::npos, bytes.find("<!DOCTYPE"));
    std::string said;
    for (const Schema::Finding& finding : worded.findings) {
      said += std::to_string(finding.line) + ": " + finding.message + "\n";
      // Every finding is placed, names elements by their prefixes and is short.
      EXPECT_GT(finding.line, 0) << finding.message;
      EXPECT_EQ(std::string::npos, finding.message.find("{urn:")) << finding.message;
      EXPECT_LT(finding.message.size(), 300u) << finding.message;
    }
    if (worded.findings.empty() && !component.empty()) {
      ++values_not_read;
      EXPECT_NE(S_OK, call(document_class, L"Read", {file.wstring()}).first)
          << "schema-valid for libxml2, Read takes it, but the component's check says "
          << testing::PrintToString(component);
      continue;
    }
    EXPECT_EQ(component.empty(), worded.findings.empty())
        << "component: " << testing::PrintToString(component) << "\nlibxml2: " << said;
    ++(worded.findings.empty() ? valid : invalid);
  }
  RecordProperty("valid", valid);
  RecordProperty("invalid", invalid);
  RecordProperty("refused", refused);
  RecordProperty("values_not_read", values_not_read);
  // The comparison means something: libxml2 reads the documents itself, and finds the sample
  // valid and the generated documents of each class (made for the readers, not for the schema)
  // at fault.
  if (c.group == "samples") EXPECT_GT(valid, 0);
  else if (c.group != "hostile" && c.group != "fuzz") EXPECT_GT(invalid, 0);
}

INSTANTIATE_TEST_SUITE_P(Corpus, SameVerdict, testing::ValuesIn(cases()),
                         [](const testing::TestParamInfo<Case>& info) {
                           std::string name = "ubl" + info.param.schemas.name + "_" + info.param.group;
                           for (char& c : name)
                             if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                           return name;
                         });

}  // namespace
