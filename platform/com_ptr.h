#pragma once
// tivalo::ComPtr<I>: holds one reference on an interface pointer.
#include <cstddef>
#include <type_traits>
#include <utility>

#include "platform/iid_of.h"
#include "platform/runtime.h"

namespace tivalo {

template <class I>
class ComPtr {
 public:
  ComPtr() noexcept = default;
  ComPtr(std::nullptr_t) noexcept {}
  // Takes a new reference; use attach() to adopt one the caller already owns.
  ComPtr(I* pointer) noexcept : pointer_(pointer) { add_ref(); }
  ComPtr(const ComPtr& other) noexcept : ComPtr(other.pointer_) {}
  ComPtr(ComPtr&& other) noexcept : pointer_(other.detach()) {}
  template <class J, class = std::enable_if_t<std::is_convertible_v<J*, I*>>>
  ComPtr(const ComPtr<J>& other) noexcept : ComPtr(static_cast<I*>(other.get())) {}
  ~ComPtr() { release(); }

  ComPtr& operator=(I* pointer) noexcept {
    ComPtr(pointer).swap(*this);
    return *this;
  }
  ComPtr& operator=(const ComPtr& other) noexcept { return *this = other.pointer_; }
  ComPtr& operator=(ComPtr&& other) noexcept {
    ComPtr(std::move(other)).swap(*this);
    return *this;
  }
  ComPtr& operator=(std::nullptr_t) noexcept {
    reset();
    return *this;
  }

  I* get() const noexcept { return pointer_; }
  I* operator->() const noexcept { return pointer_; }
  I& operator*() const noexcept { return *pointer_; }
  operator I*() const noexcept { return pointer_; }

  // For out-parameters: drops the current reference and exposes the slot.
  I** put() noexcept {
    reset();
    return &pointer_;
  }
  void** put_void() noexcept { return reinterpret_cast<void**>(put()); }

  // Gives up the reference without releasing it.
  I* detach() noexcept { return std::exchange(pointer_, nullptr); }
  // Adopts a reference the caller owns, without AddRef.
  void attach(I* pointer) noexcept {
    release();
    pointer_ = pointer;
  }
  void reset() noexcept { release(); }
  void swap(ComPtr& other) noexcept { std::swap(pointer_, other.pointer_); }

  // Hands a new reference to an out-parameter.
  HRESULT copy_to(I** out) const noexcept {
    if (!out) return E_POINTER;
    *out = pointer_;
    add_ref();
    return S_OK;
  }

  // QueryInterface for J; null when the object does not have it.
  template <class J>
  ComPtr<J> as() const noexcept {
    ComPtr<J> result;
    as(result);
    return result;
  }
  template <class J>
  HRESULT as(ComPtr<J>& result) const noexcept {
    if (!pointer_) {
      result.reset();
      return E_POINTER;
    }
    return pointer_->QueryInterface(iid_of<J>(), result.put_void());
  }

 private:
  void add_ref() const noexcept {
    if (pointer_) pointer_->AddRef();
  }
  void release() noexcept {
    if (I* old = std::exchange(pointer_, nullptr)) old->Release();
  }

  I* pointer_ = nullptr;
};

}  // namespace tivalo
