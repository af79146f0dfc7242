#include "binding/namespaces.h"
#include "document/error_report.h"
#include "document/local_parser.h"
#include "document/markup_limits.h"
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
#include <cstdint>
#include <optional>
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

// The first character XML cannot carry of a text the DOM could not hold whole (values.h).
std::optional<unsigned> marked_character(const xercesc::DOMNode& node) {
  const auto mark = reinterpret_cast<std::uintptr_t>(
      node.getUserData(reinterpret_cast<const XMLCh*>(UBL2::unwritable_character_key)));
  if (!mark) return std::nullopt;
  return unsigned(mark - 1);
}

// A value put by a client may hold what no XML 1.0 document can (a control character, a lone
// surrogate); the serializer would fail on it without saying where. The graph may also nest
// elements deeper than Read takes. Both are refused in document order, as the streaming writer
// meets them. The walk is iterative: carried extension content can be nested deep.
void check_characters(const xercesc::DOMNode& root) {
  std::size_t depth = 0;
  for (const xercesc::DOMNode* node = &root; node;) {
    if (node->getNodeType() == xercesc::DOMNode::ELEMENT_NODE && depth > max_element_depth)
      throw ContentRefused(too_deep_message());
    if (const xercesc::DOMNamedNodeMap* attributes = node->getAttributes()) {
      for (XMLSize_t i = 0; i < attributes->getLength(); ++i) {
        const xercesc::DOMNode* attribute = attributes->item(i);
        const std::optional<unsigned> marked = marked_character(*attribute);
        if (const unsigned c = marked ? *marked : forbidden_character(attribute->getNodeValue());
            c || marked)
          refuse_character(c, L"the attribute " + name_of(attribute) + L" of " + name_of(node));
      }
    }
    if (const std::optional<unsigned> marked = marked_character(*node))
      refuse_character(*marked, name_of(node));
    if (node->getNodeType() != xercesc::DOMNode::ELEMENT_NODE &&
        node->getNodeType() != xercesc::DOMNode::DOCUMENT_NODE) {
      if (unsigned c = forbidden_character(node->getNodeValue()))
        refuse_character(c, name_of(node->getParentNode()));
    }
    if (const xercesc::DOMNode* child = node->getFirstChild()) {
      node = child;
      ++depth;
      continue;
    }
    while (node && node != &root && !node->getNextSibling()) {
      node = node->getParentNode();
      --depth;
    }
    node = node && node != &root ? node->getNextSibling() : nullptr;
  }
}

}  // namespace

namespace {

thread_local ReadPath read_path = ReadPath::streaming;

// The binding's path: Xerces-C's DOM, the binding's tree, then the load step.
void read_through_binding(DocumentContent& document, std::string_view bytes,
                          bool characters = false) {
  std::unique_ptr<tree::type> parsed =
      parse_document(document.binding(), bytes,
                     tree::flags::dont_validate | tree::flags::dont_initialize, ParseProperties(),
                     nullptr, characters);
  document.load_document(*parsed);
}

// Characters a caller gave as text keep their declaration's encoding name only as a label: the
// reader alone is shown them declared as UTF-8, which is what they were converted to.
std::string declared_utf8(std::string_view bytes) {
  const std::size_t end = bytes.find("?>");
  const std::size_t at = bytes.rfind("encoding", end);
  std::string text(bytes);
  if (bytes.rfind("<?xml", 0) != 0 || end == std::string_view::npos || at == std::string_view::npos)
    return text;
  const std::size_t open = bytes.find_first_of("'\"", at);
  const std::size_t close = open < end ? bytes.find(bytes[open], open + 1) : std::string_view::npos;
  if (close == std::string_view::npos || close > end) return text;
  return text.replace(open + 1, close - open - 1, "UTF-8");
}

// Alone, a refusal fails with the streaming reader's own text.
void refuse_unless_read(StreamReadResult result, const std::wstring& fault) {
  if (result != StreamReadResult::read) throw ContentRefused(fault);
}

void read_bytes(DocumentContent& document, std::string_view bytes, bool characters = false) {
  const bool relabel = characters && !read_as_utf8(bytes);
  if (reads_alone(document)) {
    std::wstring fault;
    if (relabel)
      refuse_unless_read(stream_read(document, declared_utf8(bytes), &fault), fault);
    else
      refuse_unless_read(stream_read(document, bytes, &fault), fault);
    return;
  }
  // A caller's characters whose declaration names another encoding: the binding's parser is told
  // they are UTF-8.
  if (relabel || read_path == ReadPath::binding_only) {
    read_through_binding(document, bytes, relabel);
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

HRESULT ReadFromBytes(DocumentContent& document, std::string_view bytes, bool characters) {
  return read_document(document, [&] { read_bytes(document, bytes, characters); });
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
