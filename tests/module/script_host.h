// What a script host does with the library: creates objects by ProgID through the exported
// entry points and drives them by name through IDispatch alone.
#pragma once

#include "module/entry_points.h"
#include "platform/automation.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace script {

// A VARIANT that clears itself.
struct Var : VARIANT {
  Var() { VariantInit(this); }
  Var(const Var& other) : Var() { VariantCopy(this, &other); }
  Var& operator=(const Var& other) {
    if (this != &other) VariantCopy(this, &other);
    return *this;
  }
  ~Var() { VariantClear(this); }

  static Var text(const wchar_t* value) {
    Var v;
    v.vt = VT_BSTR;
    v.bstrVal = SysAllocString(value);
    return v;
  }
  static Var i4(LONG value) {
    Var v;
    v.vt = VT_I4;
    v.lVal = value;
    return v;
  }
  static Var r8(double value) {
    Var v;
    v.vt = VT_R8;
    v.dblVal = value;
    return v;
  }
  static Var object(IDispatch* value) {
    Var v;
    v.vt = VT_DISPATCH;
    v.pdispVal = value;
    if (value) value->AddRef();
    return v;
  }
  std::wstring as_text() const {
    return vt == VT_BSTR && bstrVal ? std::wstring(bstrVal, SysStringLen(bstrVal)) : L"";
  }
};

// The class factory of a ProgID, found as a host finds it.
inline tivalo::ComPtr<IClassFactory> factory_of(const wchar_t* progid) {
  CLSID clsid;
  tivalo::ComPtr<IClassFactory> factory;
  EXPECT_EQ(S_OK, CLSIDFromProgID(progid, &clsid)) << "ProgID " << std::string(progid, progid + wcslen(progid));
  EXPECT_EQ(S_OK, DllGetClassObject(clsid, IID_IClassFactory, factory.put_void()));
  return factory;
}

inline tivalo::ComPtr<IDispatch> create(const wchar_t* progid) {
  tivalo::ComPtr<IDispatch> object;
  if (auto factory = factory_of(progid))
    EXPECT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IDispatch, object.put_void()));
  return object;
}

inline DISPID dispid_of(IDispatch* object, const wchar_t* name) {
  LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
  DISPID id = DISPID_UNKNOWN;
  EXPECT_EQ(S_OK, object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id));
  return id;
}

// One Invoke by name; `args` in declaration order (reversed into DISPPARAMS as hosts do).
struct Call {
  HRESULT hr = E_FAIL;
  Var result;
  EXCEPINFO exception{};
  UINT arg_error = UINT(-1);
  ~Call() {
    SysFreeString(exception.bstrSource);
    SysFreeString(exception.bstrDescription);
    SysFreeString(exception.bstrHelpFile);
  }
};

inline void invoke(Call& call, IDispatch* object, DISPID id, WORD flags, std::vector<Var> args) {
  std::vector<Var> reversed(args.rbegin(), args.rend());
  DISPID put = DISPID_PROPERTYPUT;
  DISPPARAMS params{reversed.data(), nullptr, UINT(reversed.size()), 0};
  if (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) {
    params.rgdispidNamedArgs = &put;
    params.cNamedArgs = 1;
  }
  call.hr = object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, &call.result,
                           &call.exception, &call.arg_error);
}

inline Var get(IDispatch* object, const wchar_t* name) {
  Call call;
  invoke(call, object, dispid_of(object, name), DISPATCH_PROPERTYGET | DISPATCH_METHOD, {});
  EXPECT_EQ(S_OK, call.hr) << "get " << std::string(name, name + wcslen(name));
  return call.result;
}

inline tivalo::ComPtr<IDispatch> get_object(IDispatch* object, const wchar_t* name) {
  Var value = get(object, name);
  EXPECT_EQ(VT_DISPATCH, value.vt);
  return value.vt == VT_DISPATCH ? tivalo::ComPtr<IDispatch>(value.pdispVal) : nullptr;
}

inline void put(IDispatch* object, const wchar_t* name, const Var& value) {
  Call call;
  invoke(call, object, dispid_of(object, name), DISPATCH_PROPERTYPUT, {value});
  EXPECT_EQ(S_OK, call.hr) << "put " << std::string(name, name + wcslen(name));
}

inline Var call(IDispatch* object, const wchar_t* name, std::vector<Var> args) {
  Call call;
  invoke(call, object, dispid_of(object, name), DISPATCH_METHOD, std::move(args));
  EXPECT_EQ(S_OK, call.hr) << "call " << std::string(name, name + wcslen(name));
  return call.result;
}

}  // namespace script
