// The assertions of an SVRL report, as compiled Schematron rule sets write it, read into findings
// for both stylesheet processors: libxslt in the component and Saxon-HE behind the tool.
#include "document/svrl_report.h"

#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <cstring>
#include <regex>

namespace Morvek::Tivalo::Rules {
namespace {

const xmlChar* const svrl_namespace = reinterpret_cast<const xmlChar*>("http://purl.oclc.org/dsdl/svrl");

bool is_svrl(const xmlNode* node, const char* name) {
  return node->type == XML_ELEMENT_NODE && node->ns && xmlStrEqual(node->ns->href, svrl_namespace) &&
         std::strcmp(reinterpret_cast<const char*>(node->name), name) == 0;
}

std::string attribute(const xmlNode* node, const char* name) {
  xmlChar* value = xmlGetProp(node, reinterpret_cast<const xmlChar*>(name));
  if (!value) return {};
  std::string text(reinterpret_cast<const char*>(value));
  xmlFree(value);
  return text;
}

// Whitespace runs become one blank, as the report's indentation is not part of the text.
std::string normalized(const std::string& text) {
  std::string result;
  bool blank = false;
  for (char c : text) {
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
      blank = !result.empty();
    } else {
      if (blank) result += ' ';
      blank = false;
      result += c;
    }
  }
  return result;
}

std::string text_of(const xmlNode* assertion) {
  for (const xmlNode* child = assertion->children; child; child = child->next) {
    if (is_svrl(child, "text")) {
      xmlChar* content = xmlNodeGetContent(child);
      std::string text = content ? reinterpret_cast<const char*>(content) : "";
      xmlFree(content);
      return normalized(text);
    }
  }
  return {};
}

// A location path as XPath 2.0 writes it ("/Q{ns}Invoice[1]/*:ID[1]") in the XPath 1.0 that
// libxml2 evaluates.
std::string as_xpath1(const std::string& location) {
  if (location.find("Q{") == std::string::npos && location.find("*:") == std::string::npos)
    return location;
  static const std::regex braced(R"(Q\{([^}']*)\}([A-Za-z_][-.\w]*))");
  static const std::regex any_namespace(R"(\*:([A-Za-z_][-.\w]*))");
  std::string path = std::regex_replace(location, braced, "*[local-name()='$2' and namespace-uri()='$1']");
  return std::regex_replace(path, any_namespace, "*[local-name()='$1']");
}

// The line of the one node that a location path names, when the path is XPath 1.0.
long line_of(xmlDocPtr document, const std::string& location,
             const std::vector<std::pair<std::string, std::string>>& prefixes) {
  if (location.empty()) return 0;
  xmlXPathContextPtr context = xmlXPathNewContext(document);
  if (!context) return 0;
  for (const auto& [prefix, uri] : prefixes)
    xmlXPathRegisterNs(context, reinterpret_cast<const xmlChar*>(prefix.c_str()),
                       reinterpret_cast<const xmlChar*>(uri.c_str()));
  long line = 0;
  const std::string path = as_xpath1(location);
  xmlXPathObjectPtr found = xmlXPathEvalExpression(reinterpret_cast<const xmlChar*>(path.c_str()), context);
  if (found && found->type == XPATH_NODESET && found->nodesetval && found->nodesetval->nodeNr == 1)
    line = xmlGetLineNo(found->nodesetval->nodeTab[0]);
  xmlXPathFreeObject(found);
  xmlXPathFreeContext(context);
  return line > 0 ? line : 0;
}

void read_report(const xmlNode* node, xmlDocPtr source,
                 std::vector<std::pair<std::string, std::string>>& prefixes,
                 std::vector<Finding>& findings) {
  for (; node; node = node->next) {
    if (node->type != XML_ELEMENT_NODE) continue;
    if (is_svrl(node, "ns-prefix-in-attribute-values")) {
      prefixes.emplace_back(attribute(node, "prefix"), attribute(node, "uri"));
    } else if (is_svrl(node, "failed-assert") || is_svrl(node, "successful-report")) {
      Finding finding;
      finding.kind = is_svrl(node, "failed-assert") ? Finding::Kind::failed_assert
                                                    : Finding::Kind::successful_report;
      finding.text = text_of(node);
      finding.location = attribute(node, "location");
      finding.id = attribute(node, "id");
      finding.flag = attribute(node, "flag");
      finding.role = attribute(node, "role");
      finding.test = attribute(node, "test");
      finding.line = line_of(source, finding.location, prefixes);
      findings.push_back(std::move(finding));
      continue;
    }
    read_report(node->children, source, prefixes, findings);
  }
}

}  // namespace

void read_svrl_report(const xmlNode* first, xmlDocPtr source, std::vector<Finding>& findings) {
  std::vector<std::pair<std::string, std::string>> prefixes;
  read_report(first, source, prefixes, findings);
}

}  // namespace Morvek::Tivalo::Rules
