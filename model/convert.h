// The document boundary: converting member-record entries to binding elements (store step) and
// binding elements to entries (load step). One overload per entry kind and binding container;
// the generated converters are one line per schema child.
#pragma once

#include "model/entries.h"
#include "model/xml_platform.h"

#include <xsd/cxx/tree/containers.hxx>
#include <xsd/cxx/tree/date-time.hxx>
#include <xsd/cxx/tree/elements.hxx>
#include <xsd/cxx/xml/dom/auto-ptr.hxx>
#include <xsd/cxx/xml/elements.hxx>

#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

namespace Morvek::Tivalo {

namespace tree = xsd::cxx::tree;

// Value conversions between the automation types and the binding's simple types.
struct CalendarDate {
  int year;
  unsigned short month, day;
};
struct ClockTime {
  unsigned short hours, minutes;
  double seconds;
};
CalendarDate date_of(DATE value);
ClockTime time_of(DATE value);
DATE date_value(int year, unsigned month, unsigned day);
DATE time_value(unsigned hours, unsigned minutes, double seconds);

std::wstring wide_of(BSTR value);
BSTR bstr_of(const std::wstring& value);

// ---- Store step: entry -> binding element -------------------------------------------------------

// Marks an object's store step as under way for as long as it lives. Refuses (ContentRefused) an
// object that is already on the path, since a graph with a cycle has no document, and a path
// deeper than any document, which would exhaust the stack.
class StoreStep {
 public:
  explicit StoreStep(const void* object);
  ~StoreStep();
  StoreStep(const StoreStep&) = delete;
  StoreStep& operator=(const StoreStep&) = delete;
};

// The implementation behind a child that is about to be written (see ClassOf). An object of
// another implementation has no member record to write from.
template <class Interface>
typename ClassOf<Interface>::type& implementation_to_write(Interface* child) {
  auto* impl = implementation_of<typename ClassOf<Interface>::type>(child);
  if (!impl)
    throw ContentRefused(L"Tivalo: The document cannot be written: it holds an object of "
                         L"another implementation.");
  return *impl;
}

// A child object's store step, reached through its implementation.
template <class Binding, class Interface>
std::unique_ptr<Binding> to_binding(Interface* child) {
  auto* impl = &implementation_to_write(child);
  StoreStep step(impl);
  auto element = std::make_unique<Binding>();
  impl->store_to(*element);
  return element;
}

template <class Binding, class Interface>
std::unique_ptr<Binding> to_binding(const ObjectEntry<Interface>& entry) {
  return to_binding<Binding>(entry.child());
}

template <ValueKind Kind, class Binding>
void assign_value(Binding& element, ValueType<Kind> value) {
  if constexpr (Kind == ValueKind::Date) {
    CalendarDate d = date_of(value);
    element.year(d.year);
    element.month(d.month);
    element.day(d.day);
  } else if constexpr (Kind == ValueKind::Time) {
    ClockTime t = time_of(value);
    element.hours(t.hours);
    element.minutes(t.minutes);
    element.seconds(t.seconds);
  } else if constexpr (Kind == ValueKind::Indicator) {
    // True only when it holds exactly VARIANT_TRUE: an indicator put as 1 is written as false.
    static_cast<bool&>(element) = value == VARIANT_TRUE;
  } else {
    static_cast<double&>(element) = value;
  }
}

template <class Binding, ValueKind Kind, bool Optional>
std::unique_ptr<Binding> to_binding(const ValueEntry<Kind, Optional>& entry) {
  auto element = std::make_unique<Binding>();
  assign_value<Kind>(*element, entry.value());
  return element;
}

// Optional children are written only when present, lists item by item in order. Required children
// are written by the generated code with the binding's setter, since their accessor needs a value.
template <class Binding, class Entry>
void store(tree::optional<Binding>& target, const Entry& entry) {
  if (entry.present()) target.set(to_binding<Binding>(entry));
}

template <class Binding, class Interface>
void store(tree::sequence<Binding>& target, const ObjectList<Interface>& list) {
  for (const auto& item : list.items()) target.push_back(to_binding<Binding>(item.get()));
}

// Data-type attributes and content.
template <class Binding, bool Optional>
std::unique_ptr<Binding> to_binding(const AttributeEntry<Optional>& entry) {
  return std::make_unique<Binding>(wide_of(entry.value()));
}

inline void assign_content(std::wstring& element, const TextContent& content) {
  element = wide_of(content.value());
}
template <class Binding>
void assign_content(Binding& element, const NumberContent& content) {
  static_cast<double&>(element) = content.value();
}
template <class Buffer>
void assign_content(Buffer& element, const BytesContent& content) {
  element.size(content.bytes().size());
  if (!content.bytes().empty())
    std::copy(content.bytes().begin(), content.bytes().end(), element.data());
}

// Content that the interface does not expose but a document must not lose (the arbitrary content
// of an extension): kept as a copy of the binding element and written back as it came. The copy
// holds DOM nodes, which need the XML parser platform up.
class CarriedElement {
 public:
  void keep(const tree::type& element) {
    start_xml_platform();
    element_.reset(element._clone());
  }

  const tree::type* element() const { return element_.get(); }

  template <class Binding>
  std::unique_ptr<Binding> copy() const {
    if (!element_) return std::make_unique<Binding>();
    return std::unique_ptr<Binding>(&dynamic_cast<Binding&>(*element_->_clone()));
  }

 private:
  std::unique_ptr<tree::type> element_;
};

template <class Binding>
std::unique_ptr<Binding> to_binding(const CarriedElement& carried) {
  return carried.copy<Binding>();
}

inline void load(CarriedElement& carried, const tree::type& element) { carried.keep(element); }

// ---- Load step: binding element -> entry of a fresh record --------------------------------------

// Every element present becomes a fresh object, created through the class objects like any other.
// Creates an object for the load step to fill, without the required children it replaces anyway.
template <class Interface>
HRESULT create_for_load(Interface** out) {
  struct Creating {
    Creating() { creating_for_load = true; }
    ~Creating() { creating_for_load = false; }
  } creating;
  return create_object(out);
}

template <class Interface, class Binding>
tivalo::ComPtr<Interface> from_binding(const Binding& element) {
  tivalo::ComPtr<Interface> child;
  HRESULT hr = create_for_load(child.put());
  if (FAILED(hr)) throw std::runtime_error("the component could not create a child object");
  implementation_of<typename ClassOf<Interface>::type>(child.get())->load_from(element);
  return child;
}

template <class Interface, class Binding>
void load(ObjectEntry<Interface>& entry, const Binding& element) {
  entry.adopt(from_binding<Interface>(element));
}

template <class Interface, class Binding>
void load(ObjectEntry<Interface>& entry, const tree::optional<Binding>& element) {
  if (element) load(entry, *element);
}

// A required child that the document lacks (the schema lets a few be absent) is created empty, as
// with a new parent.
template <class Interface, class Binding>
void load_required(ObjectEntry<Interface>& entry, const Binding& element) {
  load(entry, element);
}

template <class Interface, class Binding>
void load_required(ObjectEntry<Interface>& entry, const tree::optional<Binding>& element) {
  if (element) {
    load(entry, *element);
  } else if (FAILED(entry.create())) {
    throw std::runtime_error("the component could not create a child object");
  }
}

template <class Interface, class Binding>
void load(ObjectList<Interface>& list, const tree::sequence<Binding>& elements) {
  for (const auto& element : elements) list.adopt(from_binding<Interface>(element));
}

template <ValueKind Kind, bool Optional, class Binding>
void load(ValueEntry<Kind, Optional>& entry, const Binding& element) {
  if constexpr (Kind == ValueKind::Date)
    entry.put(date_value(element.year(), element.month(), element.day()));
  else if constexpr (Kind == ValueKind::Time)
    entry.put(time_value(element.hours(), element.minutes(), element.seconds()));
  else if constexpr (Kind == ValueKind::Indicator)
    entry.put(static_cast<const bool&>(element) ? VARIANT_TRUE : VARIANT_FALSE);
  else
    entry.put(static_cast<const double&>(element));
}
template <ValueKind Kind, bool Optional, class Binding>
void load(ValueEntry<Kind, Optional>& entry, const tree::optional<Binding>& element) {
  if (element) load(entry, *element);
}

template <bool Optional>
void load(AttributeEntry<Optional>& entry, const std::wstring& value) {
  entry.assign(value);
}
template <bool Optional, class Binding>
void load(AttributeEntry<Optional>& entry, const tree::optional<Binding>& value) {
  if (value) load(entry, static_cast<const std::wstring&>(*value));
}

inline void load_content(TextContent& content, const std::wstring& element) {
  content.assign(element);
}
template <class Binding>
void load_content(NumberContent& content, const Binding& element) {
  content.put(static_cast<const double&>(element));
}
template <class Buffer>
void load_content(BytesContent& content, const Buffer& element) {
  content.assign(reinterpret_cast<const unsigned char*>(element.data()), element.size());
}

}  // namespace Morvek::Tivalo
