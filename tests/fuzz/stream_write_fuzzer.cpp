// The streaming writer against the binding's writer on documents edited at random. The input is a
// document (up to its first NUL byte; without one, a fresh document of a class the first byte
// picks) and after it a program of edits: each byte picks a member of the object at hand, the
// next bytes make its value. Values of every shape a client can put arrive this way (control
// characters, lone surrogates, astral characters, markup, numbers of any size, dates out of
// range), and children and list items are made on the way. The `XML` got through both writers
// must be the same bytes, or the same failure with the same text. Any difference aborts.
#include "document/streams.h"
#include "module/catalogue.h"
#include "platform/automation.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

namespace catalogue = Morvek::Tivalo::TypeLibrary;
using Morvek::Tivalo::Documents::use_binding_writer;

// The bytes of the program, taken from the front; zeros once they run out.
class Program {
 public:
  Program(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  bool done() const { return at_ >= size_; }
  uint8_t byte() { return done() ? 0 : data_[at_++]; }
  template <class T>
  T raw() {
    T value{};
    unsigned char bytes[sizeof(T)] = {};
    for (unsigned char& b : bytes) b = byte();
    std::memcpy(&value, bytes, sizeof(T));
    return value;
  }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t at_ = 0;
};

HRESULT invoke(IDispatch* object, const catalogue::Member& member, VARIANT* argument,
               VARIANT* result) {
  DISPID named = DISPID_PROPERTYPUT;
  DISPPARAMS params{argument, nullptr, argument ? 1u : 0u, 0};
  WORD flags = DISPATCH_METHOD;
  if (member.kind == catalogue::MemberKind::PropGet) flags = DISPATCH_PROPERTYGET;
  if (member.kind == catalogue::MemberKind::PropPut) {
    flags = DISPATCH_PROPERTYPUT;
    params.rgdispidNamedArgs = &named;
    params.cNamedArgs = 1;
  }
  const HRESULT hr = object->Invoke(member.dispid, IID_NULL, 0, flags, &params, result, nullptr,
                                    nullptr);
  SetErrorInfo(0, nullptr);
  return hr;
}

// A text of up to 31 characters: mostly ASCII with markup, now and then any code point or a
// surrogate, alone or paired. Units beyond U+10FFFF are left out: the binding's path drops the
// value that holds one without a word, where the component refuses it, naming the holder.
BSTR text_from(Program& program) {
  std::wstring text(program.byte() % 32, L' ');
  for (wchar_t& c : text) {
    const uint8_t b = program.byte();
    if (b < 0xF0) c = wchar_t(b);
    else if (b < 0xF8) c = wchar_t(0xD800 + program.byte() * 8);
    else c = wchar_t(program.raw<uint32_t>() % 0x110000);
  }
  return SysAllocStringLen(text.data(), UINT(text.size()));
}

VARIANT value_from(Program& program, catalogue::ParamType type) {
  VARIANT v;
  VariantInit(&v);
  switch (type) {
    case catalogue::ParamType::Bstr:
      v.vt = VT_BSTR;
      v.bstrVal = text_from(program);
      break;
    case catalogue::ParamType::Date:
      v.vt = VT_DATE;
      v.date = program.byte() % 2 ? program.raw<double>() : double(program.raw<int16_t>()) * 3.25;
      break;
    case catalogue::ParamType::Double:
      v.vt = VT_R8;
      v.dblVal = program.byte() % 2 ? program.raw<double>() : double(program.raw<int16_t>()) / 8;
      break;
    case catalogue::ParamType::Bool:
      v.vt = VT_BOOL;
      v.boolVal = VARIANT_BOOL(program.raw<int16_t>());
      break;
    case catalogue::ParamType::Variant: {
      const ULONG size = program.byte() % 8;
      SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, size);
      void* data = nullptr;
      SafeArrayAccessData(array, &data);
      for (ULONG i = 0; i < size; ++i) static_cast<unsigned char*>(data)[i] = program.byte();
      SafeArrayUnaccessData(array);
      v.vt = VT_ARRAY | VT_UI1;
      v.parray = array;
      break;
    }
    default:
      break;
  }
  return v;
}

tivalo::ComPtr<IDispatch> create(const catalogue::Class& cls) {
  tivalo::ComPtr<IDispatch> object;
  CoCreateInstance(cls.clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch, object.put_void());
  return object;
}

// With TIVALO_FUZZ_TRACE set, each put is printed, for reading a finding.
void trace(const catalogue::Class& cls, const catalogue::Member& member, const VARIANT& value,
           HRESULT result) {
  std::fprintf(stderr, "%s.%s (%x) =", cls.name, member.name, unsigned(result));
  if (value.vt == VT_BSTR)
    for (UINT i = 0; i < SysStringLen(value.bstrVal); ++i)
      std::fprintf(stderr, " %x", unsigned(value.bstrVal[i]));
  else if (value.vt == VT_R8 || value.vt == VT_DATE)
    std::fprintf(stderr, " %.17g", value.dblVal);
  std::fprintf(stderr, "\n");
}

// Runs the program on `object` until a byte says "back up" or the bytes run out.
void edit(IDispatch* object, const catalogue::Class& cls, Program& program, int depth) {
  while (!program.done() && cls.member_count > 0) {
    const uint8_t pick = program.byte();
    if (pick >= 0xF0 || depth > 6) return;
    const catalogue::Member& member = cls.members[pick % cls.member_count];
    const std::string_view name = member.name;
    if (name == "XML" || name == "Read" || name == "Write") continue;
    if (member.kind == catalogue::MemberKind::PropPut &&
        member.params[0].type != catalogue::ParamType::Object) {
      VARIANT value = value_from(program, member.params[0].type);
      const HRESULT put = invoke(object, member, &value, nullptr);
      if (std::getenv("TIVALO_FUZZ_TRACE")) trace(cls, member, value, put);
      VariantClear(&value);
    } else if (member.kind == catalogue::MemberKind::PropGet && member.param_count == 1 &&
               member.params[0].type == catalogue::ParamType::Object) {
      VARIANT child;
      VariantInit(&child);
      if (SUCCEEDED(invoke(object, member, nullptr, &child)) && child.vt == VT_DISPATCH)
        edit(child.pdispVal, catalogue::classes()[member.params[0].object_class], program,
             depth + 1);
      VariantClear(&child);
    } else if (member.kind == catalogue::MemberKind::Method && name.substr(0, 3) == "add") {
      const catalogue::Class& item_class = catalogue::classes()[member.params[0].object_class];
      tivalo::ComPtr<IDispatch> item = create(item_class);
      if (!item) continue;
      edit(item.get(), item_class, program, depth + 1);
      VARIANT argument;
      VariantInit(&argument);
      argument.vt = VT_DISPATCH;
      argument.pdispVal = item.get();
      invoke(object, member, &argument, nullptr);
    }
  }
}

const catalogue::Member& member_named(const catalogue::Class& cls, std::string_view name,
                                      catalogue::MemberKind kind) {
  for (uint16_t i = 0; i < cls.member_count; ++i)
    if (cls.members[i].name == name && cls.members[i].kind == kind) return cls.members[i];
  std::abort();
}

struct Written {
  HRESULT status = S_OK;
  std::wstring text;  // the XML, or the failure's description
  bool operator==(const Written& o) const { return status == o.status && text == o.text; }
};

Written xml_of(IDispatch* document, const catalogue::Class& cls, bool through_binding) {
  use_binding_writer(through_binding);
  VARIANT result;
  VariantInit(&result);
  DISPPARAMS none{nullptr, nullptr, 0, 0};
  EXCEPINFO exception{};
  Written written;
  written.status = document->Invoke(member_named(cls, "XML", catalogue::MemberKind::PropGet).dispid,
                                    IID_NULL, 0, DISPATCH_PROPERTYGET, &none, &result, &exception,
                                    nullptr);
  use_binding_writer(false);
  if (result.vt == VT_BSTR && result.bstrVal)
    written.text.assign(result.bstrVal, SysStringLen(result.bstrVal));
  if (exception.bstrDescription) written.text = exception.bstrDescription;
  VariantClear(&result);
  SysFreeString(exception.bstrSource);
  SysFreeString(exception.bstrDescription);
  SysFreeString(exception.bstrHelpFile);
  SetErrorInfo(0, nullptr);
  return written;
}

std::vector<const catalogue::Class*> document_classes() {
  std::vector<const catalogue::Class*> documents;
  for (size_t k = 0; k < catalogue::class_count(); ++k)
    if (catalogue::classes()[k].kind == catalogue::ClassKind::Document)
      documents.push_back(&catalogue::classes()[k]);
  return documents;
}

// The document class whose element the text's root is; null when none is.
const catalogue::Class* class_of(const std::string& text) {
  for (size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at + 1)) {
    if (at + 1 >= text.size() || text[at + 1] == '?' || text[at + 1] == '!') continue;
    const size_t end = text.find_first_of(" \t\r\n/>", at);
    std::string name = text.substr(at + 1, end == std::string::npos ? end : end - at - 1);
    if (name.find(':') != std::string::npos) name = name.substr(name.find(':') + 1);
    const catalogue::Class* cls = catalogue::find_class_by_name(name);
    return cls && cls->kind == catalogue::ClassKind::Document ? cls : nullptr;
  }
  return nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::vector<const catalogue::Class*> documents = document_classes();
  const uint8_t* nul = static_cast<const uint8_t*>(std::memchr(data, 0, size));
  const catalogue::Class* cls = nullptr;
  tivalo::ComPtr<IDispatch> document;
  Program program(data, size);
  if (nul) {
    const std::string text(reinterpret_cast<const char*>(data), size_t(nul - data));
    cls = class_of(text);
    if (!cls) return 0;
    document = create(*cls);
    VARIANT xml;
    VariantInit(&xml);
    xml.vt = VT_BSTR;
    xml.bstrVal = SysAllocStringLen(nullptr, UINT(text.size()));
    for (size_t i = 0; i < text.size(); ++i) xml.bstrVal[i] = wchar_t(uint8_t(text[i]));
    const HRESULT read =
        invoke(document.get(), member_named(*cls, "XML", catalogue::MemberKind::PropPut), &xml,
               nullptr);
    VariantClear(&xml);
    if (FAILED(read)) return 0;
    program = Program(nul + 1, size - size_t(nul + 1 - data));
  } else {
    if (size == 0) return 0;
    cls = documents[program.byte() % documents.size()];
    document = create(*cls);
  }
  edit(document.get(), *cls, program, 0);
  const Written oracle = xml_of(document.get(), *cls, true);
  const Written streamed = xml_of(document.get(), *cls, false);
  if (oracle == streamed) return 0;
  size_t at = 0;
  while (at < oracle.text.size() && at < streamed.text.size() && oracle.text[at] == streamed.text[at])
    ++at;
  size_t from = at > 120 ? at - 120 : 0;
  if (const char* near = std::getenv("TIVALO_FUZZ_NEAR")) {  // where to look when one side failed
    const size_t found = (oracle.text.size() > streamed.text.size() ? oracle : streamed).text.find(
        std::wstring(near, near + std::strlen(near)));
    if (found != std::wstring::npos) from = found;
  }
  std::fprintf(stderr, "writers differ at %zu (status %x / %x)\nbinding:  %ls\nstreamed: %ls\n", at,
               unsigned(oracle.status), unsigned(streamed.status),
               oracle.text.substr(std::min(from, oracle.text.size()), 240).c_str(),
               streamed.text.substr(std::min(from, streamed.text.size()), 240).c_str());
  std::abort();
}
