#include "binding_test_support.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>

#include <gtest/gtest.h>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xsd/cxx/tree/error-handler.hxx>
#include <xsd/cxx/xml/dom/parsing-source.hxx>
#include <xsd/cxx/xml/string.hxx>

namespace binding_test {
namespace {

// One platform start for the whole test program; root functions are called with
// dont_initialize so they neither start nor stop it.
class XercesEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { xercesc::XMLPlatformUtils::Initialize(); }
  void TearDown() override { xercesc::XMLPlatformUtils::Terminate(); }
};

const ::testing::Environment* const xerces_environment =
    ::testing::AddGlobalTestEnvironment(new XercesEnvironment);

bool as_number(const std::string& text, double& value) {
  if (text.empty()) return false;
  char* end = nullptr;
  value = std::strtod(text.c_str(), &end);
  return end == text.c_str() + text.size();
}

bool is_namespace_declaration(const xercesc::DOMNode& attribute) {
  const XMLCh* ns = attribute.getNamespaceURI();
  return ns && xercesc::XMLString::equals(ns, xercesc::XMLUni::fgXMLNSURIName);
}

std::map<std::string, std::string> attributes_of(const xercesc::DOMElement& element) {
  std::map<std::string, std::string> result;
  const xercesc::DOMNamedNodeMap* attributes = element.getAttributes();
  for (XMLSize_t i = 0; i < attributes->getLength(); ++i) {
    const xercesc::DOMNode& attribute = *attributes->item(i);
    if (!is_namespace_declaration(attribute))
      result[qualified(attribute)] = narrow(attribute.getNodeValue());
  }
  return result;
}

std::string own_text(const xercesc::DOMElement& element) {
  std::string text;
  for (const xercesc::DOMNode* n = element.getFirstChild(); n; n = n->getNextSibling())
    if (n->getNodeType() == xercesc::DOMNode::TEXT_NODE ||
        n->getNodeType() == xercesc::DOMNode::CDATA_SECTION_NODE)
      text += narrow(n->getNodeValue());
  // Indentation between child elements is not content.
  auto first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

}  // namespace

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot open " + path);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string source_path(const std::string& relative) {
  return std::string(TIVALO_SOURCE_DIR) + "/" + relative;
}

xml_schema::dom::unique_ptr<xercesc::DOMDocument> parse_dom(const std::string& xml) {
  xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(xml.data()), xml.size(),
                                    "test");
  xsd::cxx::tree::error_handler<wchar_t> handler;
  auto document = xsd::cxx::xml::dom::parse<wchar_t>(source, handler, xml_schema::properties(),
                                                     xml_schema::flags::dont_validate);
  handler.throw_if_failed<xml_schema::parsing>();
  return document;
}

std::string message(const xml_schema::exception& e) {
  std::wostringstream os;
  os << e;
  return narrow(os.str());
}

std::string narrow(const std::wstring& s) {
  std::string result;
  for (wchar_t wc : s) {
    auto c = static_cast<unsigned long>(wc);
    if (c < 0x80) {
      result += static_cast<char>(c);
    } else if (c < 0x800) {
      result += static_cast<char>(0xC0 | (c >> 6));
      result += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      result += static_cast<char>(0xE0 | (c >> 12));
      result += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      result += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      result += static_cast<char>(0xF0 | (c >> 18));
      result += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      result += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      result += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return result;
}

std::string narrow(const XMLCh* s) {
  return s ? narrow(xsd::cxx::xml::transcode<wchar_t>(s)) : std::string();
}

std::wstring widen(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

std::string qualified(const xercesc::DOMNode& node) {
  std::string ns = narrow(node.getNamespaceURI());
  std::string local = narrow(node.getLocalName());
  return ns.empty() ? local : ns + "#" + local;
}

std::vector<const xercesc::DOMElement*> child_elements(const xercesc::DOMElement& parent) {
  std::vector<const xercesc::DOMElement*> children;
  for (const xercesc::DOMElement* c = parent.getFirstElementChild(); c;
       c = c->getNextElementSibling())
    children.push_back(c);
  return children;
}

std::string compare_elements(const xercesc::DOMElement& expected,
                             const xercesc::DOMElement& actual) {
  const std::string where = qualified(expected);
  if (qualified(actual) != where) return "element " + qualified(actual) + " instead of " + where;

  if (attributes_of(expected) != attributes_of(actual)) return "attributes differ on " + where;

  const std::string expected_text = own_text(expected), actual_text = own_text(actual);
  double a = 0, b = 0;
  bool same_number = as_number(expected_text, a) && as_number(actual_text, b) && a == b;
  if (expected_text != actual_text && !same_number)
    return "text '" + actual_text + "' instead of '" + expected_text + "' in " + where;

  auto expected_children = child_elements(expected), actual_children = child_elements(actual);
  if (expected_children.size() != actual_children.size())
    return std::to_string(actual_children.size()) + " children instead of " +
           std::to_string(expected_children.size()) + " in " + where;
  for (size_t i = 0; i < expected_children.size(); ++i) {
    std::string difference = compare_elements(*expected_children[i], *actual_children[i]);
    if (!difference.empty()) return difference;
  }
  return {};
}

}  // namespace binding_test
