#include "document/local_parser.h"

#include <xercesc/dom/DOMImplementation.hpp>
#include <xercesc/dom/DOMImplementationRegistry.hpp>
#include <xercesc/dom/DOMLSException.hpp>
#include <xercesc/dom/DOMLSParser.hpp>
#include <xercesc/dom/DOMLSResourceResolver.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/Wrapper4InputSource.hpp>
#include <xercesc/util/XMLUni.hpp>
#include <xsd/cxx/tree/error-handler.hxx>
#include <xsd/cxx/tree/exceptions.hxx>
#include <xsd/cxx/xml/dom/bits/error-handler-proxy.hxx>
#include <xsd/cxx/xml/sax/std-input-source.hxx>
#include <xsd/cxx/xml/string.hxx>

namespace Morvek::Tivalo {
namespace {

using xercesc::XMLUni;

// The scheme of a URI ("http" of "http://host/x.xsd"), empty for a plain path. A single letter
// is a drive ("C:\x.xsd"), not a scheme.
std::u16string scheme_of(const XMLCh* uri) {
  if (!uri) return {};
  std::u16string scheme;
  for (const XMLCh* c = uri; *c; ++c) {
    const bool letter = (*c >= 'a' && *c <= 'z') || (*c >= 'A' && *c <= 'Z');
    const bool other = (*c >= '0' && *c <= '9') || *c == '+' || *c == '-' || *c == '.';
    if (*c == ':') return scheme.size() > 1 ? scheme : std::u16string();
    if (!letter && !(other && !scheme.empty())) return {};
    scheme += static_cast<char16_t>(*c >= 'A' && *c <= 'Z' ? *c - 'A' + 'a' : *c);
  }
  return {};
}

bool is_local(const XMLCh* uri) {
  const std::u16string scheme = scheme_of(uri);
  return scheme.empty() || scheme == u"file";
}

// Hands the parser an empty resource for anything that would have to be fetched over a network;
// local files are left to the parser's own resolution.
class LocalResourcesOnly final : public xercesc::DOMLSResourceResolver {
 public:
  xercesc::DOMLSInput* resolveResource(const XMLCh* /*resource_type*/, const XMLCh* /*ns*/,
                                       const XMLCh* /*public_id*/, const XMLCh* system_id,
                                       const XMLCh* base_uri) override {
    const bool relative = scheme_of(system_id).empty();
    if (is_local(system_id) && (!relative || is_local(base_uri))) return nullptr;
    static const XMLByte nothing[] = {0};
    auto* empty = new xercesc::MemBufInputSource(nothing, 0, system_id, false);
    return new xercesc::Wrapper4InputSource(empty, true);  // the parser adopts it
  }
};

// The runtime's DOM parse (comments dropped, datatype normalisation, entities expanded,
// namespaces, no ignorable whitespace) with only the caller's schema loaded.
DomDocumentPtr parse_dom(xercesc::InputSource& source, xercesc::DOMErrorHandler& errors,
                         const ParseProperties& properties, tree::flags flags,
                         xercesc::XMLGrammarPool* grammars) {
  static const XMLCh load_store[] = {xercesc::chLatin_L, xercesc::chLatin_S, xercesc::chNull};
  xercesc::DOMImplementation* implementation =
      xercesc::DOMImplementationRegistry::getDOMImplementation(load_store);

  LocalResourcesOnly resolver;
  xsd::cxx::xml::dom::unique_ptr<xercesc::DOMLSParser> parser(implementation->createLSParser(
      xercesc::DOMImplementationLS::MODE_SYNCHRONOUS, nullptr,
      xercesc::XMLPlatformUtils::fgMemoryManager, grammars));
  xercesc::DOMConfiguration* config = parser->getDomConfig();
  if (grammars) config->setParameter(XMLUni::fgXercesUseCachedGrammarInParse, true);

  config->setParameter(XMLUni::fgDOMComments, false);
  config->setParameter(XMLUni::fgDOMDatatypeNormalization, true);
  config->setParameter(XMLUni::fgDOMEntities, false);
  config->setParameter(XMLUni::fgDOMNamespaces, true);
  config->setParameter(XMLUni::fgDOMElementContentWhitespace, false);

  const bool validate = !(flags & tree::flags::dont_validate);
  config->setParameter(XMLUni::fgDOMValidate, validate);
  config->setParameter(XMLUni::fgXercesSchema, validate);
  config->setParameter(XMLUni::fgXercesSchemaFullChecking, false);
  if (validate) config->setParameter(XMLUni::fgXercesHandleMultipleImports, true);
  config->setParameter(XMLUni::fgXercesUserAdoptsDOMDocument, true);

  // xsi:schemaLocation hints in the document are never followed; the caller's location still is.
  config->setParameter(XMLUni::fgXercesLoadSchema, false);
  const xsd::cxx::xml::string location(properties.schema_location());
  if (!properties.schema_location().empty())
    config->setParameter(XMLUni::fgXercesSchemaExternalSchemaLocation,
                         const_cast<XMLCh*>(location.c_str()));
  const xsd::cxx::xml::string no_namespace_location(properties.no_namespace_schema_location());
  if (!properties.no_namespace_schema_location().empty())
    config->setParameter(XMLUni::fgXercesSchemaExternalNoNameSpaceSchemaLocation,
                         const_cast<XMLCh*>(no_namespace_location.c_str()));

  config->setParameter(XMLUni::fgDOMResourceResolver,
                       static_cast<xercesc::DOMLSResourceResolver*>(&resolver));
  config->setParameter(XMLUni::fgDOMErrorHandler, &errors);

  xercesc::Wrapper4InputSource input(&source, false);
  DomDocumentPtr document;
  try {
    document.reset(parser->parse(&input));
  } catch (const xercesc::DOMLSException&) {
    // the error handler has the diagnostics
  }
  return document;
}

}  // namespace

xercesc::DOMLSResourceResolver& local_resources_only() {
  static LocalResourcesOnly resolver;
  return resolver;
}

std::unique_ptr<tree::type> parse_document(const DocumentBinding& kind, std::istream& in,
                                           tree::flags flags, const ParseProperties& properties,
                                           xercesc::XMLGrammarPool* grammars) {
  XmlPlatformInUse xml;
  tree::error_handler<wchar_t> diagnostics;
  xsd::cxx::xml::sax::std_input_source source(in);
  DomDocumentPtr dom;
  {
    xsd::cxx::xml::dom::bits::error_handler_proxy<wchar_t> collector(diagnostics);
    dom = parse_dom(source, collector, properties, flags, grammars);
    if (collector.failed()) dom.reset();
  }
  diagnostics.throw_if_failed<tree::parsing<wchar_t>>();
  if (!dom) throw tree::parsing<wchar_t>();
  return kind.parse_dom(*dom, flags, properties);
}

}  // namespace Morvek::Tivalo
