#include "binding/namespaces.h"
#include "document/error_report.h"
#include "document/local_parser.h"
#include "document/stream_reader.h"
#include "document/streams.h"
#include "document/text.h"

#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/dom/DOMNode.hpp>
#include <xsd/cxx/tree/error-handler.hxx>
#include <xsd/cxx/tree/exceptions.hxx>
#include <xsd/cxx/xml/dom/serialization-source.hxx>

#include <cstdio>
#include <istream>
#include <ostream>

namespace Morvek::Tivalo::Documents {
namespace {

// What XML 1.0 can carry: tab, line feed, carriage return, U+0020 to U+D7FF, U+E000 to U+FFFD,
// and the planes above as surrogate pairs. Returns the first character that it cannot, or 0.
unsigned forbidden_character(const XMLCh* text) {
  for (const XMLCh* c = text; c && *c; ++c) {
    const unsigned u = *c;
    if (u >= 0xD800 && u <= 0xDBFF && c[1] >= 0xDC00 && c[1] <= 0xDFFF) {
      ++c;
      continue;
    }
    const bool allowed = u == 0x9 || u == 0xA || u == 0xD || (u >= 0x20 && u <= 0xD7FF) ||
                         (u >= 0xE000 && u <= 0xFFFD);
    if (!allowed) return u;
  }
  return 0;
}

std::wstring name_of(const xercesc::DOMNode* node) {
  std::wstring name;
  for (const XMLCh* c = node ? node->getNodeName() : nullptr; c && *c; ++c) name += wchar_t(*c);
  return name;
}

[[noreturn]] void refuse_character(unsigned character, const std::wstring& holder) {
  wchar_t code[16];
  std::swprintf(code, 16, L"U+%04X", character);
  throw ContentRefused(L"Tivalo: The document cannot be written: " + holder +
                       L" holds a character that XML 1.0 cannot carry (" + code + L").");
}

// A value put by a client may hold what no XML 1.0 document can (a control character, a lone
// surrogate); the serializer would fail on it without saying where. The walk is iterative: carried
// extension content can be nested deep.
void check_characters(const xercesc::DOMNode& root) {
  for (const xercesc::DOMNode* node = &root; node;) {
    if (const xercesc::DOMNamedNodeMap* attributes = node->getAttributes()) {
      for (XMLSize_t i = 0; i < attributes->getLength(); ++i) {
        const xercesc::DOMNode* attribute = attributes->item(i);
        if (unsigned c = forbidden_character(attribute->getNodeValue()))
          refuse_character(c, L"the attribute " + name_of(attribute) + L" of " + name_of(node));
      }
    }
    if (node->getNodeType() != xercesc::DOMNode::ELEMENT_NODE &&
        node->getNodeType() != xercesc::DOMNode::DOCUMENT_NODE) {
      if (unsigned c = forbidden_character(node->getNodeValue()))
        refuse_character(c, name_of(node->getParentNode()));
    }
    if (const xercesc::DOMNode* child = node->getFirstChild()) {
      node = child;
      continue;
    }
    while (node && node != &root && !node->getNextSibling()) node = node->getParentNode();
    node = node && node != &root ? node->getNextSibling() : nullptr;
  }
}

}  // namespace

namespace {

thread_local ReadPath read_path = ReadPath::streaming;

// The binding's path: Xerces-C's DOM, the binding's tree, then the load step.
void read_through_binding(DocumentContent& document, std::string_view bytes) {
  std::unique_ptr<tree::type> parsed =
      parse_document(document.binding(), bytes,
                     tree::flags::dont_validate | tree::flags::dont_initialize, ParseProperties());
  document.load_document(*parsed);
}

void read_bytes(DocumentContent& document, std::string_view bytes) {
  switch (read_path) {
    case ReadPath::streaming:
      // A document with a fault is read again by the binding's path, whose texts name every
      // fault; so is one the streaming reader leaves to it.
      if (stream_read(document, bytes) != StreamReadResult::read)
        read_through_binding(document, bytes);
      break;
    case ReadPath::binding_only:
      read_through_binding(document, bytes);
      break;
    case ReadPath::streaming_only:
      if (const StreamReadResult result = stream_read(document, bytes);
          result != StreamReadResult::read)
        throw UBL2::message_error(result == StreamReadResult::refused ? streaming_refused
                                                                      : streaming_declined);
      break;
  }
}

// The parse comes first: a text that fails to parse leaves the content untouched.
template <class Read>
HRESULT read_document(DocumentContent& document, Read&& read) {
  const DocumentBinding& kind = document.binding();
  XmlPlatformInUse xml;
  std::wstring error;
  try {
    read();
  } catch (const xsd::cxx::exception& failure) {
    error = printed(failure);
  } catch (const ContentRefused& refused) {
    error = refused.message();
  }
  return error.empty() ? S_OK : report_error(kind, error);
}

}  // namespace

HRESULT ReadFromStream(DocumentContent& document, std::istream& in) {
  return read_document(document, [&] { read_bytes(document, document_bytes(in)); });
}

HRESULT ReadFromBytes(DocumentContent& document, std::string_view bytes) {
  return read_document(document, [&] { read_bytes(document, bytes); });
}

void set_read_path(ReadPath path) { read_path = path; }

HRESULT WriteToStream(const DocumentContent& document, std::ostream& out) {
  const DocumentBinding& kind = document.binding();
  XmlPlatformInUse xml;
  const tree::flags flags = tree::flags::dont_initialize;
  std::wstring error;
  try {
    const NamespaceMap namespaces = UBL2::ubl_namespace_map(kind.namespace_uri);
    const std::unique_ptr<tree::type> stored = document.store_document();
    const DomDocumentPtr dom = kind.serialize_dom(*stored, namespaces, flags);
    check_characters(*dom);
    tree::error_handler<wchar_t> diagnostics;
    xsd::cxx::xml::dom::ostream_format_target target(out);
    if (!xsd::cxx::xml::dom::serialize(target, *dom, std::wstring(L"UTF-8"), diagnostics, flags))
      diagnostics.throw_if_failed<tree::serialization<wchar_t>>();
  } catch (const xsd::cxx::exception& failure) {
    error = printed(failure);
  } catch (const ContentRefused& refused) {
    error = refused.message();
  }
  return error.empty() ? S_OK : report_error(kind, error);
}

}  // namespace Morvek::Tivalo::Documents
