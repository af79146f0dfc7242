#include "binding/namespaces.h"
#include "document/error_report.h"
#include "document/local_parser.h"
#include "document/stream_reader.h"
#include "document/streams.h"
#include "document/text.h"
#include "model/xml_writer.h"

#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/dom/DOMNode.hpp>
#include <xsd/cxx/tree/error-handler.hxx>
#include <xsd/cxx/tree/exceptions.hxx>
#include <xsd/cxx/xml/dom/serialization-source.hxx>

#include <atomic>
#include <istream>
#include <ostream>
#include <sstream>

namespace Morvek::Tivalo::Documents {
namespace {

std::wstring name_of(const xercesc::DOMNode* node) {
  std::wstring name;
  for (const XMLCh* c = node ? node->getNodeName() : nullptr; c && *c; ++c) name += wchar_t(*c);
  return name;
}

[[noreturn]] void refuse_character(unsigned character, const std::wstring& holder) {
  throw ContentRefused(forbidden_character_message(character, holder));
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

// Alone, a refusal fails with the streaming reader's own text.
void refuse_unless_read(StreamReadResult result, const std::wstring& fault) {
  if (result != StreamReadResult::read) throw ContentRefused(fault);
}

void read_bytes(DocumentContent& document, std::string_view bytes) {
  if (reads_alone(document)) {
    std::wstring fault;
    refuse_unless_read(stream_read(document, bytes, &fault), fault);
    return;
  }
  if (read_path == ReadPath::binding_only) {
    read_through_binding(document, bytes);
    return;
  }
  // A document with a fault is read again by the binding's path, whose texts name every fault;
  // so is one the streaming reader leaves to it.
  if (stream_read(document, bytes) != StreamReadResult::read) read_through_binding(document, bytes);
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

// A stream that can go back to its start is pulled by the streaming reader a piece at a time;
// should that fail or decline, the binding's path reads it again from the start.
void read_stream(DocumentContent& document, std::istream& in) {
  const std::istream::pos_type start = in.tellg();
  if (reads_alone(document)) {
    std::wstring fault;
    refuse_unless_read(stream_read(document, in, &fault), fault);
    return;
  }
  if (read_path == ReadPath::binding_only || start == std::istream::pos_type(-1)) {
    read_bytes(document, document_bytes(in));
    return;
  }
  if (stream_read(document, in) == StreamReadResult::read) return;
  in.clear();
  if (!in.seekg(start)) throw UBL2::message_error(L"Tivalo: The document could not be read.");
  read_through_binding(document, document_bytes(in));
}

}  // namespace

HRESULT ReadFromStream(DocumentContent& document, std::istream& in) {
  return read_document(document, [&] { read_stream(document, in); });
}

HRESULT ReadFromBytes(DocumentContent& document, std::string_view bytes) {
  return read_document(document, [&] { read_bytes(document, bytes); });
}

void set_read_path(ReadPath path) { read_path = path; }

bool reads_alone(const DocumentContent& document) {
  return read_path == ReadPath::streaming_alone || !document.binding().parse_stream;
}

namespace {

std::atomic<bool> binding_writer{false};

}  // namespace

void use_binding_writer(bool use) { binding_writer = use; }

HRESULT WriteThroughBinding(const DocumentContent& document, std::ostream& out) {
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

HRESULT WriteToString(const DocumentContent& document, std::string& text) {
  if (binding_writer) {
    std::ostringstream out;
    const HRESULT hr = WriteThroughBinding(document, out);
    text = out.str();
    return hr;
  }
  const DocumentBinding& kind = document.binding();
  XmlPlatformInUse xml;
  std::wstring error;
  try {
    XmlWriter writer(text);
    document.write_document(writer);
  } catch (const ContentRefused& refused) {
    error = refused.message();
    text.clear();
  }
  return error.empty() ? S_OK : report_error(kind, error);
}

HRESULT WriteToStream(const DocumentContent& document, std::ostream& out) {
  std::string text;
  const HRESULT hr = WriteToString(document, text);
  if (SUCCEEDED(hr)) out.write(text.data(), std::streamsize(text.size()));
  return hr;
}

}  // namespace Morvek::Tivalo::Documents
