// The streaming reader held to the binding's reader. Every document of the corpus (the samples,
// the hostile corpus, the fuzz seeds, and generated documents that reach every class and member
// of all 31 document classes, with their faulty variants) is read with Read three times:
// - binding only (Xerces-C's DOM, the binding's tree, the load step): the reference;
// - the streaming reader alone: it must load exactly when the binding does and leave the same
//   objects, compared through their `XML` get; it may leave a document to the binding (other
//   encodings, XML 1.1, xsi:type), which is then not compared;
// - as the component reads: the same result as the reference, error texts included (a document
//   the streaming reader refuses is read again by the binding, which names the fault).
// A failed read leaves the object as it was.
#include "document/streams.h"
#include "platform/automation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
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

// Reads the file into a new document of the class: Read hands the parser the file's bytes as
// they are.
Outcome read_with(ReadPath path, const std::wstring& progid, const fs::path& file) {
  set_read_path(path);
  CLSID clsid;
  EXPECT_EQ(S_OK, CLSIDFromProgID(progid.c_str(), &clsid));
  ComPtr<IDispatch> document;
  EXPECT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch,
                                   document.put_void()));
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

struct Case {
  fs::path file;
  std::wstring progid;
};

// The document class a file's root element names; the invoice for anything else.
std::wstring progid_of(std::string bytes) {
  bytes.erase(std::remove(bytes.begin(), bytes.end(), '\0'), bytes.end());  // UTF-16's ASCII
  std::smatch root;
  std::wstring name = L"Invoice";
  if (std::regex_search(bytes, root, std::regex(R"(<(?:\w+:)?([A-Z]\w*)[\s/>])"))) {
    const std::wstring found(root[1].first, root[1].second);
    CLSID clsid;
    if (CLSIDFromProgID((L"TivaloCOM." + found).c_str(), &clsid) == S_OK) name = found;
  }
  return L"TivaloCOM." + name;
}

bool ends_with(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string bytes_of(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<Case> corpus() {
  std::vector<Case> cases;
  const fs::path source(TIVALO_SOURCE_DIR);
  for (const fs::path& directory :
       {source / "samples", source / "tests" / "hostile", source / "tests" / "fuzz" / "corpus",
        fs::path(TIVALO_STREAM_DOCUMENTS)}) {
    for (const auto& entry : fs::directory_iterator(directory)) {
      if (entry.path().extension() != ".xml") continue;
      cases.push_back({entry.path(), progid_of(bytes_of(entry.path()).substr(0, 4096))});
    }
  }
  return cases;
}

class ReaderComparison : public testing::TestWithParam<Case> {};

TEST_P(ReaderComparison, StreamingReaderMatchesTheBinding) {
  const Case& c = GetParam();
  const Outcome reference = read_with(ReadPath::binding_only, c.progid, c.file);
  const Outcome streaming = read_with(ReadPath::streaming_only, c.progid, c.file);
  const Outcome component = read_with(ReadPath::streaming, c.progid, c.file);

  EXPECT_EQ(reference.loaded, component.loaded);
  EXPECT_EQ(reference.text, component.text);
  if (streaming.text == Morvek::Tivalo::Documents::streaming_declined) return;
  EXPECT_EQ(reference.loaded, streaming.loaded) << (streaming.loaded ? "" : "refused ")
                                                 << "binding: " << testing::PrintToString(reference.text);
  if (reference.loaded && streaming.loaded) EXPECT_EQ(reference.text, streaming.text);
}

std::string case_name(const testing::TestParamInfo<Case>& info) {
  std::string name = info.param.file.parent_path().filename().string() + "_" +
                     info.param.file.stem().string();
  for (char& c : name)
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  return name;
}

INSTANTIATE_TEST_SUITE_P(Corpus, ReaderComparison, testing::ValuesIn(corpus()), case_name);

// The comparison means something only if the streaming reader reads the documents itself: every
// generated document of every class, in schema order and reversed, and the sample.
TEST(StreamingReader, ReadsEveryClassItself) {
  int read = 0;
  for (const Case& c : corpus()) {
    const std::string stem = c.file.stem().string();
    const bool generated = c.file.parent_path() == fs::path(TIVALO_STREAM_DOCUMENTS);
    const bool plain =
        c.file.parent_path().filename() == "samples" ||
        (generated && (stem.find('.') == std::string::npos || ends_with(stem, ".reversed") ||
                       ends_with(stem, ".utf16") || ends_with(stem, ".latin1") ||
                       ends_with(stem, ".no-declaration") || ends_with(stem, ".other-prefixes")));
    if (!plain) continue;
    const Outcome streaming = read_with(ReadPath::streaming_only, c.progid, c.file);
    EXPECT_TRUE(streaming.loaded) << c.file << ": " << testing::PrintToString(streaming.text);
    ++read;
  }
  EXPECT_GE(read, 31 * 6);
}

}  // namespace
