// The streaming reader against the binding's reader on bytes from anywhere: the document class is
// the one the root element names, and the text is put through `XML` by the binding's reader and
// by the streaming reader alone (as for a class with no binding). Both must load it or both
// refuse it, and what loaded must give the same `XML`; the reader alone refuses XML 1.1 and
// EBCDIC, which the binding reads, and its refusals name a line. Any difference aborts.
#include "cli/root_element.h"
#include "document/stream_reader.h"
#include "document/streams.h"
#include "platform/automation.h"

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

namespace {

using Morvek::Tivalo::Documents::ReadPath;
using Morvek::Tivalo::Documents::set_read_path;

HRESULT invoke(IDispatch* document, WORD flags, VARIANT* argument, VARIANT* result,
               std::wstring* error) {
  LPOLESTR names[] = {const_cast<LPOLESTR>(L"XML")};
  DISPID id = DISPID_UNKNOWN;
  if (FAILED(document->GetIDsOfNames(IID_NULL, names, 1, 0, &id))) return E_FAIL;
  DISPID named_put = DISPID_PROPERTYPUT;
  DISPPARAMS params{argument, argument ? &named_put : nullptr, argument ? 1u : 0u,
                    argument ? 1u : 0u};
  EXCEPINFO exception{};
  const HRESULT hr = document->Invoke(id, IID_NULL, 0, flags, &params, result, &exception, nullptr);
  if (error && exception.bstrDescription) *error = exception.bstrDescription;
  SysFreeString(exception.bstrSource);
  SysFreeString(exception.bstrDescription);
  SysFreeString(exception.bstrHelpFile);
  return hr;
}

struct Outcome {
  bool loaded = false;
  std::wstring text;
};

Outcome read_with(ReadPath path, const CLSID& clsid, const std::wstring& text) {
  set_read_path(path);
  tivalo::ComPtr<IDispatch> document;
  if (FAILED(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch,
                              document.put_void())))
    std::abort();
  VARIANT argument;
  VariantInit(&argument);
  argument.vt = VT_BSTR;
  argument.bstrVal = SysAllocStringLen(text.data(), UINT(text.size()));
  Outcome outcome;
  outcome.loaded =
      SUCCEEDED(invoke(document.get(), DISPATCH_PROPERTYPUT, &argument, nullptr, &outcome.text));
  VariantClear(&argument);
  if (outcome.loaded) {
    VARIANT xml;
    VariantInit(&xml);
    std::wstring error;
    if (SUCCEEDED(invoke(document.get(), DISPATCH_PROPERTYGET, nullptr, &xml, &error)))
      outcome.text.assign(xml.bstrVal, SysStringLen(xml.bstrVal));
    else
      outcome.text = L"(get failed) " + error;
    VariantClear(&xml);
  }
  set_read_path(ReadPath::streaming);
  SetErrorInfo(0, nullptr);
  return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  std::istringstream head(bytes);
  const std::string root = tivalo::cli::root_element_name(head);
  const std::wstring name(root.begin(), root.end());
  CLSID clsid;
  if (name.empty() || FAILED(CLSIDFromProgID((L"TivaloCOM." + name).c_str(), &clsid))) return 0;
  // Each byte becomes one character, as a string got from `XML` holds a document.
  std::wstring text;
  for (unsigned char c : bytes) text += wchar_t(c);
  const Outcome reference = read_with(ReadPath::binding_only, clsid, text);
  if (reference.text.empty() && !reference.loaded) return 0;  // no document class after all
  const Outcome streaming = read_with(ReadPath::streaming_alone, clsid, text);
  using Morvek::Tivalo::stream_encoding_refused;
  using Morvek::Tivalo::stream_version_refused;
  if (!streaming.loaded && (streaming.text.find(stream_version_refused) != std::wstring::npos ||
                            streaming.text.find(stream_encoding_refused) != std::wstring::npos))
    return 0;
  if (!streaming.loaded && streaming.text.rfind(L"Tivalo: Line ", 0) != 0) std::abort();
  if (streaming.loaded != reference.loaded) std::abort();
  if (reference.loaded && streaming.text != reference.text) std::abort();
  return 0;
}
