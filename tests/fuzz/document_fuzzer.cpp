// Bytes from anywhere, as a host hands them over: the document class is the one the root element
// names in the library under test (TIVALO_PROGID_PREFIX, "TivaloCOM." or "TivaloCOM21."), the text
// goes in through the XML put, and whatever loads is got back, written to a file, read again and
// checked against the schema and a rule stylesheet, all through late binding.
#include "platform/automation.h"

#include <cctype>
#include <cstdint>
#include <iterator>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include <unistd.h>

namespace {

struct Var : VARIANT {
  Var() { VariantInit(this); }
  ~Var() { VariantClear(this); }
  Var(const Var&) = delete;
  Var& operator=(const Var&) = delete;
};

// Invokes `name` with string arguments; the result, if any, lands in `result`.
HRESULT call(IDispatch* object, const wchar_t* name, WORD flags,
             std::initializer_list<const std::wstring*> args, Var* result = nullptr) {
  LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
  DISPID id = DISPID_UNKNOWN;
  const HRESULT known = object->GetIDsOfNames(IID_NULL, names, 1, 0, &id);
  if (FAILED(known)) return known;
  VARIANTARG arguments[4];
  size_t count = 0;
  for (auto it = std::rbegin(args); it != std::rend(args); ++it, ++count) {
    VariantInit(&arguments[count]);
    arguments[count].vt = VT_BSTR;
    arguments[count].bstrVal = SysAllocStringLen((*it)->data(), UINT((*it)->size()));
  }
  DISPID named_put = DISPID_PROPERTYPUT;
  DISPPARAMS params{arguments, flags == DISPATCH_PROPERTYPUT ? &named_put : nullptr, UINT(count),
                    flags == DISPATCH_PROPERTYPUT ? 1u : 0u};
  EXCEPINFO exception{};
  const HRESULT hr = object->Invoke(id, IID_NULL, 0, flags, &params, result, &exception, nullptr);
  SysFreeString(exception.bstrSource);
  SysFreeString(exception.bstrDescription);
  SysFreeString(exception.bstrHelpFile);
  for (size_t i = 0; i < count; ++i) VariantClear(&arguments[i]);
  return hr;
}

// The local name of the first element: "Invoice" of "<?xml ...?><ns:Invoice ...>".
std::wstring root_name(const std::string& bytes) {
  for (size_t at = bytes.find('<'); at != std::string::npos; at = bytes.find('<', at + 1)) {
    const char next = at + 1 < bytes.size() ? bytes[at + 1] : '\0';
    if (next == '?' || next == '!' || next == '/') continue;
    std::wstring name;
    for (size_t i = at + 1; i < bytes.size() && name.size() < 64; ++i) {
      const char c = bytes[i];
      if (c == ':') name.clear();
      else if (std::isalnum(static_cast<unsigned char>(c))) name += wchar_t(c);
      else break;
    }
    return name;
  }
  return L"";
}

struct Files {
  std::wstring directory, schema_dir, rules, document;
  Files() {
    char pattern[] = "/tmp/tivalo-fuzz-XXXXXX";
    const char* made = mkdtemp(pattern);
    if (!made) std::abort();
    const std::string dir = made;
    directory.assign(dir.begin(), dir.end());
    const std::string rules_path = dir + "/rules.xsl";
    std::ofstream(rules_path)
        << "<xsl:stylesheet version=\"1.0\" xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\">"
           "<xsl:template match=\"/\"><xsl:message>root <xsl:value-of select=\"name(*)\"/> "
           "<xsl:value-of select=\"string(*)\"/></xsl:message></xsl:template>"
           "</xsl:stylesheet>\n";
    rules.assign(rules_path.begin(), rules_path.end());
    document = directory + L"/document.xml";
    schema_dir = L"" TIVALO_SCHEMA_DIR;
  }
  ~Files() {
    std::remove((std::string(document.begin(), document.end())).c_str());
    std::remove((std::string(rules.begin(), rules.end())).c_str());
    rmdir(std::string(directory.begin(), directory.end()).c_str());
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Files files;
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::wstring name = root_name(bytes);
  CLSID clsid;
  if (name.empty() || FAILED(CLSIDFromProgID((TIVALO_PROGID_PREFIX + name).c_str(), &clsid))) return 0;
  IDispatch* document = nullptr;
  if (FAILED(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch,
                              reinterpret_cast<void**>(&document))))
    std::abort();
  LPOLESTR xml_name[] = {const_cast<LPOLESTR>(L"XML")};
  DISPID xml_id = DISPID_UNKNOWN;
  if (FAILED(document->GetIDsOfNames(IID_NULL, xml_name, 1, 0, &xml_id))) {
    document->Release();  // a ProgID of a class that is no document
    return 0;
  }

  // Each byte becomes one character, as a string got from the XML property holds a document.
  const std::wstring text(bytes.begin(), bytes.end());
  const std::wstring schema = files.schema_dir + L"/maindoc/UBL-" + name + TIVALO_SCHEMA_SUFFIX;
  {
    // The schema check loads the whole grammar on every call, far slower than the rest: it runs
    // for texts that loaded and whose length is a multiple of 16, so the rest runs at speed.
    const bool loaded = SUCCEEDED(call(document, L"XML", DISPATCH_PROPERTYPUT, {&text}));
    if (loaded) {
      Var xml;
      if (SUCCEEDED(call(document, L"XML", DISPATCH_PROPERTYGET, {}, &xml))) {
        if (xml.vt != VT_BSTR) std::abort();
        // What was written must load again.
        const std::wstring written(xml.bstrVal, SysStringLen(xml.bstrVal));
        if (FAILED(call(document, L"XML", DISPATCH_PROPERTYPUT, {&written}))) std::abort();
      }
      if (SUCCEEDED(call(document, L"Write", DISPATCH_METHOD, {&files.document})) &&
          FAILED(call(document, L"Read", DISPATCH_METHOD, {&files.document})))
        std::abort();
    }
    Var errors, rule_errors;
    const bool schema_check = loaded && size % 16 == 0;
    if (schema_check && FAILED(call(document, L"GetSchemaValidationErrorsFromXML",
                                    DISPATCH_METHOD, {&text, &schema}, &errors)))
      std::abort();
    if (FAILED(call(document, L"GetValueValidationErrorsFromXML", DISPATCH_METHOD,
                    {&text, &files.rules}, &rule_errors)))
      std::abort();
  }
  document->Release();
  SetErrorInfo(0, nullptr);
  return 0;
}
