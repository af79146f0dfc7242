#pragma once
// tivalo::Bstr: owns one BSTR (null for the empty string until something is stored).
#include <string>
#include <utility>

#include "platform/runtime.h"

namespace tivalo {

class Bstr {
 public:
  Bstr() noexcept = default;
  explicit Bstr(const wchar_t* text) : value_(SysAllocString(text)) {}
  Bstr(const wchar_t* text, UINT length) : value_(SysAllocStringLen(text, length)) {}
  explicit Bstr(const std::wstring& text) : Bstr(text.data(), UINT(text.size())) {}
  Bstr(const Bstr& other) : value_(other.copy()) {}
  Bstr(Bstr&& other) noexcept : value_(other.detach()) {}
  ~Bstr() { SysFreeString(value_); }

  Bstr& operator=(const Bstr& other) {
    if (this != &other) Bstr(other).swap(*this);
    return *this;
  }
  Bstr& operator=(Bstr&& other) noexcept {
    Bstr(std::move(other)).swap(*this);
    return *this;
  }

  // Adopts a BSTR the caller owns.
  static Bstr attach(BSTR value) noexcept {
    Bstr result;
    result.value_ = value;
    return result;
  }

  BSTR get() const noexcept { return value_; }
  // For out-parameters: frees the current string and exposes the slot.
  BSTR* put() noexcept {
    reset();
    return &value_;
  }
  BSTR detach() noexcept { return std::exchange(value_, nullptr); }
  void reset() noexcept { SysFreeString(std::exchange(value_, nullptr)); }
  void swap(Bstr& other) noexcept { std::swap(value_, other.value_); }

  // A new BSTR with the same text (embedded NULs kept), for the caller to own.
  BSTR copy() const { return value_ ? SysAllocStringLen(value_, length()) : nullptr; }
  // Hands a copy to an out-parameter: E_POINTER for a null slot, E_OUTOFMEMORY on failure.
  HRESULT copy_to(BSTR* out) const {
    if (!out) return E_POINTER;
    *out = copy();
    return (*out || !value_) ? S_OK : E_OUTOFMEMORY;
  }

  UINT length() const noexcept { return SysStringLen(value_); }
  bool empty() const noexcept { return length() == 0; }
  std::wstring str() const { return value_ ? std::wstring(value_, length()) : std::wstring(); }

  friend bool operator==(const Bstr& a, const Bstr& b) { return a.str() == b.str(); }
  friend bool operator!=(const Bstr& a, const Bstr& b) { return !(a == b); }

 private:
  BSTR value_ = nullptr;
};

}  // namespace tivalo
