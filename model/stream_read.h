// The rules the streaming reader (document/stream_reader.*) follows for each class: its children
// in schema order with how often each may occur and what it becomes, its attributes, its simple
// content. The generated tables are one line per child calling a template of this header, so
// the behaviour of each kind of child lives here once.
#pragma once

#include "binding/xml-schema.hxx"
#include "model/carried_dom.h"
#include "model/convert.h"
#include "model/document.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

namespace Morvek::Tivalo::StreamRead {

// The namespaces of member elements; the reader maps each element's URI to one of these.
enum class Namespace : std::uint8_t { other, cbc, cac, ext };
inline constexpr Namespace cbc = Namespace::cbc, cac = Namespace::cac, ext = Namespace::ext;

// How often a child may stand in its parent, as the binding holds it: `one` is required (its
// absence fails the read), a `sequence` takes every consecutive child of its name.
enum class Occurs : std::uint8_t { one, optional, sequence };
inline constexpr Occurs one = Occurs::one, optional = Occurs::optional,
                        sequence = Occurs::sequence;

struct Rules;

// What an object child's element fills: the record of a fresh object, and the object itself when
// nothing else holds it (a child read only for its faults, then dropped).
struct Target {
  void* record = nullptr;
  const Rules* rules = nullptr;
  tivalo::ComPtr<IUnknown> held;
};

// What one child element becomes. `keep` is false for a child whose member is already filled:
// the binding reads it (and fails on its faults) but keeps nothing of it.
struct ChildOps {
  // An object child (aggregate or data type): creates it and, when kept, stores it in the parent.
  Target (*begin)(void* parent, bool keep);
  // A value child (date, time, indicator, number): converts its text strictly, stores when kept.
  void (*value)(void* parent, std::wstring&& text, bool keep);
  // Carried content: the binding element built from the element's DOM copy.
  void (*carry)(void* parent, const xercesc::DOMElement& element, bool keep);
  // A child that the object model requires but the document may lack: created empty if absent.
  void (*complete)(void* parent);
};

struct MemberRule {
  std::string_view name;  // local name; UBL's names are ASCII
  Namespace ns;
  Occurs occurs;
  const ChildOps* child;
  // The element's schema type in its namespace, where it is not "<name>Type"
  // (cac:AccountingSupplierParty is of cac:SupplierPartyType): what xsi:type may name.
  std::string_view type = {};
};

// A data type's attribute: taken by its unqualified name, its whitespace handled as the binding's
// attribute type does.
struct AttributeRule {
  std::string_view name;
  bool required;
  void (*assign)(void* record, std::wstring&& value);
};

struct Rules {
  const MemberRule* members = nullptr;
  std::size_t member_count = 0;
  const AttributeRule* attributes = nullptr;
  std::size_t attribute_count = 0;
  // Simple content (data types): converts the element's text into the record.
  void (*content)(void* record, std::wstring&& text) = nullptr;

  template <std::size_t N>
  constexpr explicit Rules(const MemberRule (&m)[N]) : members(m), member_count(N) {}
  template <std::size_t N>
  constexpr Rules(const AttributeRule (&a)[N], void (*c)(void*, std::wstring&&))
      : attributes(a), attribute_count(N), content(c) {}
  constexpr explicit Rules(void (*c)(void*, std::wstring&&)) : content(c) {}
};

// The rules of each class, specialised by the generated tables (model/stream_rules.h).
template <class Impl>
const Rules& rules_of();

// A document class's rules and how a record read for it becomes the document's content.
struct DocumentRules {
  const DocumentBinding* binding;
  const Rules* rules;
  void* (*fresh_record)();
  void (*discard_record)(void* record);
  void (*adopt_record)(DocumentContent& document, void* record);
};

// The document classes' rules, generated; null for a binding that has none.
const DocumentRules* document_rules(const DocumentBinding& binding);

template <class Impl>
void* fresh_record() {
  return new typename Impl::Record();
}
template <class Impl>
void discard_record(void* record) {
  delete static_cast<typename Impl::Record*>(record);
}
// The read record replaces the document's whole content at once.
template <class Impl>
void adopt_record(DocumentContent& document, void* record) {
  static_cast<Impl&>(document).m = std::move(*static_cast<typename Impl::Record*>(record));
}
template <class Impl>
DocumentRules document_rules_of() {
  return {&Impl::document_binding, &rules_of<Impl>(), &fresh_record<Impl>, &discard_record<Impl>,
          &adopt_record<Impl>};
}

// ---- Value conversions: the binding's own strict readers (binding/values.*) --------------------

DATE date_from_text(const std::wstring& text);
DATE time_from_text(const std::wstring& text);
VARIANT_BOOL indicator_from_text(const std::wstring& text);
double decimal_from_text(const std::wstring& text);
double double_from_text(const std::wstring& text);
void bytes_from_text(BytesContent& content, const std::wstring& text);

// ---- Templates the generated tables call --------------------------------------------------------

template <auto Field>
struct FieldOf;
template <class Record, class Entry, Entry Record::*Field>
struct FieldOf<Field> {
  using record = Record;
  using entry = Entry;
  static Entry& of(void* record) { return static_cast<Record*>(record)->*Field; }
};

// What kind of entry a member record field is.
template <class Entry>
struct EntryTraits {
  static constexpr bool is_object = false, is_list = false;
};
template <class I>
struct EntryTraits<ObjectEntry<I>> {
  static constexpr bool is_object = true, is_list = false;
  using interface_type = I;
};
template <class I>
struct EntryTraits<ObjectList<I>> {
  static constexpr bool is_object = false, is_list = true;
  using interface_type = I;
};
template <ValueKind Kind, bool Optional>
struct EntryTraits<ValueEntry<Kind, Optional>> {
  static constexpr bool is_object = false, is_list = false;
  static constexpr ValueKind kind = Kind;
};

// A fresh object of the child's class, created the way the load step creates its objects.
template <class Interface>
Target new_child(tivalo::ComPtr<Interface>& child) {
  using Impl = typename ClassOf<Interface>::type;
  if (FAILED(create_for_load(child.put())))
    throw std::runtime_error("the component could not create a child object");
  Impl* impl = implementation_of<Impl>(child.get());
  return Target{&impl->m, &rules_of<Impl>(), {}};
}

template <class Interface>
Target new_held_child() {
  tivalo::ComPtr<Interface> child;
  Target target = new_child(child);
  target.held = tivalo::ComPtr<IUnknown>(static_cast<IUnknown*>(child.get()));
  return target;
}

template <auto Field>
Target begin_object(void* parent, bool keep) {
  using Interface = typename EntryTraits<typename FieldOf<Field>::entry>::interface_type;
  if (!keep) return new_held_child<Interface>();
  tivalo::ComPtr<Interface> child;
  Target target = new_child(child);
  FieldOf<Field>::of(parent).adopt(std::move(child));
  return target;
}

template <auto Field>
void complete_object(void* parent) {
  auto& entry = FieldOf<Field>::of(parent);
  if (!entry.present() && FAILED(entry.create()))
    throw std::runtime_error("the component could not create a child object");
}

template <ValueKind Kind>
ValueType<Kind> value_from_text(const std::wstring& text) {
  if constexpr (Kind == ValueKind::Date) return date_from_text(text);
  else if constexpr (Kind == ValueKind::Time) return time_from_text(text);
  else if constexpr (Kind == ValueKind::Indicator) return indicator_from_text(text);
  else return decimal_from_text(text);
}

template <auto Field>
void read_value(void* parent, std::wstring&& text, bool keep) {
  constexpr ValueKind kind = EntryTraits<typename FieldOf<Field>::entry>::kind;
  const auto value = value_from_text<kind>(text);
  if (keep) FieldOf<Field>::of(parent).put(value);
}

template <auto Field, class Binding>
void carry_element(void* parent, const xercesc::DOMElement& element, bool keep) {
  const Binding parsed(element, 0, nullptr);
  if (keep) FieldOf<Field>::of(parent).keep(parsed);
}

template <auto Field, bool MadeWhenAbsent>
inline constexpr ChildOps child_ops = [] {
  using Entry = typename FieldOf<Field>::entry;
  ChildOps ops{};
  if constexpr (EntryTraits<Entry>::is_object) {
    ops.begin = &begin_object<Field>;
    if constexpr (MadeWhenAbsent) ops.complete = &complete_object<Field>;
  } else if constexpr (EntryTraits<Entry>::is_list) {
    ops.begin = &begin_object<Field>;
  } else {
    ops.value = &read_value<Field>;
  }
  return ops;
}();

// One child of a class, in schema order.
template <Occurs How, auto Field>
constexpr MemberRule member(Namespace ns, std::string_view name,
                            std::string_view type = {}) {
  return {name, ns, How, &child_ops<Field, false>, type};
}

// A child the object model requires although documents may omit it: created empty when absent.
template <Occurs How, auto Field>
constexpr MemberRule member_made_when_absent(Namespace ns, std::string_view name,
                                             std::string_view type = {}) {
  return {name, ns, How, &child_ops<Field, true>, type};
}

// Content the interface does not expose but a document must not lose (CarriedElement).
template <auto Field, class Binding>
inline constexpr ChildOps carried_ops = {nullptr, nullptr, &carry_element<Field, Binding>, nullptr};

template <Occurs How, auto Field, class Binding>
constexpr MemberRule carried(Namespace ns, std::string_view name,
                             std::string_view type = {}) {
  return {name, ns, How, &carried_ops<Field, Binding>, type};
}

// The same content where no binding holds it (CarriedDom): its element copied as it was read. A
// copy that is not kept is still made, so that its faults fail the read as a kept one's would.
template <auto Field>
void carry_dom(void* parent, const xercesc::DOMElement& element, bool keep) {
  CarriedDom copy;
  copy.keep(element);
  if (keep) FieldOf<Field>::of(parent) = std::move(copy);
}
template <auto Field>
inline constexpr ChildOps carried_dom_ops = {nullptr, nullptr, &carry_dom<Field>, nullptr};

template <Occurs How, auto Field>
constexpr MemberRule carried_dom(Namespace ns, std::string_view name,
                                 std::string_view type = {}) {
  return {name, ns, How, &carried_dom_ops<Field>, type};
}

// A child the binding reads (and fails on) but the object model has no member for.
template <class Interface>
Target begin_dropped(void*, bool) {
  return new_held_child<Interface>();
}
template <class Interface>
inline constexpr ChildOps dropped_ops = {&begin_dropped<Interface>, nullptr, nullptr, nullptr};

template <Occurs How, class Interface>
constexpr MemberRule dropped(Namespace ns, std::string_view name,
                             std::string_view type = {}) {
  return {name, ns, How, &dropped_ops<Interface>, type};
}

// Whitespace of a string as the binding's type of it handles it: kept (string), each tab, line
// feed and carriage return made a space (normalizedString), collapsed (token, language) or
// trimmed (anyURI). The binding's own string types do it; each is a std::wstring.
template <class Binding, class Entry>
void assign_as(Entry& entry, std::wstring&& text) {
  if constexpr (std::is_same_v<Binding, xml_schema::string>) entry.assign(text);
  else entry.assign(Binding(text, nullptr, 0, nullptr));
}

template <auto Field, class Binding>
void assign_attribute(void* record, std::wstring&& value) {
  assign_as<Binding>(FieldOf<Field>::of(record), std::move(value));
}

template <auto Field, class Binding, bool Required>
constexpr AttributeRule attribute(std::string_view name) {
  return {name, Required, &assign_attribute<Field, Binding>};
}

// A data type's simple content, read as the binding's base type of it reads it.
template <auto Field, class Binding>
void read_content(void* record, std::wstring&& text) {
  auto& entry = FieldOf<Field>::of(record);
  using Entry = std::remove_reference_t<decltype(entry)>;
  if constexpr (std::is_same_v<Entry, TextContent>) {
    if constexpr (std::is_base_of_v<xml_schema::normalized_string, Binding>)
      assign_as<xml_schema::normalized_string>(entry, std::move(text));
    else
      entry.assign(text);
  } else if constexpr (std::is_same_v<Entry, NumberContent>) {
    using Double = tree::fundamental_base<double, wchar_t, xml_schema::simple_type,
                                          tree::schema_type::double_>;
    entry.put(std::is_base_of_v<Double, Binding> ? double_from_text(text)
                                                 : decimal_from_text(text));
  } else {
    bytes_from_text(entry, text);
  }
}

}  // namespace Morvek::Tivalo::StreamRead
