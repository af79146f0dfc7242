#include "model/xml_writer.h"

#include "binding/namespaces.h"
#include "binding/number_text.h"
#include "binding/xml-schema.hxx"
#include "document/markup_limits.h"
#include "model/guard.h"

#include <iterator>

#include <xercesc/dom/DOMAttr.hpp>
#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/util/Base64.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <new>

namespace Morvek::Tivalo {
namespace {

using xercesc::DOMNode;

constexpr unsigned char_line_feed = 0x0A, char_return = 0x0D, char_tab = 0x09, char_space = 0x20;

bool is_high_surrogate(unsigned u) { return u >= 0xD800 && u <= 0xDBFF; }
bool is_low_surrogate(unsigned u) { return u >= 0xDC00 && u <= 0xDFFF; }
bool is_xml_character(unsigned u) {
  return u == char_tab || u == char_line_feed || u == char_return ||
         (u >= 0x20 && u <= 0xD7FF) || (u >= 0xE000 && u <= 0xFFFD);
}
bool is_space(unsigned u) {
  return u == char_space || u == char_tab || u == char_line_feed || u == char_return;
}

// The UTF-16 code units of a text, as the binding's transcoding makes them from wide characters:
// on systems with a 32-bit wchar_t a character with bits above the lowest 16 becomes a pair.
template <class Char, class Sink>
void for_each_unit(const Char* text, std::size_t length, Sink&& sink) {
  for (std::size_t i = 0; i < length; ++i) {
    const Char c = text[i];
    if constexpr (sizeof(Char) == 4) {
      if (c & 0xFFFF0000) {
        // Wider arithmetic than the binding's for the same units, without its overflow near the
        // most negative wchar_t.
        if (!sink(static_cast<char16_t>(((std::int64_t(c) - 0x10000) >> 10) + 0xD800))) return;
        if (!sink(static_cast<char16_t>((c & 0x3FF) + 0xDC00))) return;
        continue;
      }
    }
    if (!sink(static_cast<char16_t>(c))) return;
  }
}

void append_utf8(std::string& out, unsigned code) {
  if (code < 0x80) {
    out += static_cast<char>(code);
  } else if (code < 0x800) {
    out += static_cast<char>(0xC0 | (code >> 6));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    out += static_cast<char>(0xE0 | (code >> 12));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (code >> 18));
    out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  }
}

std::wstring wide_of(const XMLCh* text) {
  std::wstring wide;
  for (const XMLCh* c = text; c && *c; ++c) wide += wchar_t(*c);
  return wide;
}

std::string utf8_of(const XMLCh* text) {
  std::string bytes;
  for (const XMLCh* c = text; c && *c; ++c) {
    if (is_high_surrogate(*c) && is_low_surrogate(c[1])) {
      append_utf8(bytes, 0x10000 + ((unsigned(*c) - 0xD800) << 10) + (unsigned(c[1]) - 0xDC00));
      ++c;
    } else {
      append_utf8(bytes, *c);
    }
  }
  return bytes;
}

bool equal(const XMLCh* a, const XMLCh* b) { return xercesc::XMLString::equals(a, b); }
bool empty(const XMLCh* text) { return !text || !*text; }
std::size_t length_of(const XMLCh* text) { return xercesc::XMLString::stringLen(text); }

// Node names compared as the DOM orders an element's attributes: by UTF-16 code unit.
bool name_before(const DOMNode* a, const DOMNode* b) {
  return xercesc::XMLString::compareString(a->getNodeName(), b->getNodeName()) < 0;
}

}  // namespace

unsigned forbidden_character(const XMLCh* text) {
  for (const XMLCh* c = text; c && *c; ++c) {
    const unsigned u = *c;
    if (is_high_surrogate(u) && is_low_surrogate(c[1])) {
      ++c;
      continue;
    }
    if (!is_xml_character(u)) return u;
  }
  return 0;
}

std::wstring too_deep_message() {
  return L"Tivalo: The document cannot be written: it nests elements more than " +
         std::to_wstring(max_element_depth) + L" deep, and such documents are not read.";
}

std::wstring forbidden_character_message(unsigned character, const std::wstring& holder) {
  wchar_t code[16];
  std::swprintf(code, 16, L"U+%04X", character);
  return L"Tivalo: The document cannot be written: " + holder +
         L" holds a character that XML 1.0 cannot carry (" + code + L").";
}

// ---- The serializer's layout --------------------------------------------------------------------

void XmlWriter::new_line() {
  ++line_;
  out_ += '\n';
}

// Whitespace-only text that ended in a line feed already indented the next line: the indentation
// is reduced by one level per two characters after that line feed.
void XmlWriter::indent(unsigned level) {
  if (white_space_after_line_feed_) {
    const unsigned written = white_space_after_line_feed_ / 2;
    white_space_after_line_feed_ = 0;
    level = written < level ? level - written : 0;
  }
  out_.append(2 * std::size_t(level), ' ');
}

// The start tag of the element whose child comes next is closed now.
void XmlWriter::child_starts() {
  if (!frames_.empty() && frames_.back().start_tag_open) {
    out_ += '>';
    frames_.back().start_tag_open = false;
  }
}

void XmlWriter::open_element() {
  child_starts();
  if (!line_feed_in_text_) new_line();
  else line_feed_in_text_ = false;
  indent(unsigned(frames_.size()));
}

void XmlWriter::write_name(const Frame& frame) {
  if (!frame.dom_name.empty()) {
    out_ += frame.dom_name;
  } else {
    out_ += prefix_name(frame.prefix);
    out_ += ':';
    out_ += frame.local_name;
  }
}

void XmlWriter::end() {
  const Frame& frame = frames_.back();
  if (frame.start_tag_open) {
    out_ += "/>";
  } else {
    // An element whose content took more than its own line ends on a line of its own.
    if (frame.line != line_) {
      if (!line_feed_in_text_) new_line();
      else line_feed_in_text_ = false;
      indent(unsigned(frames_.size() - 1));
    }
    out_ += "</";
    write_name(frame);
    out_ += '>';
  }
  if (frame.declares_namespaces) namespaces_.pop_back();
  frames_.pop_back();
}

std::string_view XmlWriter::prefix_name(Prefix prefix) const {
  switch (prefix) {
    case Prefix::cbc: return "cbc";
    case Prefix::cac: return "cac";
    case Prefix::ext: return "ext";
  }
  return {};
}

// ---- Generated elements -------------------------------------------------------------------------

void XmlWriter::begin_document(std::wstring_view root_name, std::wstring_view document_namespace,
                               bool ubl20_prefixes) {
  out_ += "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\" ?>";
  open_element();
  std::string root(root_name.begin(), root_name.end());
  out_ += '<';
  out_ += root;
  frames_.push_back({line_, true, true, Prefix::cbc, {}, root, nullptr});

  // The root's own namespace first, then the other declarations in the order of their names.
  NamespaceLevel level;
  const XmlText uri(document_namespace.begin(), document_namespace.end());
  level.push_back({XmlText(), uri, true});
  write_namespace_declaration(nullptr, uri.c_str());
  static const UBL2::PrefixMapping used[] = {
      {L"cac", UBL2::xmlns::cac}, {L"cbc", UBL2::xmlns::cbc}, {L"ext", UBL2::xmlns::ext}};
  const auto& all = UBL2::ubl_prefixes();
  const UBL2::PrefixMapping* const first = ubl20_prefixes ? all.data() : used;
  const UBL2::PrefixMapping* const last = ubl20_prefixes ? all.data() + all.size() : std::end(used);
  for (const UBL2::PrefixMapping* mapping = first; mapping != last; ++mapping) {
    const std::wstring_view prefix = mapping->prefix, bound = mapping->uri;
    level.push_back({XmlText(prefix.begin(), prefix.end()), XmlText(bound.begin(), bound.end()), true});
  }
  std::sort(level.begin() + 1, level.end(),
            [](const NamespaceBinding& a, const NamespaceBinding& b) { return a.prefix < b.prefix; });
  for (auto binding = level.begin() + 1; binding != level.end(); ++binding)
    write_namespace_declaration(binding->prefix.c_str(), binding->uri.c_str());
  namespaces_.push_back(std::move(level));
}

void XmlWriter::end_document() {
  end();
  new_line();
  if (!number_refused_.empty()) throw ContentRefused(number_refused_);
  if (!character_refused_.empty()) throw ContentRefused(character_refused_);
}

void XmlWriter::start(Prefix prefix, std::string_view local_name) {
  open_element();
  out_ += '<';
  out_ += prefix_name(prefix);
  out_ += ':';
  out_ += local_name;
  frames_.push_back({line_, true, false, prefix, local_name, {}, nullptr});
  entered();
}

// Read refuses a document nested deeper than the markup limit, so none is written.
void XmlWriter::entered() {
  if (frames_.size() > max_element_depth && character_refused_.empty())
    character_refused_ = too_deep_message();
}

void XmlWriter::attribute(std::string_view name, const wchar_t* value, std::size_t length) {
  out_ += ' ';
  out_ += name;
  out_ += "=\"";
  attribute_being_written_.assign(name.begin(), name.end());
  refuse_unwritable(value, length);
  write_escaped(value, length, Escapes::Attribute);
  attribute_being_written_.clear();
  out_ += '"';
}

// An empty text makes no text node (the element is written as an empty-element tag).
void XmlWriter::text(const wchar_t* value, std::size_t length) {
  refuse_unwritable(value, length);
  if (length) write_text_node(value, length);
}

void XmlWriter::plain_text(std::string_view ascii) {
  child_starts();
  line_feed_in_text_ = false;
  white_space_after_line_feed_ = 0;
  out_ += ascii;
}

void XmlWriter::number(double value) {
  if (std::isfinite(value)) return plain_text(UBL2::plain_decimal(value));
  if (number_refused_.empty()) number_refused_ = UBL2::unwritable_number_message(value, current_holder());
  plain_text({});
}

void XmlWriter::base64(const unsigned char* bytes, std::size_t size) {
  if (!size) return;
  xercesc::MemoryManager* memory = xercesc::XMLPlatformUtils::fgMemoryManager;
  XMLSize_t length = 0;
  XMLByte* encoded = xercesc::Base64::encode(bytes, size, &length, memory);
  if (!encoded) throw std::bad_alloc();
  plain_text(std::string_view(reinterpret_cast<const char*>(encoded), length));
  memory->deallocate(encoded);
}

// ---- Characters ---------------------------------------------------------------------------------

std::wstring XmlWriter::current_holder() const {
  const Frame& frame = frames_.back();
  std::wstring element;
  if (frame.dom_node) {
    element = wide_of(frame.dom_node->getNodeName());
  } else if (!frame.dom_name.empty()) {
    element.assign(frame.dom_name.begin(), frame.dom_name.end());
  } else {
    const std::string_view prefix = prefix_name(frame.prefix);
    element.assign(prefix.begin(), prefix.end());
    element += L':';
    element.append(frame.local_name.begin(), frame.local_name.end());
  }
  if (attribute_being_written_.empty()) return element;
  return L"the attribute " + attribute_being_written_ + L" of " + element;
}

// A client's text is looked at whole first: the units written below lose a NUL (the text ends
// there, as in the DOM) and a value above U+10FFFF (two units naming another character).
void XmlWriter::refuse_unwritable(const wchar_t* text, std::size_t length) {
  if (const std::optional<char32_t> c = UBL2::unwritable_character(text, length))
    refuse_character(*c);
}

void XmlWriter::refuse_character(unsigned character) {
  if (character_refused_.empty())
    character_refused_ = forbidden_character_message(character, current_holder());
}

// The serializer's escapes: in attribute values & < " and the line ends and tabs as character
// references; in text & < > and carriage returns. Everything else is written as UTF-8. A text
// ends at its first NUL, as the DOM's does.
template <class Char>
void XmlWriter::write_escaped(const Char* text, std::size_t length, Escapes escapes) {
  unsigned high = 0;  // a high surrogate waiting for its low one
  for_each_unit(text, length, [&](char16_t unit) {
    const unsigned u = unit;
    if (u == 0) return false;
    if (high) {
      if (is_low_surrogate(u)) {
        append_utf8(out_, 0x10000 + ((high - 0xD800) << 10) + (u - 0xDC00));
        high = 0;
        return true;
      }
      refuse_character(high);
      high = 0;
    }
    if (is_high_surrogate(u)) {
      high = u;
      return true;
    }
    if (!is_xml_character(u)) {
      refuse_character(u);
      return true;
    }
    if (u >= 0x80) {
      append_utf8(out_, u);
      return true;
    }
    const char c = static_cast<char>(u);
    switch (escapes) {
      case Escapes::None: break;
      case Escapes::Attribute:
        if (c == '&') { out_ += "&amp;"; return true; }
        if (c == '<') { out_ += "&lt;"; return true; }
        if (c == '"') { out_ += "&quot;"; return true; }
        if (c == '\n') { out_ += "&#xA;"; return true; }
        if (c == '\r') { out_ += "&#xD;"; return true; }
        if (c == '\t') { out_ += "&#x9;"; return true; }
        break;
      case Escapes::Text:
        if (c == '&') { out_ += "&amp;"; return true; }
        if (c == '<') { out_ += "&lt;"; return true; }
        if (c == '>') { out_ += "&gt;"; return true; }
        if (c == '\r') { out_ += "&#xD;"; return true; }
        break;
    }
    out_ += c;
    return true;
  });
  if (high) refuse_character(high);
}

// A text node. Whitespace-only text that holds a line end is remembered: the serializer then
// starts the next element without a line end of its own and indents it less.
template <class Char>
void XmlWriter::write_text_node(const Char* text, std::size_t length) {
  child_starts();
  line_feed_in_text_ = false;
  white_space_after_line_feed_ = 0;
  std::size_t units = 0, last_line_feed = 0, last_return = 0;
  bool all_spaces = true, line_feed = false, carriage_return = false;
  for_each_unit(text, length, [&](char16_t unit) {
    if (unit == 0) return false;
    if (!is_space(unit)) {
      all_spaces = false;
      return false;
    }
    if (unit == char_line_feed) line_feed = true, last_line_feed = units;
    if (unit == char_return) carriage_return = true, last_return = units;
    ++units;
    return true;
  });
  if (all_spaces && (line_feed || carriage_return)) {
    line_feed_in_text_ = true;
    white_space_after_line_feed_ = unsigned(units - (line_feed ? last_line_feed : last_return));
  }
  write_escaped(text, length, Escapes::Text);
}

// ---- DOM content --------------------------------------------------------------------------------

bool XmlWriter::namespace_binding_active(const XMLCh* prefix, const XMLCh* uri) const {
  const XmlText key = prefix ? XmlText(prefix) : XmlText();
  for (auto level = namespaces_.rbegin(); level != namespaces_.rend(); ++level)
    for (const NamespaceBinding& binding : *level)
      if (binding.prefix == key && binding.bound) return equal(binding.uri.c_str(), uri);
  return false;
}

bool XmlWriter::default_namespace_declared() const {
  for (const NamespaceLevel& level : namespaces_)
    for (const NamespaceBinding& binding : level)
      if (binding.prefix.empty() && binding.bound) return true;
  return false;
}

XmlWriter::NamespaceLevel& XmlWriter::level_of_current(NamespaceLevel*& level) {
  if (!level) {
    namespaces_.emplace_back();
    frames_.back().declares_namespaces = true;
    level = &namespaces_.back();
  }
  return *level;
}

void XmlWriter::write_namespace_declaration(const XMLCh* prefix, const XMLCh* uri) {
  out_ += " xmlns";
  if (!empty(prefix)) {
    out_ += ':';
    out_ += utf8_of(prefix);
  }
  out_ += "=\"";
  write_escaped(uri, length_of(uri), Escapes::Attribute);
  out_ += '"';
}

void XmlWriter::write_dom_attributes(const xercesc::DOMElement& element, NamespaceLevel*& level) {
  auto bind = [&](const XMLCh* prefix, const XMLCh* uri) {
    NamespaceLevel& current = level_of_current(level);
    const XmlText key = prefix ? XmlText(prefix) : XmlText();
    const auto found = std::find_if(current.begin(), current.end(),
                                    [&](const NamespaceBinding& b) { return b.prefix == key; });
    NamespaceBinding binding{key, uri ? XmlText(uri) : XmlText(), uri != nullptr};
    if (found != current.end()) *found = std::move(binding);
    else current.push_back(std::move(binding));
  };

  // The element's own namespace is declared where no binding in scope gives it.
  const XMLCh* prefix = element.getPrefix();
  const XMLCh* uri = element.getNamespaceURI();
  if (!empty(uri) || (empty(prefix) && default_namespace_declared())) {
    if (empty(prefix)) prefix = xercesc::XMLUni::fgZeroLenString;
    if (!namespace_binding_active(prefix, uri)) {
      bind(prefix, uri);
      write_namespace_declaration(prefix, uri);
    }
  }

  const xercesc::DOMNamedNodeMap* attributes = element.getAttributes();
  std::vector<const DOMNode*> ordered;
  for (XMLSize_t i = 0; attributes && i < attributes->getLength(); ++i)
    ordered.push_back(attributes->item(i));
  std::stable_sort(ordered.begin(), ordered.end(), name_before);

  for (const DOMNode* attribute : ordered) {
    const XMLCh* ns = attribute->getNamespaceURI();
    if (ns) {
      if (equal(ns, xercesc::XMLUni::fgXMLNSURIName)) {
        // A declaration the element carries: kept once per prefix. (The serializer records it
        // under its local name, so a default declaration binds the key "xmlns".)
        const XMLCh* declared = attribute->getLocalName();
        if (equal(attribute->getNodeName(), xercesc::XMLUni::fgXMLNSString))
          declared = xercesc::XMLUni::fgZeroLenString;
        NamespaceLevel& current = level_of_current(level);
        const XmlText key = declared ? XmlText(declared) : XmlText();
        if (std::any_of(current.begin(), current.end(),
                        [&](const NamespaceBinding& b) { return b.prefix == key; }))
          continue;
        bind(attribute->getLocalName(), attribute->getNodeValue());
      } else if (!equal(ns, xercesc::XMLUni::fgXMLURIName)) {
        const XMLCh* attribute_prefix = attribute->getPrefix();
        if (!empty(attribute_prefix) && !namespace_binding_active(attribute_prefix, ns)) {
          bind(attribute_prefix, ns);
          write_namespace_declaration(attribute_prefix, ns);
        }
      }
    }
    const std::string name = utf8_of(attribute->getNodeName());
    out_ += ' ';
    out_ += name;
    out_ += "=\"";
    attribute_being_written_ = wide_of(attribute->getNodeName());
    const XMLCh* value = attribute->getNodeValue();
    write_escaped(value, length_of(value), Escapes::Attribute);
    attribute_being_written_.clear();
    out_ += '"';
  }
}

void XmlWriter::dom_element(const xercesc::DOMElement& element) { write_dom_node(element); }

void XmlWriter::write_dom_node(const DOMNode& node) {
  const XMLCh* value = node.getNodeValue();
  switch (node.getNodeType()) {
    case DOMNode::ELEMENT_NODE: {
      open_element();
      const std::string name = utf8_of(node.getNodeName());
      out_ += '<';
      out_ += name;
      frames_.push_back({line_, true, false, Prefix::cbc, {}, name, &node});
      entered();
      NamespaceLevel* level = nullptr;
      write_dom_attributes(static_cast<const xercesc::DOMElement&>(node), level);
      for (const DOMNode* child = node.getFirstChild(); child; child = child->getNextSibling())
        write_dom_node(*child);
      end();
      break;
    }
    case DOMNode::TEXT_NODE:
      write_text_node(value, length_of(value));
      break;
    case DOMNode::CDATA_SECTION_NODE: {
      child_starts();
      // A "]]>" inside splits the section; the serializer drops the marker itself.
      const XmlText data = value ? XmlText(value) : XmlText();
      const XmlText end_marker = xml_text(u"]]>");
      std::size_t at = 0;
      for (;;) {
        const std::size_t found = data.find(end_marker, at);
        const std::size_t stop = found == XmlText::npos ? data.size() : found;
        out_ += "<![CDATA[";
        write_escaped(data.data() + at, stop - at, Escapes::None);
        out_ += "]]>";
        if (found == XmlText::npos) break;
        at = found + end_marker.size();
      }
      break;
    }
    case DOMNode::COMMENT_NODE: {
      child_starts();
      // Indented only among element siblings: beside text alone its whitespace could matter.
      bool beside_elements = false;
      for (const DOMNode* s = node.getNextSibling(); s && !beside_elements; s = s->getNextSibling())
        beside_elements = s->getNodeType() == DOMNode::ELEMENT_NODE;
      for (const DOMNode* s = node.getPreviousSibling(); s && !beside_elements;
           s = s->getPreviousSibling())
        beside_elements = s->getNodeType() == DOMNode::ELEMENT_NODE;
      if (beside_elements) {
        new_line();
        indent(unsigned(frames_.size()));
      }
      out_ += "<!--";
      write_escaped(value, length_of(value), Escapes::None);
      out_ += "-->";
      break;
    }
    case DOMNode::PROCESSING_INSTRUCTION_NODE:
      child_starts();
      new_line();
      indent(unsigned(frames_.size()));
      out_ += "<?";
      out_ += utf8_of(node.getNodeName());
      if (!empty(value)) {
        out_ += ' ';
        write_escaped(value, length_of(value), Escapes::None);
      }
      out_ += "?>";
      break;
    case DOMNode::ENTITY_REFERENCE_NODE:
      child_starts();
      out_ += '&';
      out_ += utf8_of(node.getNodeName());
      out_ += ';';
      break;
    default:
      break;
  }
}

}  // namespace Morvek::Tivalo
