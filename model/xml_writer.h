// Writes a document as UTF-8 text straight from the object model, in the form the DOM serializer
// gives the binding's tree: an XML declaration, two spaces of indentation per level, an element
// with text on one line, attributes in name order, the serializer's escapes and its handling of
// whitespace-only text. Extension content, kept as DOM nodes, is walked node by node with the
// serializer's own rules, namespace declarations included.
#pragma once

#include <xercesc/dom/DOMElement.hpp>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "document/xml_text.h"

namespace Morvek::Tivalo {

// The namespaces whose elements the object model writes, by their prefix on the root element.
enum class Prefix { cbc, cac, ext };

// What XML 1.0 can carry, in UTF-16: tab, line feed, carriage return, U+0020 to U+D7FF, U+E000 to
// U+FFFD, and the planes above as surrogate pairs. The first code unit that it cannot, or 0.
unsigned forbidden_character(const XMLCh* text);

// The message of a text (or attribute value) that holds such a character; `holder` is
// "cbc:Note" or "the attribute currencyID of cbc:PriceAmount".
std::wstring forbidden_character_message(unsigned character, const std::wstring& holder);

// The message of a document nested deeper than Read takes.
std::wstring too_deep_message();

class XmlWriter {
 public:
  explicit XmlWriter(std::string& out) : out_(out) {}

  // The declaration and the root element with its namespace declarations: the document's own,
  // then UBL 2.0's eight prefixes, or only those the writer uses (cac, cbc, ext).
  void begin_document(std::wstring_view root_name, std::wstring_view document_namespace,
                      bool ubl20_prefixes = true);
  // Closes the root and throws what was found to be unwritable on the way (see refuse_*).
  void end_document();

  void start(Prefix prefix, std::string_view local_name);
  // An unqualified attribute of the element just started. A NUL, like any character XML cannot
  // carry, is refused.
  void attribute(std::string_view name, const wchar_t* value, std::size_t length);
  // A text node, unless `length` is 0.
  void text(const wchar_t* value, std::size_t length);
  // Text that needs no escaping and is never whitespace only (numbers, dates, indicators).
  void plain_text(std::string_view ascii);
  void end();

  // A number in plain decimal notation; NaN and the infinities are refused.
  void number(double value);
  // Base64 as the XML parser's encoder writes it: lines of 60 characters, each ended by a line
  // feed; no bytes, no text node.
  void base64(const unsigned char* bytes, std::size_t size);

  // A DOM element kept as it was read, with everything below it.
  void dom_element(const xercesc::DOMElement& element);

 private:
  struct Frame {
    int line;
    bool start_tag_open;
    bool declares_namespaces;  // a level of the namespace stack belongs to it
    Prefix prefix;
    std::string_view local_name;  // generated elements
    std::string dom_name;         // the root and DOM elements, as written
    const xercesc::DOMNode* dom_node;
  };
  struct NamespaceBinding {
    XmlText prefix;
    XmlText uri;
    bool bound;  // a binding to no namespace hides nothing below it
  };
  using NamespaceLevel = std::vector<NamespaceBinding>;
  enum class Escapes { None, Attribute, Text };

  void child_starts();
  void new_line();
  void indent(unsigned level);
  void open_element();
  void write_name(const Frame& frame);

  template <class Char>
  void write_escaped(const Char* text, std::size_t length, Escapes escapes);
  template <class Char>
  void write_text_node(const Char* text, std::size_t length);
  void write_dom_node(const xercesc::DOMNode& node);
  void write_dom_attributes(const xercesc::DOMElement& element, NamespaceLevel*& level);
  void write_namespace_declaration(const XMLCh* prefix, const XMLCh* uri);
  bool namespace_binding_active(const XMLCh* prefix, const XMLCh* uri) const;
  bool default_namespace_declared() const;
  NamespaceLevel& level_of_current(NamespaceLevel*& level);

  void entered();
  void refuse_unwritable(const wchar_t* text, std::size_t length);
  void refuse_character(unsigned character);
  std::wstring current_holder() const;
  std::string_view prefix_name(Prefix prefix) const;

  std::string& out_;
  std::vector<Frame> frames_;
  std::vector<NamespaceLevel> namespaces_;
  int line_ = 0;
  bool line_feed_in_text_ = false;
  unsigned white_space_after_line_feed_ = 0;
  // Where the character being written stands, for a refusal: an attribute's name or empty.
  std::wstring attribute_being_written_;
  // The first number that cannot be written, then the first character, in the order the
  // binding's tree building and its character check meet them.
  std::wstring number_refused_;
  std::wstring character_refused_;
};

}  // namespace Morvek::Tivalo
