#include "cli/late_binding.h"

#include "cli/text.h"

#include <algorithm>
#include <cstdio>

namespace tivalo::cli {
namespace {

// The standard failures of late binding, in words; other codes are shown as numbers.
std::wstring describe(HRESULT status) {
  switch (status) {
    case DISP_E_MEMBERNOTFOUND: return L"member not found";
    case DISP_E_UNKNOWNNAME: return L"unknown name";
    case DISP_E_TYPEMISMATCH: return L"type mismatch";
    case DISP_E_BADPARAMCOUNT: return L"wrong number of arguments";
    case DISP_E_BADINDEX: return L"index out of range";
    case REGDB_E_CLASSNOTREG: return L"class not registered";
    case CO_E_CLASSSTRING: return L"invalid class string";
    case E_OUTOFMEMORY: return L"out of memory";
    default: break;
  }
  wchar_t text[32];
  std::swprintf(text, 32, L"failed with 0x%08X", static_cast<unsigned>(status));
  return text;
}

// The description of a failed Invoke: the exception record when there is one, else the
// thread's error information, else the status in words.
std::wstring failure_message(HRESULT status, EXCEPINFO& exception) {
  if (status == DISP_E_EXCEPTION && exception.pfnDeferredFillIn) exception.pfnDeferredFillIn(&exception);
  Bstr description = Bstr::attach(exception.bstrDescription);
  SysFreeString(exception.bstrSource);
  SysFreeString(exception.bstrHelpFile);
  if (!description.empty()) return description.str();
  if (status != DISP_E_EXCEPTION) return describe(status);
  ComPtr<IErrorInfo> info;
  if (GetErrorInfo(0, info.put()) == S_OK && info) {
    Bstr text;
    if (SUCCEEDED(info->GetDescription(text.put())) && !text.empty()) return text.str();
  }
  // A member's own failure travels in scode.
  return describe(FAILED(exception.scode) ? exception.scode : status);
}

}  // namespace

Variant::Variant(const std::wstring& text) : Variant() {
  value_.vt = VT_BSTR;
  value_.bstrVal = Bstr(text).detach();
}

Variant::Variant(LONG number) : Variant() {
  value_.vt = VT_I4;
  value_.lVal = number;
}

Variant::Variant(Variant&& other) noexcept : value_(other.value_) { VariantInit(&other.value_); }

std::wstring Variant::text() const {
  if (value_.vt == VT_BSTR) return value_.bstrVal ? std::wstring(value_.bstrVal, SysStringLen(value_.bstrVal)) : L"";
  return {};
}

ComPtr<IDispatch> Variant::object() const {
  return value_.vt == VT_DISPATCH ? ComPtr<IDispatch>(value_.pdispVal) : nullptr;
}

ComponentError::ComponentError(HRESULT status, std::wstring message)
    : std::runtime_error(to_utf8(message)), status_(status), message_(std::move(message)) {}

LateBound LateBound::create(const std::wstring& progid) {
  CLSID clsid;
  HRESULT status = CLSIDFromProgID(progid.c_str(), &clsid);
  if (FAILED(status)) throw ComponentError(status, L"no class " + progid);
  ComPtr<IDispatch> object;
  status = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch, object.put_void());
  if (FAILED(status)) throw ComponentError(status, progid + L": " + describe(status));
  return LateBound(std::move(object));
}

DISPID LateBound::find(const std::wstring& name) const {
  std::wstring copy = name;
  LPOLESTR names[] = {&copy[0]};
  DISPID id = DISPID_UNKNOWN;
  if (FAILED(object_->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id))) return DISPID_UNKNOWN;
  return id;
}

DISPID LateBound::id_of(const std::wstring& name) const {
  DISPID id = find(name);
  if (id == DISPID_UNKNOWN) throw ComponentError(DISP_E_UNKNOWNNAME, L"no member " + name);
  return id;
}

Variant LateBound::get(DISPID member) const {
  std::vector<Variant> none;
  return invoke(member, DISPATCH_PROPERTYGET, none);
}

void LateBound::put(const std::wstring& name, Variant value) const {
  std::vector<Variant> arguments;
  arguments.push_back(std::move(value));
  invoke(id_of(name), DISPATCH_PROPERTYPUT, arguments);
}

Variant LateBound::call(DISPID member, std::vector<Variant> arguments) const {
  return invoke(member, DISPATCH_METHOD, arguments);
}

Variant LateBound::invoke(DISPID member, WORD flags, std::vector<Variant>& arguments) const {
  // IDispatch takes the arguments last first.
  std::vector<VARIANTARG> reversed;
  for (auto it = arguments.rbegin(); it != arguments.rend(); ++it) reversed.push_back(**it);
  DISPID property_put = DISPID_PROPERTYPUT;
  DISPPARAMS parameters{reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
  if (flags == DISPATCH_PROPERTYPUT) {
    parameters.rgdispidNamedArgs = &property_put;
    parameters.cNamedArgs = 1;
  }
  Variant result;
  EXCEPINFO exception{};
  UINT argument_error = 0;
  HRESULT status = object_->Invoke(member, IID_NULL, LOCALE_USER_DEFAULT, flags, &parameters,
                                   flags == DISPATCH_PROPERTYPUT ? nullptr : result.get(),
                                   &exception, &argument_error);
  if (FAILED(status)) throw ComponentError(status, failure_message(status, exception));
  return result;
}

}  // namespace tivalo::cli
