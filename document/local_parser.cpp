#include "document/local_parser.h"
#include "document/xml_text.h"

#include "document/markup_limits.h"

#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMLSException.hpp>
#include <xercesc/dom/DOMLSResourceResolver.hpp>
#include <xercesc/framework/LocalFileInputSource.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/URLInputSource.hpp>
#include <xercesc/util/BinMemInputStream.hpp>
#include <xercesc/framework/Wrapper4InputSource.hpp>
#include <xercesc/internal/XMLScanner.hpp>
#include <xercesc/parsers/DOMLSParserImpl.hpp>
#include <xercesc/sax/Locator.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLURL.hpp>
#include <xercesc/util/XMLUni.hpp>
#include <xsd/cxx/tree/error-handler.hxx>
#include <xsd/cxx/tree/exceptions.hxx>
#include <xsd/cxx/xml/dom/bits/error-handler-proxy.hxx>
#include <xsd/cxx/xml/string.hxx>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <algorithm>
#include <istream>
#include <iterator>

namespace Morvek::Tivalo {

namespace {

using xercesc::XMLUni;

// The scheme of a URI ("http" of "http://host/x.xsd"), empty for a plain path. A single letter
// is a drive ("C:\x.xsd"), not a scheme.
XmlText scheme_of(const XmlText& uri) {
  XmlText scheme;
  for (XMLCh c : uri) {
    const bool letter = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
    const bool other = (c >= u'0' && c <= u'9') || c == u'+' || c == u'-' || c == u'.';
    if (c == u':') return scheme.size() > 1 ? scheme : XmlText();
    if (!letter && !(other && !scheme.empty())) return {};
    scheme += static_cast<XMLCh>(c >= u'A' && c <= u'Z' ? c - u'A' + u'a' : c);
  }
  return {};
}

// A system identifier or schema location as the parser would use it: XML whitespace around it
// does not count.
XmlText trimmed(const XMLCh* text) {
  XmlText value = text ? XmlText(text) : XmlText();
  const auto space = [](XMLCh c) { return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r'; };
  while (!value.empty() && space(value.back())) value.pop_back();
  std::size_t start = 0;
  while (start < value.size() && space(value[start])) ++start;
  return value.substr(start);
}

bool is_local_host(const XMLCh* host) {
  return !host || !*host || xercesc::XMLString::compareIString(host, xml_chars(u"localhost")) == 0;
}

using xercesc::InputSource;

// The bytes a URI reference or path stands for: characters as UTF-8 and each percent escape as the
// one byte it names, so that a name in any script (or none) reaches the file system unchanged.
std::string file_system_name(const XMLCh* text) {
  std::string name;
  const auto hex = [](XMLCh c) {
    return c >= u'0' && c <= u'9' ? c - u'0' : (c | 0x20) >= u'a' && (c | 0x20) <= u'f' ? (c | 0x20) - u'a' + 10 : -1;
  };
  for (const XMLCh* c = text; c && *c; ++c) {
    char32_t code = *c;
    if (code == u'%' && hex(c[1]) >= 0 && hex(c[2]) >= 0) {
      name += static_cast<char>(hex(c[1]) * 16 + hex(c[2]));
      c += 2;
      continue;
    }
    if (code >= 0xD800 && code < 0xDC00 && c[1] >= 0xDC00 && c[1] < 0xE000)
      code = 0x10000 + ((code - 0xD800) << 10) + (*++c - 0xDC00);
    if (code < 0x80) {
      name += static_cast<char>(code);
    } else if (code < 0x800) {
      name += static_cast<char>(0xC0 | code >> 6);
      name += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
      name += static_cast<char>(0xE0 | code >> 12);
      name += static_cast<char>(0x80 | (code >> 6 & 0x3F));
      name += static_cast<char>(0x80 | (code & 0x3F));
    } else {
      name += static_cast<char>(0xF0 | code >> 18);
      name += static_cast<char>(0x80 | (code >> 12 & 0x3F));
      name += static_cast<char>(0x80 | (code >> 6 & 0x3F));
      name += static_cast<char>(0x80 | (code & 0x3F));
    }
  }
  return name;
}

// A local file's bytes, read here rather than by the parser, which would pass the name through
// the process's locale. The stream copies the bytes, so it may outlive the source.
class FileBytesSource final : public InputSource {
 public:
  FileBytesSource(std::string bytes, const XMLCh* system_id)
      : InputSource(system_id), bytes_(std::move(bytes)) {}
  xercesc::BinInputStream* makeStream() const override {
    return new xercesc::BinMemInputStream(reinterpret_cast<const XMLByte*>(bytes_.data()),
                                          bytes_.size(), xercesc::BinMemInputStream::BufOpt_Copy);
  }

 private:
  std::string bytes_;
};

// The file read whole, or nothing when it cannot be read.
InputSource* file_source(const std::string& utf8_name, const XMLCh* system_id) {
  std::ifstream in(std::filesystem::u8path(utf8_name), std::ios::binary);
  if (!in) return nullptr;
  std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  if (in.bad()) return nullptr;
  return new FileBytesSource(std::move(bytes), system_id);
}

xercesc::DOMLSInput* adopted(xercesc::InputSource* source) {
  return new xercesc::Wrapper4InputSource(source, true);  // the parser adopts it
}

// Every resource the parser needs (the caller's schema, its includes and imports) is opened here,
// and only from the local file system: the parser resolves nothing by itself. Anything that
// would have to be fetched over a network reads as an empty resource.
class LocalResourcesOnly final : public xercesc::DOMLSResourceResolver {
 public:
  xercesc::DOMLSInput* resolveResource(const XMLCh* /*resource_type*/, const XMLCh* /*ns*/,
                                       const XMLCh* /*public_id*/, const XMLCh* system_id,
                                       const XMLCh* base_uri) override {
    const XmlText system = trimmed(system_id);
    const XmlText base = trimmed(base_uri);
    if (system.empty()) return nullptr;  // nothing named, nothing read
    try {
      if (xercesc::InputSource* local = local_source(system, base)) return adopted(local);
    } catch (const xercesc::XMLException&) {
      // a malformed URI reads as nothing
    }
    static const XMLByte nothing[] = {0};
    return adopted(new xercesc::MemBufInputSource(nothing, 0, system_id, false));
  }

 private:
  static xercesc::InputSource* local_source(const XmlText& system,
                                            const XmlText& base) {
    const XmlText scheme = scheme_of(system);
    if (scheme == xml_text(u"file")) return file_url_source(xercesc::XMLURL(system.c_str()));
    if (!scheme.empty()) return nullptr;
    // A path: relative to a base that is a file URL, or to a base path as the parser would take it.
    const XmlText base_scheme = scheme_of(base);
    if (base_scheme == xml_text(u"file"))
      return file_url_source(xercesc::XMLURL(xercesc::XMLURL(base.c_str()), system.c_str()));
    if (!base_scheme.empty()) return nullptr;
    return path_source(base, system);
  }

  static xercesc::InputSource* file_url_source(const xercesc::XMLURL& url) {
    if (url.getProtocol() != xercesc::XMLURL::File || !is_local_host(url.getHost()))
      return nullptr;
    std::string name = file_system_name(url.getPath());
    // "/C:/x.xsd" names a drive.
    if (name.size() > 2 && name[0] == '/' && name[2] == ':') name.erase(0, 1);
    if (InputSource* read = file_source(name, url.getURLText())) return read;
    return new xercesc::URLInputSource(url);  // the parser says why it cannot be opened
  }

  static xercesc::InputSource* path_source(const XmlText& base,
                                           const XmlText& system) {
    // The full path as the parser would make it ("../" folded), which later includes resolve
    // against and messages name.
    using xercesc::XMLPlatformUtils;
    XMLCh* full = !XMLPlatformUtils::isRelative(system.c_str()) || base.empty()
                      ? xercesc::XMLString::replicate(system.c_str())
                      : XMLPlatformUtils::weavePaths(base.c_str(), system.c_str());
    InputSource* read = file_source(file_system_name(full), full);
    xercesc::XMLString::release(&full);
    if (read) return read;
    return new xercesc::LocalFileInputSource(base.empty() ? nullptr : base.c_str(),
                                             system.c_str());
  }
};

// The DOM parser with the limits that untrusted documents need, checked as the tree is built:
// no document type declaration at all (nothing declared, expanded or fetched), the nesting and
// attribute limits (for encodings the byte scan cannot read), and each element's line recorded
// for the binding's messages.
class GuardedParser final : public xercesc::DOMLSParserImpl {
 public:
  explicit GuardedParser(xercesc::XMLGrammarPool* grammars)
      : xercesc::DOMLSParserImpl(nullptr, xercesc::XMLPlatformUtils::fgMemoryManager, grammars) {}

  void doctypeDecl(const xercesc::DTDElementDecl&, const XMLCh* const, const XMLCh* const,
                   const bool, const bool) override {
    throw UBL2::message_error(document_type_refused);
  }

  void startElement(const xercesc::XMLElementDecl& declaration, const unsigned int uri_id,
                    const XMLCh* const prefix, const xercesc::RefVectorOf<xercesc::XMLAttr>& attributes,
                    const XMLSize_t attribute_count, const bool empty, const bool root) override {
    if (++depth_ > max_element_depth) throw UBL2::message_error(excess_message(MarkupExcess::depth));
    if (attribute_count > max_attributes_per_element)
      throw UBL2::message_error(excess_message(MarkupExcess::attributes));
    const XMLFileLoc line = getScanner()->getLocator()->getLineNumber();
    // An empty element is ended (and the depth counted back) inside the base's startElement.
    xercesc::DOMLSParserImpl::startElement(declaration, uri_id, prefix, attributes,
                                           attribute_count, empty, root);
    xercesc::DOMNode* element = getCurrentNode();
    if (element && element->getNodeType() == xercesc::DOMNode::ELEMENT_NODE)
      element->setUserData(xml_chars(UBL2::element_line_key),
                           reinterpret_cast<void*>(static_cast<std::uintptr_t>(line)), nullptr);
  }

  void endElement(const xercesc::XMLElementDecl& declaration, const unsigned int uri_id,
                  const bool root, const XMLCh* const prefix) override {
    --depth_;
    xercesc::DOMLSParserImpl::endElement(declaration, uri_id, root, prefix);
  }

 private:
  std::size_t depth_ = 0;
};

// The runtime's DOM parse (comments dropped, datatype normalisation, namespaces, no ignorable
// whitespace) with only the caller's schema loaded, from local files.
DomDocumentPtr parse_dom(xercesc::InputSource& source, xercesc::DOMErrorHandler& errors,
                         const ParseProperties& properties, tree::flags flags,
                         xercesc::XMLGrammarPool* grammars) {
  LocalResourcesOnly resolver;
  // Entity expansion is bounded as well, though documents with declarations are refused first.
  xercesc::SecurityManager security;
  GuardedParser parser(grammars);
  xercesc::DOMConfiguration* config = parser.getDomConfig();
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

  config->setParameter(XMLUni::fgXercesSecurityManager, &security);
  config->setParameter(XMLUni::fgXercesLoadExternalDTD, false);
  config->setParameter(XMLUni::fgXercesDoXInclude, false);
  config->setParameter(XMLUni::fgXercesDisableDefaultEntityResolution, true);

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
    document.reset(parser.parse(&input));
  } catch (const xercesc::DOMLSException&) {
    // the error handler has the diagnostics
  }
  return document;
}

[[noreturn]] void refuse(MarkupExcess excess) { throw UBL2::message_error(excess_message(excess)); }

// The length of the well-formed UTF-8 sequence at `at`, or 0: no overlong form, no surrogate,
// nothing beyond U+10FFFF.
std::size_t utf8_sequence(const unsigned char* at, const unsigned char* end) {
  const unsigned char lead = *at;
  if (lead < 0x80) return 1;
  std::size_t length = 0;
  unsigned char low = 0x80, high = 0xBF;  // the second byte's range
  if (lead >= 0xC2 && lead <= 0xDF) length = 2;
  else if (lead == 0xE0) length = 3, low = 0xA0;
  else if (lead == 0xED) length = 3, high = 0x9F;
  else if (lead >= 0xE1 && lead <= 0xEF) length = 3;
  else if (lead == 0xF0) length = 4, low = 0x90;
  else if (lead == 0xF4) length = 4, high = 0x8F;
  else if (lead >= 0xF1 && lead <= 0xF3) length = 4;
  else return 0;
  if (std::size_t(end - at) < length || at[1] < low || at[1] > high) return 0;
  for (std::size_t i = 2; i < length; ++i)
    if ((at[i] & 0xC0) != 0x80) return 0;
  return length;
}

// The parser's UTF-8 decoder takes sequences beyond U+10FFFF and drops their bytes, and names
// other faults at the end of the piece it was decoding; a document read as UTF-8 is looked at
// first, and its first invalid sequence refused where it stands.
void refuse_invalid_utf8(std::string_view bytes, bool utf8) {
  if (!utf8 && !read_as_utf8(bytes)) return;
  const auto* begin = reinterpret_cast<const unsigned char*>(bytes.data());
  const auto* end = begin + bytes.size();
  const unsigned char* at = begin;
  while (at < end) {
    // Runs of ASCII eight bytes at a time.
    std::uint64_t word;
    if (end - at >= 8 && (std::memcpy(&word, at, 8), (word & 0x8080808080808080ull) == 0)) {
      at += 8;
      continue;
    }
    const std::size_t length = utf8_sequence(at, end);
    if (!length) break;
    at += length;
  }
  if (at == end) return;
  unsigned long line = 1, column = 1;
  for (const unsigned char* c = begin; c < at; ++c) {
    if (*c == '\n' || (*c == '\r' && (c + 1 == at || c[1] != '\n'))) ++line, column = 1;
    else if ((*c & 0xC0) != 0x80 && *c != '\r') ++column;
  }
  std::wstring shown;
  for (const unsigned char* c = at; c < end && c < at + 4 && (c == at || (*c & 0xC0) == 0x80); ++c) {
    static const wchar_t digits[] = L"0123456789ABCDEF";
    if (!shown.empty()) shown += L' ';
    shown += digits[*c >> 4];
    shown += digits[*c & 0xF];
  }
  tree::diagnostics<wchar_t> diagnostics;
  diagnostics.push_back(tree::error<wchar_t>(
      tree::severity::error, L"", line, column,
      L"the document is not well formed: invalid UTF-8 (" + shown + L")"));
  throw tree::parsing<wchar_t>(diagnostics);
}

// The whole document in one piece. It is read in pieces of growing size (into place, where the
// stream knows its size), each looked at for a flood of markup as it arrives: a document of many
// megabytes that is refused is refused after its first piece.
std::string all_bytes(std::istream& in) {
  std::string bytes;
  MarkupScan scan;
  const std::istream::pos_type start = in.tellg();
  if (start != std::istream::pos_type(-1) && in.seekg(0, std::ios::end)) {
    const std::streamoff size = in.tellg() - start;
    in.seekg(start);
    bytes.resize(static_cast<std::size_t>(size > 0 ? size : 0));
  }
  std::size_t filled = 0;
  for (std::size_t piece = 65536; in; piece *= 2) {
    if (filled == bytes.size()) {  // the size was not known, or there is more than it said
      char next;
      if (!in.get(next)) break;
      bytes.resize(filled + piece);
      bytes[filled++] = next;
    }
    in.read(&bytes[filled], static_cast<std::streamsize>(std::min(piece, bytes.size() - filled)));
    filled += static_cast<std::size_t>(in.gcount());
    if (const MarkupExcess excess = scan.more({bytes.data(), filled}); excess != MarkupExcess::none)
      refuse(excess);
  }
  if (in.bad()) throw UBL2::message_error(L"Tivalo: The document could not be read.");
  bytes.resize(filled);
  if (const MarkupExcess excess = scan.more(bytes, true); excess != MarkupExcess::none)
    refuse(excess);
  return bytes;
}

}  // namespace

xercesc::DOMLSResourceResolver& local_resources_only() {
  static LocalResourcesOnly resolver;
  return resolver;
}

std::string document_bytes(std::istream& in) { return all_bytes(in); }

namespace {

// The document's DOM, with the limits and the UTF-8 check applied first.
DomDocumentPtr dom_of(std::string_view bytes, tree::flags flags, const ParseProperties& properties,
                      xercesc::XMLGrammarPool* grammars, bool utf8) {
  if (const MarkupExcess excess = markup_excess(bytes, utf8); excess != MarkupExcess::none)
    throw UBL2::message_error(excess_message(excess));
  refuse_invalid_utf8(bytes, utf8);

  tree::error_handler<wchar_t> diagnostics;
  xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(bytes.data()), bytes.size(),
                                    xml_chars(u""), false);
  if (utf8) source.setEncoding(xml_chars(u"UTF-8"));
  DomDocumentPtr dom;
  {
    xsd::cxx::xml::dom::bits::error_handler_proxy<wchar_t> collector(diagnostics);
    dom = parse_dom(source, collector, properties, flags, grammars);
    if (collector.failed()) dom.reset();
  }
  diagnostics.throw_if_failed<tree::parsing<wchar_t>>();
  if (!dom) throw tree::parsing<wchar_t>();
  return dom;
}

// The binding's tree of a parsed document. A class without a binding (UBL 2.1): a schema check is
// done once the parse is clean, and a read has only the streaming reader's verdict.
std::unique_ptr<tree::type> bound(const DocumentBinding& kind, const xercesc::DOMDocument& dom,
                                  tree::flags flags, const ParseProperties& properties) {
  if (!kind.parse_dom) {
    if (!(flags & tree::flags::dont_validate)) return nullptr;
    throw UBL2::message_error(L"Tivalo: The streaming reader refused the document.");
  }
  return kind.parse_dom(dom, flags, properties);
}

}  // namespace

// The bytes are freed once the DOM holds the document, before the binding's tree is built.
std::unique_ptr<tree::type> parse_document(const DocumentBinding& kind, std::istream& in,
                                           tree::flags flags, const ParseProperties& properties,
                                           xercesc::XMLGrammarPool* grammars) {
  XmlPlatformInUse xml;
  DomDocumentPtr dom = dom_of(all_bytes(in), flags, properties, grammars, false);
  return bound(kind, *dom, flags, properties);
}

std::unique_ptr<tree::type> parse_document(const DocumentBinding& kind, std::string_view bytes,
                                           tree::flags flags, const ParseProperties& properties,
                                           xercesc::XMLGrammarPool* grammars, bool utf8) {
  XmlPlatformInUse xml;
  DomDocumentPtr dom = dom_of(bytes, flags, properties, grammars, utf8);
  return bound(kind, *dom, flags, properties);
}

}  // namespace Morvek::Tivalo
