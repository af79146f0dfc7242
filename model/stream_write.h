// The streaming writer's side of the member-record entries: one template per entry family, called
// by the generated write_to of each class, one line per child. They write what the store step and
// the binding's serializer together make of the same entries, with the same refusals.
#pragma once

#include "model/carried_dom.h"
#include "model/convert.h"
#include "model/document.h"
#include "model/xml_writer.h"

#include <cstdio>
#include <string_view>

namespace Morvek::Tivalo {

template <class Interface>
void write_object(XmlWriter& w, Interface* child, Prefix prefix, std::string_view name) {
  auto& impl = implementation_to_write(child);
  StoreStep step(&impl);
  w.start(prefix, name);
  impl.write_to(w);
  w.end();
}

// Optional children are written only when present, required ones always, lists item by item.
template <class Interface>
void write_child(XmlWriter& w, const ObjectEntry<Interface>& entry, Prefix prefix,
                 std::string_view name) {
  if (entry.present()) write_object(w, entry.child(), prefix, name);
}

template <class Interface>
void write_required_child(XmlWriter& w, const ObjectEntry<Interface>& entry, Prefix prefix,
                          std::string_view name) {
  write_object(w, entry.child(), prefix, name);
}

template <class Interface>
void write_child(XmlWriter& w, const ObjectList<Interface>& list, Prefix prefix,
                 std::string_view name) {
  for (const auto& item : list.items()) write_object(w, item.get(), prefix, name);
}

// Dates as YYYY-MM-DD and times as hh:mm:ss without a zone; indicators true only for exactly
// VARIANT_TRUE; numbers in plain decimal notation.
template <ValueKind Kind>
void write_value(XmlWriter& w, ValueType<Kind> value) {
  char text[32];
  if constexpr (Kind == ValueKind::Date) {
    const CalendarDate d = date_of(value);
    std::snprintf(text, sizeof text, "%04d-%02u-%02u", d.year, unsigned(d.month), unsigned(d.day));
    w.plain_text(text);
  } else if constexpr (Kind == ValueKind::Time) {
    const ClockTime t = time_of(value);
    std::snprintf(text, sizeof text, "%02u:%02u:%02u", unsigned(t.hours), unsigned(t.minutes),
                  unsigned(t.seconds));
    w.plain_text(text);
  } else if constexpr (Kind == ValueKind::Indicator) {
    w.plain_text(value == VARIANT_TRUE ? "true" : "false");
  } else {
    w.number(value);
  }
}

template <ValueKind Kind, bool Optional>
void write_child(XmlWriter& w, const ValueEntry<Kind, Optional>& entry, Prefix prefix,
                 std::string_view name) {
  if (!entry.present()) return;
  w.start(prefix, name);
  write_value<Kind>(w, entry.value());
  w.end();
}

// Data-type attributes and content. A null string is written as an empty one.
template <bool Optional>
void write_attribute(XmlWriter& w, const AttributeEntry<Optional>& entry, std::string_view name) {
  if (entry.present()) w.attribute(name, entry.value(), SysStringLen(entry.value()));
}

inline void write_content(XmlWriter& w, const TextContent& content) {
  w.text(content.value(), SysStringLen(content.value()));
}
inline void write_content(XmlWriter& w, const NumberContent& content) { w.number(content.value()); }

inline void write_content(XmlWriter& w, const BytesContent& content) {
  w.base64(content.bytes().data(), content.bytes().size());
}

// Extension content: the element kept on reading, written node by node.
template <class Binding>
void write_carried(XmlWriter& w, const CarriedElement& carried, Prefix prefix,
                   std::string_view name) {
  w.start(prefix, name);
  if (const tree::type* element = carried.element()) {
    const auto& content = dynamic_cast<const Binding&>(*element);
    if (content.any()) w.dom_element(*content.any());
  }
  w.end();
}

// Extension content kept without a binding (CarriedDom).
inline void write_carried(XmlWriter& w, const CarriedDom& carried, Prefix prefix,
                          std::string_view name) {
  w.start(prefix, name);
  if (const xercesc::DOMElement* element = carried.element()) w.dom_element(*element);
  w.end();
}

// The whole document: declaration, root element with the namespace map, content.
template <class Impl>
void write_document_of(const Impl& document, XmlWriter& w) {
  const DocumentBinding& kind = Impl::document_binding;
  w.begin_document(kind.name, kind.namespace_uri, kind.declares_ubl20_prefixes);
  document.write_to(w);
  w.end_document();
}

}  // namespace Morvek::Tivalo
