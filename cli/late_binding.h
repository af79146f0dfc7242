// Automation objects used the way a script host uses them: created by program identifier,
// members reached by name or DISPID through IDispatch::Invoke.
#pragma once

#include "platform/automation.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace tivalo::cli {

// A VARIANT that owns what it holds.
class Variant {
 public:
  Variant() { VariantInit(&value_); }
  explicit Variant(const std::wstring& text);
  explicit Variant(LONG number);
  Variant(Variant&& other) noexcept;
  Variant& operator=(Variant&&) = delete;
  Variant(const Variant&) = delete;
  ~Variant() { VariantClear(&value_); }

  VARIANT* get() { return &value_; }
  const VARIANT& operator*() const { return value_; }
  const VARIANT* operator->() const { return &value_; }

  // The text of a VT_BSTR (empty for VT_EMPTY or VT_NULL).
  std::wstring text() const;
  bool truth() const { return value_.vt == VT_BOOL && value_.boolVal != VARIANT_FALSE; }
  LONG number() const { return value_.vt == VT_I4 ? value_.lVal : 0; }
  // The object of a VT_DISPATCH, null for anything else.
  ComPtr<IDispatch> object() const;

 private:
  VARIANT value_;
};

// A call the component refused, with the description it gave.
class ComponentError : public std::runtime_error {
 public:
  ComponentError(HRESULT status, std::wstring message);
  HRESULT status() const { return status_; }
  const std::wstring& message() const { return message_; }

 private:
  HRESULT status_;
  std::wstring message_;
};

// Arguments for LateBound::call, each text as a VT_BSTR.
template <class... Texts>
std::vector<Variant> text_arguments(const Texts&... texts) {
  std::vector<Variant> arguments;
  (arguments.emplace_back(std::wstring(texts)), ...);
  return arguments;
}

class LateBound {
 public:
  explicit LateBound(ComPtr<IDispatch> object) : object_(std::move(object)) {}
  // A new object of "TivaloCOM.<name>"-style program identifier. Throws ComponentError.
  static LateBound create(const std::wstring& progid);

  IDispatch* dispatch() const { return object_.get(); }
  // DISPID_UNKNOWN when the object has no member of that name.
  DISPID find(const std::wstring& name) const;

  Variant get(DISPID member) const;
  Variant get(const std::wstring& name) const { return get(id_of(name)); }
  void put(const std::wstring& name, Variant value) const;
  // Arguments in the order the member declares them.
  Variant call(DISPID member, std::vector<Variant> arguments) const;
  Variant call(const std::wstring& name, std::vector<Variant> arguments) const {
    return call(id_of(name), std::move(arguments));
  }

 private:
  DISPID id_of(const std::wstring& name) const;
  Variant invoke(DISPID member, WORD flags, std::vector<Variant>& arguments) const;

  ComPtr<IDispatch> object_;
};

}  // namespace tivalo::cli
