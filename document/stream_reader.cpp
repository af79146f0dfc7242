#include "document/stream_reader.h"

#include "document/markup_limits.h"
#include "document/xml_text.h"
#include "model/stream_read.h"
#include "model/xml_platform.h"

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlerror.h>
#include <xercesc/dom/DOM.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <istream>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Morvek::Tivalo {
namespace {

using StreamRead::ChildOps;
using StreamRead::MemberRule;
using StreamRead::Namespace;
using StreamRead::Occurs;
using StreamRead::Rules;

constexpr std::string_view member_namespaces[] = {
    "", "urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2",
    "urn:oasis:names:specification:ubl:schema:xsd:CommonAggregateComponents-2",
    "urn:oasis:names:specification:ubl:schema:xsd:CommonExtensionComponents-2"};
constexpr std::string_view schema_instance = "http://www.w3.org/2001/XMLSchema-instance";

std::string_view view(const xmlChar* text) {
  return text ? std::string_view(reinterpret_cast<const char*>(text)) : std::string_view();
}

std::string ascii(const wchar_t* text) {
  std::string out;
  for (; *text; ++text) out += static_cast<char>(*text);
  return out;
}

// The code points of well-formed UTF-8 (libxml2 hands over nothing else), one by one.
template <class Emit>
void each_code_point(std::string_view utf8, Emit&& emit) {
  const auto* s = reinterpret_cast<const unsigned char*>(utf8.data());
  const auto* end = s + utf8.size();
  while (s < end) {
    char32_t c = *s++;
    if (c >= 0xF0) {
      c = (c & 0x07) << 18 | (s[0] & 0x3F) << 12 | (s[1] & 0x3F) << 6 | (s[2] & 0x3F);
      s += 3;
    } else if (c >= 0xE0) {
      c = (c & 0x0F) << 12 | (s[0] & 0x3F) << 6 | (s[1] & 0x3F);
      s += 2;
    } else if (c >= 0xC0) {
      c = (c & 0x1F) << 6 | (s[0] & 0x3F);
      s += 1;
    }
    emit(c);
  }
}

// Text as the object model holds it: UTF-32 where wchar_t is 32 bits wide, UTF-16 elsewhere.
template <class Char>
void append_utf16_or_32(std::basic_string<Char>& out, std::string_view utf8) {
  each_code_point(utf8, [&](char32_t c) {
    if (sizeof(Char) == 2 && c >= 0x10000) {
      out += static_cast<Char>(0xD800 + ((c - 0x10000) >> 10));
      out += static_cast<Char>(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      out += static_cast<Char>(c);
    }
  });
}

std::wstring wide(std::string_view utf8) {
  std::wstring out;
  out.reserve(utf8.size());
  append_utf16_or_32(out, utf8);
  return out;
}

XmlText xml_of(std::string_view utf8) {
  XmlText out;
  append_utf16_or_32(out, utf8);
  return out;
}

// libxml2 hands over an attribute value that held '&' (as a reference) with each '&' written as
// "&#38;", since it substitutes no entities; every '&' in it stands for one.
std::string attribute_value(const xmlChar* begin, const xmlChar* end) {
  std::string value(reinterpret_cast<const char*>(begin), static_cast<std::size_t>(end - begin));
  for (std::size_t at = value.find('&'); at != std::string::npos; at = value.find('&', at + 1))
    if (value.compare(at, 5, "&#38;") == 0) value.erase(at + 1, 4);
  return value;
}

// ---- Which documents the reader takes ----------------------------------------------------------

bool same_ignoring_case(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'a' && x <= 'z') x = char(x - 'a' + 'A');
    if (y >= 'a' && y <= 'z') y = char(y - 'a' + 'A');
    if (x != y) return false;
  }
  return true;
}

// A pseudo-attribute of the XML declaration ("version", "encoding"); empty when absent.
std::string_view declared(std::string_view declaration, std::string_view name) {
  for (std::size_t at = declaration.find(name); at != std::string_view::npos;
       at = declaration.find(name, at + 1)) {
    std::size_t i = at + name.size();
    while (i < declaration.size() && (declaration[i] == ' ' || declaration[i] == '\t' ||
                                      declaration[i] == '\r' || declaration[i] == '\n'))
      ++i;
    if (i >= declaration.size() || declaration[i] != '=') continue;
    ++i;
    while (i < declaration.size() && (declaration[i] == ' ' || declaration[i] == '\t' ||
                                      declaration[i] == '\r' || declaration[i] == '\n'))
      ++i;
    if (i >= declaration.size() || (declaration[i] != '"' && declaration[i] != '\'')) continue;
    const std::size_t close = declaration.find(declaration[i], i + 1);
    if (close == std::string_view::npos) return {};
    return declaration.substr(i + 1, close - i - 1);
  }
  return {};
}

// The XML declaration's text in ASCII (UTF-16 read unit by unit), or empty when there is none.
std::string declaration_of(std::string_view bytes, std::size_t width, bool big_endian) {
  std::string text;
  for (std::size_t at = 0; at + width <= bytes.size() && text.size() < 256; at += width) {
    const unsigned char low = bytes[at + (big_endian ? width - 1 : 0)];
    const unsigned char high = width == 2 ? bytes[at + (big_endian ? 0 : 1)] : 0;
    if (high) return {};
    text += static_cast<char>(low);
    if (text.size() >= 2 && text.compare(text.size() - 2, 2, "?>") == 0) break;
  }
  if (text.compare(0, 5, "<?xml") != 0 || text.size() < 6) return {};
  const char after = text[5];
  if (after != ' ' && after != '\t' && after != '\r' && after != '\n') return {};
  return text;
}

// Both parsers read UTF-8, UTF-16 with a byte order mark and ISO-8859-1 alike; for anything else
// (other encodings, XML 1.1, a declaration the check cannot read) the binding's parser decides.
bool encoding_is_read(std::string_view bytes) {
  using namespace std::literals;
  std::string declaration;
  std::vector<std::string_view> names;
  if (bytes.substr(0, 2) == "\xFF\xFE"sv || bytes.substr(0, 2) == "\xFE\xFF"sv) {
    if (bytes.substr(0, 4) == "\xFF\xFE\0\0"sv) return false;  // UTF-32
    declaration = declaration_of(bytes.substr(2), 2, bytes[0] == '\xFE');
    names = {"UTF-16"};
  } else if (bytes.substr(0, 3) == "\xEF\xBB\xBF"sv) {
    declaration = declaration_of(bytes.substr(3), 1, false);
    names = {"UTF-8"};
  } else {
    // UTF-16 and UTF-32 without a byte order mark are the binding's (libxml2 would print).
    if (bytes.empty() || bytes[0] != '<' || bytes.substr(0, 4).find('\0') != bytes.npos)
      return false;
    declaration = declaration_of(bytes, 1, false);
    names = {"UTF-8", "ISO-8859-1"};
  }
  if (declaration.empty()) return bytes.substr(0, 5) != "<?xml"sv && bytes.find("<?xml"sv) > 4;
  if (declaration.compare(declaration.size() - 2, 2, "?>") != 0) return false;
  if (declared(declaration, "version") != "1.0") return false;
  const std::string_view encoding = declared(declaration, "encoding");
  if (encoding.empty()) return true;
  for (std::string_view name : names)
    if (same_ignoring_case(encoding, name)) return true;
  return false;
}

// ---- The reader ---------------------------------------------------------------------------------

// An element being read, other than those inside skipped or carried content.
struct Frame {
  enum class Mode : std::uint8_t { element_content, simple_content };
  Mode mode = Mode::element_content;
  bool keep = true;         // false: read for its faults only (a child whose member was filled)
  bool walk_ended = false;  // a child took no member: the rest of the content is not read
  std::uint8_t next = 0;    // where the next child's member is looked for first
  std::uint64_t filled = 0;
  void* record = nullptr;  // the record of the object the element is, if it is one
  void* parent = nullptr;  // the record the element belongs to
  const Rules* rules = nullptr;
  const ChildOps* ops = nullptr;
  tivalo::ComPtr<IUnknown> held;
};

struct Declined {};

// The document's bytes, handed to the parser a piece at a time.
struct Pieces {
  std::string_view rest;
  static int read(void* context, char* buffer, int length) {
    auto& pieces = *static_cast<Pieces*>(context);
    const std::size_t size = std::min(pieces.rest.size(), std::size_t(length > 0 ? length : 0));
    std::memcpy(buffer, pieces.rest.data(), size);
    pieces.rest.remove_prefix(size);
    return int(size);
  }
};

// A document pulled from a stream a piece at a time: the parser is handed only bytes the markup
// scan has passed, and what it has been handed is dropped, so no copy of the whole document is
// ever held.
class StreamPieces {
 public:
  explicit StreamPieces(std::istream& in) : in_(in) {}

  // The first bytes (the first piece, or all of a shorter document), for the encoding check.
  std::string_view head() {
    if (window_.empty() && !ended_) fill();
    return window_;
  }
  bool refused() const { return refused_; }

  static int read(void* context, char* buffer, int length) {
    auto& pieces = *static_cast<StreamPieces*>(context);
    std::size_t passed = pieces.scan_.passed(pieces.window_.size());
    while (passed == pieces.handed_ && !pieces.ended_ && !pieces.refused_) {
      pieces.fill();
      passed = pieces.scan_.passed(pieces.window_.size());
    }
    if (pieces.refused_) return -1;
    const std::size_t wanted = std::size_t(length > 0 ? length : 0);
    const std::size_t size = std::min(passed - pieces.handed_, wanted);
    std::memcpy(buffer, pieces.window_.data() + pieces.handed_, size);
    pieces.handed_ += size;
    return int(size);
  }

 private:
  static constexpr std::size_t piece = 65536;

  void fill() {
    if (handed_ >= piece) {  // drop what the parser has
      const std::size_t dropped = scan_.forget(handed_);
      window_.erase(0, dropped);
      handed_ -= dropped;
    }
    const std::size_t old = window_.size();
    window_.resize(old + piece);
    in_.read(&window_[old], std::streamsize(piece));
    const std::size_t got = std::size_t(in_.gcount());
    window_.resize(old + got);
    if (got < piece) ended_ = true;
    if (in_.bad() || scan_.more(window_, ended_) != MarkupExcess::none) refused_ = true;
  }

  std::istream& in_;
  std::string window_;
  std::size_t handed_ = 0;
  MarkupScan scan_;
  bool ended_ = false;
  bool refused_ = false;
};

class Reader {
 public:
  explicit Reader(const StreamRead::DocumentRules& document)
      : document_(document),
        root_name_(ascii(document.binding->name)),
        root_namespace_(ascii(document.binding->namespace_uri)),
        record_(document.fresh_record(), document.discard_record) {
    frames_.reserve(64);
  }

  StreamReadResult read(xmlInputReadCallback pull, void* source) {
    xmlSAXHandler handler;
    std::memset(&handler, 0, sizeof handler);
    handler.initialized = XML_SAX2_MAGIC;
    handler.startElementNs = &on_start;
    handler.endElementNs = &on_end;
    handler.characters = &on_text;
    handler.ignorableWhitespace = &on_text;
    handler.cdataBlock = &on_cdata;
    handler.processingInstruction = &on_instruction;
    handler.internalSubset = &on_doctype;
    handler.serror = &on_error;

    // The parser pulls the bytes in pieces and keeps no copy of the whole document.
    xmlParserCtxtPtr context =
        xmlCreateIOParserCtxt(&handler, this, pull, nullptr, source, XML_CHAR_ENCODING_NONE);
    if (!context) throw std::bad_alloc();
    // No network, no DTD loading, no entity substitution; the hard limits are the component's.
    xmlCtxtUseOptions(context, XML_PARSE_NONET | XML_PARSE_HUGE);
    context_ = context;
    xmlParseDocument(context);
    // Namespace errors leave the document well formed but are reported here (on_error) as well.
    const bool well_formed = context->wellFormed;
    context_ = nullptr;
    xmlFreeParserCtxt(context);
    carried_.reset();

    if (declined_) return StreamReadResult::declined;
    if (failed_ || !well_formed || !root_read_) return StreamReadResult::refused;
    return StreamReadResult::read;
  }

  void adopt_into(DocumentContent& document) { document_.adopt_record(document, record_.get()); }

 private:
  // libxml2 is C: nothing may unwind through it. A failure stops the parser and is kept.
  template <class Body>
  static void guarded(void* context, Body&& body) {
    // The parser hands every callback its user data: the reader.
    auto* self = static_cast<Reader*>(context);
    if (!self || self->failed_ || self->declined_) return;
    try {
      body(*self);
    } catch (const Declined&) {
      self->declined_ = true;
      xmlStopParser(self->context_);
    } catch (...) {
      self->failed_ = true;
      xmlStopParser(self->context_);
    }
  }

  static void on_start(void* context, const xmlChar* local, const xmlChar* prefix,
                       const xmlChar* uri, int namespace_count, const xmlChar** namespaces,
                       int attribute_count, int, const xmlChar** attributes) {
    guarded(context, [&](Reader& self) {
      self.start(local, prefix, uri, namespace_count, namespaces, attribute_count, attributes);
    });
  }
  static void on_end(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
    guarded(context, [&](Reader& self) { self.end(); });
  }
  static void on_text(void* context, const xmlChar* text, int length) {
    guarded(context, [&](Reader& self) { self.text(text, length, false); });
  }
  static void on_cdata(void* context, const xmlChar* text, int length) {
    guarded(context, [&](Reader& self) { self.text(text, length, true); });
  }
  static void on_instruction(void* context, const xmlChar* target, const xmlChar* data) {
    guarded(context, [&](Reader& self) { self.instruction(target, data); });
  }
  // A document type declaration stops the parser before its internal subset is read.
  static void on_doctype(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
    guarded(context, [&](Reader&) { throw std::runtime_error("document type declaration"); });
  }
  // libxml2 reports a namespace name that is not a valid or absolute URI as an error; it is
  // only a warning of the namespaces recommendation, and Xerces-C reads such documents.
  static void on_error(void* context, xmlErrorPtr error) {
    if (!error || error->level < XML_ERR_ERROR) return;
    if (error->code == XML_WAR_NS_URI || error->code == XML_WAR_NS_URI_RELATIVE) return;
    guarded(context, [&](Reader&) { throw std::runtime_error("not well formed"); });
  }

  // The parser hands over the same URI pointer for every element under one declaration; the
  // few pointers met last are remembered.
  Namespace namespace_of(const xmlChar* uri) {
    for (const KnownUri& known : known_uris_)
      if (known.uri == uri && uri) return known.ns;
    const std::string_view name = view(uri);
    Namespace found = Namespace::other;
    for (std::size_t i = 1; i < std::size(member_namespaces); ++i)
      if (name == member_namespaces[i]) found = static_cast<Namespace>(i);
    known_uris_[next_known_++ % std::size(known_uris_)] = {uri, found};
    return found;
  }

  static bool names_a_type(int attribute_count, const xmlChar** attributes) {
    for (int i = 0; i < attribute_count; ++i) {
      const xmlChar** a = attributes + 5 * i;
      if (a[2] && view(a[0]) == "type" && view(a[2]) == schema_instance) return true;
    }
    return false;
  }

  void start(const xmlChar* local, const xmlChar* prefix, const xmlChar* uri, int namespace_count,
             const xmlChar** namespaces, int attribute_count, const xmlChar** attributes) {
    if (++depth_ > max_element_depth ||
        std::size_t(attribute_count + namespace_count) > max_attributes_per_element)
      throw std::runtime_error("markup limits");
    if (skipping_) {
      ++skipping_;
      return;
    }
    if (carried_) {
      carry_start(local, prefix, uri, namespace_count, namespaces, attribute_count, attributes);
      return;
    }
    if (names_a_type(attribute_count, attributes)) throw Declined();
    if (frames_.empty()) {
      if (root_read_ || view(local) != root_name_ || view(uri) != root_namespace_)
        throw std::runtime_error("unexpected root element");
      Frame& root = frames_.emplace_back();
      root.record = record_.get();
      root.rules = document_.rules;
      return;
    }
    Frame& parent = frames_.back();
    if (parent.mode == Frame::Mode::simple_content)
      throw std::runtime_error("an element where text is expected");
    if (parent.walk_ended) {
      skipping_ = 1;
      return;
    }
    const Rules& rules = *parent.rules;
    const Namespace ns = namespace_of(uri);
    const std::string_view name = view(local);
    std::size_t index = rules.member_count;
    for (std::size_t i = 0, at = parent.next; i < rules.member_count; ++i, ++at) {
      if (at >= rules.member_count) at = 0;
      const MemberRule& member = rules.members[at];
      if (member.ns == ns && member.name == name) {
        index = at;
        break;
      }
    }
    if (index == rules.member_count) {  // no member takes it: the walk ends here
      parent.walk_ended = true;
      skipping_ = 1;
      return;
    }
    const MemberRule& member = rules.members[index];
    const std::uint64_t bit = std::uint64_t(1) << index;
    bool keep = true;
    if (member.occurs != Occurs::sequence) {
      keep = !(parent.filled & bit);
      parent.filled |= bit;
    }
    // A child whose member is filled is still read, as the binding reads it, and ends the walk.
    if (!keep) parent.walk_ended = true;
    parent.next = static_cast<std::uint8_t>(index);
    void* parent_record = parent.record;
    const ChildOps* ops = member.child;

    if (ops->carry) {
      carry_begin(ops, parent_record, keep, local, prefix, uri, namespace_count, namespaces,
                  attribute_count, attributes);
      return;
    }
    Frame frame;
    frame.keep = keep;
    frame.parent = parent_record;
    frame.ops = ops;
    if (ops->value) {
      frame.mode = Frame::Mode::simple_content;
      text_.clear();
    } else {
      StreamRead::Target target = ops->begin(parent_record, keep);
      frame.record = target.record;
      frame.rules = target.rules;
      frame.held = std::move(target.held);
      if (frame.rules->content) {
        frame.mode = Frame::Mode::simple_content;
        text_.clear();
        read_attributes(*frame.rules, frame.record, attribute_count, attributes);
      }
    }
    frames_.push_back(std::move(frame));
  }

  // Attributes by their unqualified name; namespace declarations and qualified ones are not
  // the data type's. A required one that is missing fails the read.
  static void read_attributes(const Rules& rules, void* record, int attribute_count,
                              const xmlChar** attributes) {
    std::uint64_t seen = 0;
    for (int i = 0; i < attribute_count; ++i) {
      const xmlChar** a = attributes + 5 * i;
      if (a[2]) continue;
      const std::string_view name = view(a[0]);
      for (std::size_t r = 0; r < rules.attribute_count; ++r) {
        if (rules.attributes[r].name != name) continue;
        rules.attributes[r].assign(record, wide(attribute_value(a[3], a[4])));
        seen |= std::uint64_t(1) << r;
        break;
      }
    }
    for (std::size_t r = 0; r < rules.attribute_count; ++r)
      if (rules.attributes[r].required && !(seen & (std::uint64_t(1) << r)))
        throw std::runtime_error("a required attribute is missing");
  }

  void end() {
    --depth_;
    if (skipping_) {
      --skipping_;
      return;
    }
    if (carried_) {
      carry_end();
      return;
    }
    Frame& frame = frames_.back();
    if (frame.mode == Frame::Mode::simple_content) {
      // A long text's bytes are freed before its value is made.
      std::wstring text = wide(text_);
      if (text_.capacity() > 65536) std::string().swap(text_);
      if (frame.ops->value)
        frame.ops->value(frame.parent, std::move(text), frame.keep);
      else
        frame.rules->content(frame.record, std::move(text));
    } else {
      const Rules& rules = *frame.rules;
      for (std::size_t i = 0; i < rules.member_count; ++i) {
        const MemberRule& member = rules.members[i];
        if (frame.filled & (std::uint64_t(1) << i)) continue;
        if (member.occurs == Occurs::one) throw std::runtime_error("a required child is missing");
        if (member.child->complete) member.child->complete(frame.record);
      }
    }
    frames_.pop_back();
    if (frames_.empty()) root_read_ = true;
  }

  void text(const xmlChar* text, int length, bool cdata) {
    if (skipping_) return;
    if (carried_) {
      carry_text(text, length, cdata);
      return;
    }
    if (!frames_.empty() && frames_.back().mode == Frame::Mode::simple_content)
      text_.append(reinterpret_cast<const char*>(text), static_cast<std::size_t>(length));
  }

  void instruction(const xmlChar* target, const xmlChar* data) {
    if (skipping_ || !carried_) return;
    carried_->open.back()->appendChild(
        carried_->document->createProcessingInstruction(xml_of(view(target)).c_str(),
                                                        xml_of(view(data)).c_str()));
  }

  // ---- Carried content: a DOM copy of the element, for the binding element it becomes --------

  struct Carried {
    struct Release {
      void operator()(xercesc::DOMDocument* document) const { document->release(); }
    };
    std::unique_ptr<xercesc::DOMDocument, Release> document;
    std::vector<xercesc::DOMElement*> open;
    const ChildOps* ops = nullptr;
    void* parent = nullptr;
    bool keep = true;
  };

  static XmlText qualified(const xmlChar* prefix, const xmlChar* local) {
    XmlText name = prefix ? xml_of(view(prefix)) + XMLCh(u':') : XmlText();
    return name + xml_of(view(local));
  }

  // An element as the DOM parser builds it: its namespace declarations first, then its
  // attributes, each in document order.
  xercesc::DOMElement* carried_element(const xmlChar* local, const xmlChar* prefix,
                                       const xmlChar* uri, int namespace_count,
                                       const xmlChar** namespaces, int attribute_count,
                                       const xmlChar** attributes) {
    xercesc::DOMDocument& document = *carried_->document;
    const XmlText ns = uri ? xml_of(view(uri)) : XmlText();
    xercesc::DOMElement* element =
        document.createElementNS(uri ? ns.c_str() : nullptr, qualified(prefix, local).c_str());
    for (int i = 0; i < namespace_count; ++i) {
      const xmlChar* declared_prefix = namespaces[2 * i];
      const XmlText name = declared_prefix ? xml_text(u"xmlns:") + xml_of(view(declared_prefix))
                                           : xml_text(u"xmlns");
      element->setAttributeNS(xercesc::XMLUni::fgXMLNSURIName, name.c_str(),
                              xml_of(view(namespaces[2 * i + 1])).c_str());
    }
    for (int i = 0; i < attribute_count; ++i) {
      const xmlChar** a = attributes + 5 * i;
      const XmlText attribute_ns = a[2] ? xml_of(view(a[2])) : XmlText();
      element->setAttributeNS(a[2] ? attribute_ns.c_str() : nullptr, qualified(a[1], a[0]).c_str(),
                              xml_of(attribute_value(a[3], a[4])).c_str());
    }
    return element;
  }

  void carry_begin(const ChildOps* ops, void* parent, bool keep, const xmlChar* local,
                   const xmlChar* prefix, const xmlChar* uri, int namespace_count,
                   const xmlChar** namespaces, int attribute_count, const xmlChar** attributes) {
    start_xml_platform();
    carried_ = std::make_unique<Carried>();
    carried_->ops = ops;
    carried_->parent = parent;
    carried_->keep = keep;
    carried_->document.reset(
        xercesc::DOMImplementationRegistry::getDOMImplementation(xml_chars(u"LS"))
            ->createDocument());
    xercesc::DOMElement* element = carried_element(local, prefix, uri, namespace_count,
                                                   namespaces, attribute_count, attributes);
    carried_->document->appendChild(element);
    carried_->open.push_back(element);
  }

  void carry_start(const xmlChar* local, const xmlChar* prefix, const xmlChar* uri,
                   int namespace_count, const xmlChar** namespaces, int attribute_count,
                   const xmlChar** attributes) {
    xercesc::DOMElement* element = carried_element(local, prefix, uri, namespace_count,
                                                   namespaces, attribute_count, attributes);
    carried_->open.back()->appendChild(element);
    carried_->open.push_back(element);
  }

  void carry_text(const xmlChar* text, int length, bool cdata) {
    const XmlText value =
        xml_of(std::string_view(reinterpret_cast<const char*>(text), std::size_t(length)));
    xercesc::DOMElement* element = carried_->open.back();
    xercesc::DOMNode* last = element->getLastChild();
    if (cdata) {
      element->appendChild(carried_->document->createCDATASection(value.c_str()));
    } else if (last && last->getNodeType() == xercesc::DOMNode::TEXT_NODE) {
      static_cast<xercesc::DOMText*>(last)->appendData(value.c_str());
    } else {
      element->appendChild(carried_->document->createTextNode(value.c_str()));
    }
  }

  void carry_end() {
    carried_->open.pop_back();
    if (!carried_->open.empty()) return;
    std::unique_ptr<Carried> carried = std::move(carried_);
    carried->ops->carry(carried->parent, *carried->document->getDocumentElement(), carried->keep);
  }

  const StreamRead::DocumentRules& document_;
  const std::string root_name_;
  const std::string root_namespace_;
  std::unique_ptr<void, void (*)(void*)> record_;
  xmlParserCtxtPtr context_ = nullptr;
  std::vector<Frame> frames_;
  std::unique_ptr<Carried> carried_;
  std::string text_;
  std::size_t depth_ = 0;
  std::size_t skipping_ = 0;
  struct KnownUri {
    const xmlChar* uri = nullptr;
    Namespace ns = Namespace::other;
  };
  KnownUri known_uris_[8];
  std::size_t next_known_ = 0;
  bool root_read_ = false;
  bool failed_ = false;
  bool declined_ = false;
};

StreamReadResult read_into(DocumentContent& document, const StreamRead::DocumentRules& rules,
                           xmlInputReadCallback pull, void* source) {
  static std::once_flag initialised;
  std::call_once(initialised, [] { xmlInitParser(); });
  Reader reader(rules);
  const StreamReadResult result = reader.read(pull, source);
  if (result == StreamReadResult::read) reader.adopt_into(document);
  return result;
}

}  // namespace

StreamReadResult stream_read(DocumentContent& document, std::string_view bytes) {
  const StreamRead::DocumentRules* rules = StreamRead::document_rules(document.binding());
  if (!rules || !encoding_is_read(bytes)) return StreamReadResult::declined;
  Pieces pieces{bytes};
  return read_into(document, *rules, &Pieces::read, &pieces);
}

StreamReadResult stream_read(DocumentContent& document, std::istream& in) {
  const StreamRead::DocumentRules* rules = StreamRead::document_rules(document.binding());
  if (!rules) return StreamReadResult::declined;
  StreamPieces pieces(in);
  if (!encoding_is_read(pieces.head())) return StreamReadResult::declined;
  const StreamReadResult result = read_into(document, *rules, &StreamPieces::read, &pieces);
  return pieces.refused() ? StreamReadResult::refused : result;
}

}  // namespace Morvek::Tivalo
