// Member-record entries: one small template per accessor family. A generated class holds one entry
// per schema child and forwards each interface member to it in one line, so every family's
// behaviour lives here and nowhere else.
#pragma once

#include "model/guard.h"
#include "model/object.h"
#include "platform/com_ptr.h"

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Morvek::Tivalo {

// Set while the load step creates an object that it fills at once: the object's required
// children would only be replaced by the loaded ones, so they are not created.
inline thread_local bool creating_for_load = false;

// A single object child: one counted reference, null while absent. Children are shared, not
// copied: a put stores the caller's object itself and a get hands out the live child.
template <class Interface>
class ObjectEntry {
 public:
  bool present() const { return bool(child_); }
  Interface* child() const { return child_.get(); }

  // A required child is created with its parent, unless the load step is about to fill it.
  HRESULT create() { return creating_for_load ? S_OK : make(); }

  // An absent optional child is created on first read, so that a client can fill a new child by
  // reading the property and setting values on what it gets.
  HRESULT get(Interface** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!child_) {
      HRESULT hr = make();
      if (FAILED(hr)) return hr;
    }
    *out = child_.get();
    (*out)->AddRef();
    return S_OK;
  }

  HRESULT put(Interface* object) {
    if (!object) return E_POINTER;
    if (object != child_.get()) child_ = object;
    return S_OK;
  }

  HRESULT is_set(VARIANT_BOOL* out) const {
    if (!out) return E_POINTER;
    *out = child_ ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
  }

  // The load step fills a fresh record through this.
  void adopt(tivalo::ComPtr<Interface> object) { child_ = std::move(object); }

 private:
  HRESULT make() { return create_object(child_.put()); }

  tivalo::ComPtr<Interface> child_;
};

// A repeated object child: an ordered list of counted references. The same object may stand in
// the list more than once.
template <class Interface>
class ObjectList {
 public:
  const std::vector<tivalo::ComPtr<Interface>>& items() const { return items_; }

  HRESULT get(LONG index, Interface** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!in_range(index)) return out_of_range();
    *out = items_[size_t(index)].get();
    (*out)->AddRef();
    return S_OK;
  }

  HRESULT add(Interface* item) {
    if (!item) return E_POINTER;
    items_.emplace_back(item);
    return S_OK;
  }

  HRESULT remove(LONG index) {
    if (!in_range(index)) return out_of_range();
    items_.erase(items_.begin() + index);
    return S_OK;
  }

  // Releases from the last item to the first.
  HRESULT clear() {
    while (!items_.empty()) items_.pop_back();
    return S_OK;
  }

  HRESULT count(LONG* out) const {
    if (!out) return E_POINTER;
    *out = LONG(items_.size());
    return S_OK;
  }

  void adopt(tivalo::ComPtr<Interface> object) { items_.push_back(std::move(object)); }

 private:
  // The index is compared as unsigned, so a negative one is out of range too.
  bool in_range(LONG index) const { return ULONG(index) < items_.size(); }

  // Out of range is not an error return: it reaches the process's invalid-parameter handler,
  // which ends the process unless a host installed one that returns.
  static HRESULT out_of_range() {
    TIVALO_INVALID_PARAMETER(index < count);
    return DISP_E_BADINDEX;
  }

  std::vector<tivalo::ComPtr<Interface>> items_;
};

// The value kinds of single value children: dates and times travel as DATE, indicators as BOOL,
// numeric, percent and rate components as R8.
enum class ValueKind { Date, Time, Indicator, Number };

template <ValueKind Kind>
using ValueType = std::conditional_t<Kind == ValueKind::Indicator, VARIANT_BOOL,
                                     std::conditional_t<Kind == ValueKind::Number, double, DATE>>;

// A single value child. The getter returns the stored value whether or not it was ever set; the
// set flag only says whether a put happened (or the document carried the value).
template <ValueKind Kind, bool Optional>
class ValueEntry {
 public:
  using Value = ValueType<Kind>;

  bool present() const { return !Optional || set_; }
  Value value() const { return value_; }

  HRESULT get(Value* out) const {
    if (!out) return E_POINTER;
    *out = value_;
    return S_OK;
  }

  HRESULT put(Value value) {
    value_ = value;
    set_ = true;
    return S_OK;
  }

  HRESULT is_set(VARIANT_BOOL* out) const {
    if (!out) return E_POINTER;
    *out = set_ ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
  }

 private:
  Value value_{};
  bool set_ = false;
};

using OptionalDate = ValueEntry<ValueKind::Date, true>;
using RequiredDate = ValueEntry<ValueKind::Date, false>;
using OptionalTime = ValueEntry<ValueKind::Time, true>;
using RequiredTime = ValueEntry<ValueKind::Time, false>;
using OptionalIndicator = ValueEntry<ValueKind::Indicator, true>;
using RequiredIndicator = ValueEntry<ValueKind::Indicator, false>;
using OptionalNumber = ValueEntry<ValueKind::Number, true>;
using RequiredNumber = ValueEntry<ValueKind::Number, false>;

// An owned BSTR that may be null: a data type's attribute or its text content.
class StringEntry {
 public:
  StringEntry() = default;
  StringEntry(StringEntry&& other) noexcept { swap(other); }
  StringEntry& operator=(StringEntry&& other) noexcept {
    swap(other);
    return *this;
  }
  ~StringEntry() { SysFreeString(value_); }

  void swap(StringEntry& other) noexcept {
    std::swap(value_, other.value_);
    std::swap(set_, other.set_);
  }

  BSTR value() const { return value_; }
  bool is_set() const { return set_; }

  // The set flag goes on first: a put of null, or one whose copy fails, still counts as set.
  HRESULT put(BSTR value) {
    set_ = true;
    if (value == value_) return S_OK;
    SysFreeString(value_);
    value_ = nullptr;
    if (!value) return S_OK;
    value_ = SysAllocStringLen(value, SysStringLen(value));
    return value_ ? S_OK : E_OUTOFMEMORY;
  }

  // The load step's put: the text of a document, set flag on. A text that no string can hold
  // fails the load instead of arriving empty.
  void assign(const std::wstring& value);

  HRESULT copy_to(BSTR* out) const {
    *out = nullptr;
    if (!value_) return S_OK;
    *out = SysAllocStringLen(value_, SysStringLen(value_));
    return *out ? S_OK : E_OUTOFMEMORY;
  }

 private:
  BSTR value_ = nullptr;
  bool set_ = false;
};

// A data type's attribute. Optional ones answer Is<A>Set; required ones are always written.
template <bool Optional>
class AttributeEntry : public StringEntry {
 public:
  bool present() const { return !Optional || is_set(); }

  HRESULT get(BSTR* out) const {
    if (!out) return E_POINTER;
    return copy_to(out);
  }

  HRESULT is_set(VARIANT_BOOL* out) const {
    if (!out) return E_POINTER;
    *out = StringEntry::is_set() ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
  }
  using StringEntry::is_set;
};

using OptionalAttribute = AttributeEntry<true>;
using RequiredAttribute = AttributeEntry<false>;

// The text content of Identifier, Code, Text and Name. Unlike the attribute getters, a get with a
// null out pointer succeeds without writing anything.
class TextContent : public StringEntry {
 public:
  HRESULT get(BSTR* out) const { return out ? copy_to(out) : S_OK; }
};

// The numeric content of Amount, Quantity and Measure.
class NumberContent {
 public:
  double value() const { return value_; }
  HRESULT get(double* out) const {
    if (!out) return E_POINTER;
    *out = value_;
    return S_OK;
  }
  HRESULT put(double value) {
    value_ = value;
    return S_OK;
  }

 private:
  double value_ = 0.0;
};

// The bytes of a BinaryObject, handed over as a VARIANT holding a SAFEARRAY of VT_UI1.
class BytesContent {
 public:
  const std::vector<unsigned char>& bytes() const { return bytes_; }
  void assign(const unsigned char* data, size_t size) { bytes_.assign(data, data + size); }

  HRESULT get(VARIANT* out) const;
  HRESULT put(VARIANT value);

 private:
  std::vector<unsigned char> bytes_;
};

}  // namespace Morvek::Tivalo
