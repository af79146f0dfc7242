#pragma once
// Shared helpers of the binding tests: the Xerces platform, XML text <-> DOM, and a structural
// comparison of two DOM trees.

#include <sstream>
#include <string>
#include <vector>

#include <xercesc/dom/DOM.hpp>

#include "binding/namespaces.h"
#include "binding/xml-schema.hxx"

namespace binding_test {

// Flags for root functions: the test environment keeps the Xerces platform up.
inline const xml_schema::flags kParseFlags =
    xml_schema::flags::dont_initialize | xml_schema::flags::dont_validate;

std::string read_file(const std::string& path);
std::string source_path(const std::string& relative);  // relative to the repository root

// Parses XML text (UTF-8) into a DOM without validation; throws xml_schema::parsing.
xml_schema::dom::unique_ptr<xercesc::DOMDocument> parse_dom(const std::string& xml);

// The runtime's printed text of a binding exception, as UTF-8.
std::string message(const xml_schema::exception& e);

// UTF-8 of a wide or Xerces string.
std::string narrow(const std::wstring& s);
std::string narrow(const XMLCh* s);
std::wstring widen(const std::string& ascii);

// The nine-entry namespace map of a document, by its name ("Invoice").
inline xml_schema::namespace_infomap namespace_map(const wchar_t* document) {
  return Morvek::UBL2::ubl_namespace_map(Morvek::UBL2::document_namespace(document));
}

// Empty when both elements have the same names, attributes (namespace declarations aside),
// child elements and texts, recursively; otherwise a description of the first difference.
// Texts that both read as numbers compare by value ("100.50" equals "100.5").
std::string compare_elements(const xercesc::DOMElement& expected,
                             const xercesc::DOMElement& actual);

// "ns#local" of an element or attribute.
std::string qualified(const xercesc::DOMNode& node);

// The element children of `parent`, in document order.
std::vector<const xercesc::DOMElement*> child_elements(const xercesc::DOMElement& parent);

}  // namespace binding_test
