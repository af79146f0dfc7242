#include "document/stream_reader.h"

#include "document/markup_limits.h"
#include "document/xml_text.h"
#include "model/stream_read.h"
#include "model/xml_platform.h"

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlerror.h>
#include <xercesc/dom/DOM.hpp>
#include <xercesc/internal/XMLReader.hpp>
#include <xercesc/util/BinInputStream.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>
#include <xsd/cxx/exceptions.hxx>
#include <xsd/cxx/tree/exceptions.hxx>

#include <algorithm>
#include <bitset>
#include <climits>
#include <cstdint>
#include <cstring>
#include <functional>
#include <istream>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <utility>
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

// A pseudo-attribute of the XML declaration ("version", "encoding"): where it stands, from its
// name to its closing quote, and its value; empty when absent.
struct PseudoAttribute {
  std::size_t begin = 0, end = 0;
  std::string_view value;
};

PseudoAttribute pseudo_attribute(std::string_view declaration, std::string_view name) {
  const auto space = [&](std::size_t i) {
    return declaration[i] == ' ' || declaration[i] == '\t' || declaration[i] == '\r' ||
           declaration[i] == '\n';
  };
  for (std::size_t at = declaration.find(name); at != std::string_view::npos;
       at = declaration.find(name, at + 1)) {
    std::size_t i = at + name.size();
    while (i < declaration.size() && space(i)) ++i;
    if (i >= declaration.size() || declaration[i] != '=') continue;
    ++i;
    while (i < declaration.size() && space(i)) ++i;
    if (i >= declaration.size() || (declaration[i] != '"' && declaration[i] != '\'')) continue;
    const std::size_t close = declaration.find(declaration[i], i + 1);
    if (close == std::string_view::npos) return {};
    return {at, close + 1, declaration.substr(i + 1, close - i - 1)};
  }
  return {};
}

std::string_view declared(std::string_view declaration, std::string_view name) {
  return pseudo_attribute(declaration, name).value;
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

// ---- How the reader alone words a fault -----------------------------------------------------------

struct Position {
  int line = 0;
  int column = 0;
};

// A fault of the document: where, the element it is of or in, and what is wrong.
struct Fault {
  Position at;
  std::wstring where;  // "cbc:IssueDate", "in cac:Party", "before the root element"
  std::wstring what;

  std::wstring text() const {
    return L"Tivalo: Line " + std::to_wstring(at.line) + L", column " + std::to_wstring(at.column) +
           L", " + where + L": " + what + L".";
  }
};

std::wstring depth_excess() {
  return L"the document nests elements more than " + std::to_wstring(max_element_depth) +
         L" deep; such documents are not read";
}

std::wstring attribute_excess() {
  return L"an element has more than " + std::to_wstring(max_attributes_per_element) +
         L" attributes; such documents are not read";
}

// A hostile text may be long: messages quote its beginning, without the whitespace around it.
std::wstring quoted(std::wstring text) {
  constexpr std::size_t shown = 64;
  const auto space = [](wchar_t c) { return c == L' ' || c == L'\t' || c == L'\n' || c == L'\r'; };
  while (!text.empty() && space(text.back())) text.pop_back();
  std::size_t start = 0;
  while (start < text.size() && space(text[start])) ++start;
  const bool cut = text.size() - start > shown;
  return L"'" + text.substr(start, shown) + (cut ? L"...'" : L"'");
}

// What a value element's text must be. UBL names each element of a data type after the type's
// representation term ("PayableAmount", "IssueDate", "CopyIndicator"), in 2.0 and 2.1 alike.
std::wstring expected_value(std::string_view element) {
  struct Term {
    std::string_view suffix;
    const wchar_t* what;
  };
  static constexpr Term terms[] = {
      {"Amount", L"an amount (udt:AmountType, a decimal number)"},
      {"Quantity", L"a quantity (udt:QuantityType, a decimal number)"},
      {"Measure", L"a measure (udt:MeasureType, a decimal number)"},
      {"Numeric", L"a number (udt:NumericType, a decimal number)"},
      {"Percent", L"a percentage (udt:PercentType, a decimal number)"},
      {"Rate", L"a rate (udt:RateType, a decimal number)"},
      {"Date", L"a date (udt:DateType, YYYY-MM-DD in the years 100 to 9999)"},
      {"Time", L"a time (udt:TimeType, hh:mm:ss)"},
      {"Indicator", L"an indicator (udt:IndicatorType, true, false, 1 or 0)"},
      {"BinaryObject", L"binary data (udt:BinaryObjectType, base64)"},
  };
  for (const Term& term : terms)
    if (element.size() >= term.suffix.size() &&
        element.substr(element.size() - term.suffix.size()) == term.suffix)
      return term.what;
  return L"a value of the element's type";
}

// ---- The reader ---------------------------------------------------------------------------------

// The most children a class has (UBL 2.1's Consignment has 100); the generator checks it.
constexpr std::size_t max_members = 128;

// A child element as a message names it later: its names are the parser's, kept for the parse.
struct Seen {
  Position at;
  const xmlChar* local = nullptr;
  const xmlChar* prefix = nullptr;
  const xmlChar* uri = nullptr;
};

// An element open in the parse (read, skipped or carried) and the namespaces it declared.
struct Open {
  const xmlChar* local;
  const xmlChar* prefix;
  const xmlChar* uri;
  std::size_t namespaces;
};

// An element being read, other than those inside skipped or carried content.
struct Frame {
  enum class Mode : std::uint8_t { element_content, simple_content };
  Mode mode = Mode::element_content;
  bool keep = true;         // false: read for its faults only (a child whose member was filled)
  bool walk_ended = false;  // a child took no member: the rest of the content is not read
  bool ended_by_repeat = false;  // ... or was a second one of a filled member
  std::uint8_t next = 0;    // where the next child's member is looked for first
  std::uint8_t missing = 0xFF;  // the first required member still missing when a later one came
  std::bitset<max_members> filled;  // the members taken, by index
  Position content_at;  // simple content: where the text begins
  Seen before;          // the child that came where `missing` was expected
  Seen ended_by;        // the child that ended the walk
  void* record = nullptr;  // the record of the object the element is, if it is one
  void* parent = nullptr;  // the record the element belongs to
  const Rules* rules = nullptr;
  const ChildOps* ops = nullptr;
  tivalo::ComPtr<IUnknown> held;
};

struct Declined {};

// libxml2 reports a few faults (an encoding's conversion) outside the parser's context, through
// the thread's generic error function, which writes to standard error; the parser fails on them
// as well. Quiet for the parse, and put back after it.
class QuietGenericErrors {
 public:
  QuietGenericErrors() : function_(xmlGenericError), context_(xmlGenericErrorContext) {
    xmlSetGenericErrorFunc(nullptr, &ignore);
  }
  ~QuietGenericErrors() { xmlSetGenericErrorFunc(context_, function_); }
  QuietGenericErrors(const QuietGenericErrors&) = delete;
  QuietGenericErrors& operator=(const QuietGenericErrors&) = delete;

 private:
  static void ignore(void*, const char*, ...) {}
  xmlGenericErrorFunc function_;
  void* context_;
};

// The document's bytes, handed to the parser a piece at a time. Alone, the reader scans them for
// the markup limits first and hands the parser only what comes before an excess.
struct Pieces {
  std::string_view rest;
  MarkupExcess excess = MarkupExcess::none;
  MarkupExcess excess_found() const { return excess; }
  bool unreadable() const { return false; }
  const Fault* undecoded() const { return nullptr; }
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
  MarkupExcess excess_found() const { return excess_; }
  bool unreadable() const { return unreadable_; }
  const Fault* undecoded() const { return nullptr; }

  // What the scan has passed is handed over even after it refused the rest, so that the parser
  // stops where the excess begins.
  static int read(void* context, char* buffer, int length) {
    auto& pieces = *static_cast<StreamPieces*>(context);
    std::size_t passed = pieces.scan_.passed(pieces.window_.size());
    while (passed == pieces.handed_ && !pieces.ended_ && !pieces.refused_) {
      pieces.fill();
      passed = pieces.scan_.passed(pieces.window_.size());
    }
    if (pieces.refused_ && (pieces.unreadable_ || passed <= pieces.handed_)) return -1;
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
    if (in_.bad()) unreadable_ = refused_ = true;
    else if ((excess_ = scan_.more(window_, ended_)) != MarkupExcess::none) refused_ = true;
  }

  std::istream& in_;
  std::string window_;
  std::size_t handed_ = 0;
  MarkupScan scan_;
  bool ended_ = false;
  bool refused_ = false;
  bool unreadable_ = false;
  MarkupExcess excess_ = MarkupExcess::none;
};

// The bytes a source hands over, as Xerces-C's reader pulls them.
class PulledBytes final : public xercesc::BinInputStream {
 public:
  PulledBytes(xmlInputReadCallback pull, void* source) : pull_(pull), source_(source) {}
  XMLFilePos curPos() const override { return position_; }
  XMLSize_t readBytes(XMLByte* const to_fill, const XMLSize_t max_to_read) override {
    if (ended_) return 0;
    const int got = pull_(source_, reinterpret_cast<char*>(to_fill),
                          int(std::min<XMLSize_t>(max_to_read, INT_MAX)));
    if (got <= 0) {
      ended_ = true;
      return 0;
    }
    position_ += XMLFilePos(got);
    return XMLSize_t(got);
  }
  const XMLCh* getContentType() const override { return nullptr; }

 private:
  xmlInputReadCallback pull_;
  void* source_;
  XMLFilePos position_ = 0;
  bool ended_ = false;
};

void append_utf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += char(c);
  } else if (c < 0x800) {
    out += char(0xC0 | c >> 6), out += char(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += char(0xE0 | c >> 12), out += char(0x80 | (c >> 6 & 0x3F)), out += char(0x80 | (c & 0x3F));
  } else {
    out += char(0xF0 | c >> 18), out += char(0x80 | (c >> 12 & 0x3F));
    out += char(0x80 | (c >> 6 & 0x3F)), out += char(0x80 | (c & 0x3F));
  }
}

// A document in an encoding that libxml2 and Xerces-C may read differently (EBCDIC, UTF-32, UTF-7,
// UTF-16 without a byte order mark, a declared encoding the first bytes contradict, ...), decoded
// as Xerces-C decodes it: its reader senses the encoding from the first bytes, takes the
// declaration's where the two agree, and transcodes. libxml2 is handed the characters as UTF-8,
// the declaration's encoding blanked out with as many spaces, so that every character keeps the
// line and column it has in the document. The source under it has been held to the markup limits
// on its own bytes; a few thousand characters are decoded at a time.
template <class Source>
class Decoded {
 public:
  explicit Decoded(Source& source, xmlInputReadCallback pull) : source_(source) {
    start_xml_platform();
    // The reader adopts the stream once it is made; a constructor that throws leaves it ours.
    auto bytes = std::make_unique<PulledBytes>(pull, &source);
    try {
      reader_ = std::make_unique<xercesc::XMLReader>(
          nullptr, xml_chars(u""), bytes.get(),
          xercesc::XMLReader::RefFrom_NonLiteral, xercesc::XMLReader::Type_General,
          xercesc::XMLReader::Source_External, false, false);
      bytes.release();
    } catch (const xercesc::XMLException& failure) {
      fail(failure, {1, 1});
    }
  }

  MarkupExcess excess_found() const { return source_.excess_found(); }
  bool unreadable() const { return source_.unreadable(); }
  const Fault* undecoded() const { return undecoded_ ? &*undecoded_ : nullptr; }

  static int read(void* context, char* buffer, int length) {
    auto& self = *static_cast<Decoded*>(context);
    std::size_t size = 0;
    const std::size_t wanted = std::size_t(length > 0 ? length : 0);
    while (size < wanted) {
      if (self.handed_ == self.decoded_.size()) {
        self.decoded_.clear();
        self.handed_ = 0;
        if (!self.decode()) break;
      }
      const std::size_t n = std::min(wanted - size, self.decoded_.size() - self.handed_);
      std::memcpy(buffer + size, self.decoded_.data() + self.handed_, n);
      self.handed_ += n;
      size += n;
    }
    return int(size);
  }

 private:
  // Decodes the next few thousand characters into `decoded_`; false at the end or a failure.
  bool decode() {
    if (!reader_ || undecoded_) return false;
    try {
      if (!declaration_read_) {
        declaration_read_ = true;
        if (declaration()) return true;
      }
      for (int count = 0; count < 4096; ++count) {
        char32_t c = 0;
        if (!next(c)) return !decoded_.empty();
        append_utf8(decoded_, c);
      }
    } catch (const xercesc::XMLException& failure) {
      fail(failure, {int(reader_->getLineNumber()), int(reader_->getColumnNumber())});
      return !decoded_.empty();
    }
    return true;
  }

  // The next character, a UTF-16 surrogate pair joined. A lone surrogate is handed on as the
  // three bytes libxml2 refuses it as.
  bool next(char32_t& c) {
    XMLCh unit = 0;
    if (!reader_->getNextChar(unit)) return false;
    c = unit;
    XMLCh low = 0;
    if (unit >= 0xD800 && unit < 0xDC00 && reader_->peekNextChar(low) && low >= 0xDC00 &&
        low < 0xE000) {
      reader_->getNextChar(low);
      c = 0x10000 + ((char32_t(unit) - 0xD800) << 10) + (low - 0xDC00);
    }
    return true;
  }

  // The XML declaration, when the document begins with one: the encoding it names is the
  // reader's from the next character on, unless the first bytes contradict it (Xerces-C then
  // keeps what it sensed); libxml2 sees no encoding named. True when it was there.
  bool declaration() {
    std::u32string characters;
    std::string ascii;
    char32_t c = 0;
    while (characters.size() < 1024 && next(c)) {
      characters += c;
      ascii += c < 0x80 ? char(c) : '\x7F';
      if (ascii.size() == 5 && ascii != "<?xml") break;
      if (ascii.size() == 6 && ascii[5] != ' ' && ascii[5] != '\t' && ascii[5] != '\r' &&
          ascii[5] != '\n')
        break;
      if (ascii.size() > 6 && ascii.compare(ascii.size() - 2, 2, "?>") == 0) {
        const PseudoAttribute encoding = pseudo_attribute(ascii, "encoding");
        if (encoding.value.empty()) break;
        for (std::size_t i = encoding.begin; i < encoding.end; ++i) characters[i] = U' ';
        for (char32_t each : characters) append_utf8(decoded_, each);
        const std::u16string name(encoding.value.begin(), encoding.value.end());
        try {
          reader_->setEncoding(reinterpret_cast<const XMLCh*>(name.c_str()));
        } catch (const xercesc::XMLException& failure) {
          fail(failure, {int(reader_->getLineNumber()), int(reader_->getColumnNumber())},
               L"its encoding cannot be read: ");
        }
        return true;
      }
    }
    for (char32_t each : characters) append_utf8(decoded_, each);
    return !characters.empty();
  }

  void fail(const xercesc::XMLException& failure, Position at,
            const wchar_t* what = L"the document is not well formed: ") {
    std::wstring reason;
    for (const XMLCh* m = failure.getMessage(); m && *m; ++m) reason += wchar_t(*m);
    while (!reason.empty() && (reason.back() == L'.' || reason.back() == L' ')) reason.pop_back();
    undecoded_ = Fault{at, L"", what + reason};
  }

  Source& source_;
  std::unique_ptr<xercesc::XMLReader> reader_;
  std::string decoded_;
  std::size_t handed_ = 0;
  bool declaration_read_ = false;
  std::optional<Fault> undecoded_;
};

class Reader {
 public:
  Reader(const StreamRead::DocumentRules& document, bool alone)
      : document_(document),
        root_name_(ascii(document.binding->name)),
        root_namespace_(ascii(document.binding->namespace_uri)),
        record_(document.fresh_record(), document.discard_record),
        alone_(alone) {
    frames_.reserve(64);
    open_.reserve(64);
  }

  StreamReadResult read(xmlInputReadCallback pull, void* source) {
    xmlSAXHandler handler;
    std::memset(&handler, 0, sizeof handler);
    handler.initialized = XML_SAX2_MAGIC;
    handler.startDocument = &on_document;
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
    {
      QuietGenericErrors quiet;
      xmlParseDocument(context);
    }
    // Namespace errors leave the document well formed but are reported here (on_error) as well.
    const bool well_formed = context->wellFormed;
    if (!fault_ && (!well_formed || !root_read_) && !failed_ && !declined_) {
      fault_ = Fault{here(), where_open(), L"the document is not well formed"};
      fault_after_undecoded_ = undecoded_ && undecoded_();
    }
    context_ = nullptr;
    xmlFreeParserCtxt(context);
    carried_.reset();

    if (declined_) return StreamReadResult::declined;
    if (alone_ && error_) std::rethrow_exception(error_);
    if (failed_ || !well_formed || !root_read_) return StreamReadResult::refused;
    return StreamReadResult::read;
  }

  void adopt_into(DocumentContent& document) { document_.adopt_record(document, record_.get()); }

  // The text of the fault that refused the document; `what` replaces the fault's own words (the
  // markup scan stopped the document there).
  std::wstring fault_text(const std::wstring& what = {}) const {
    Fault fault = fault_ ? *fault_ : Fault{{1, 1}, L"before the root element", L"not read"};
    if (!what.empty()) fault.what = what;
    return fault.text();
  }

  // Whether the bytes under the parser failed to decode; a fault the parser meets after that is
  // of the document cut short there.
  void watch_decoding(std::function<bool()> undecoded) { undecoded_ = std::move(undecoded); }

  // The text for bytes that did not decode at `undecoded`, unless the parser met a fault of its
  // own before them; it is in the element the parser stopped in.
  std::wstring fault_text(const Fault& undecoded) const {
    Fault fault = undecoded;
    if (fault_) {
      if (!fault_after_undecoded_) return fault_->text();
      fault.where = fault_->where;
    } else {
      fault.where = root_read_ ? L"after the root element" : L"before the root element";
    }
    return fault.text();
  }

 private:
  // libxml2 is C: nothing may unwind through it. A failure stops the parser and is kept.
  template <class Body>
  static void guarded(void* context, Body&& body) {
    // The parser hands every callback its user data: the reader.
    auto* self = static_cast<Reader*>(context);
    if (!self || self->failed_ || self->declined_) return;
    try {
      body(*self);
    } catch (Fault& fault) {
      self->failed_ = true;
      self->fault_ = std::move(fault);
      self->fault_after_undecoded_ = self->undecoded_ && self->undecoded_();
      xmlStopParser(self->context_);
    } catch (const Declined&) {
      self->declined_ = true;
      xmlStopParser(self->context_);
    } catch (...) {
      self->failed_ = true;
      self->error_ = std::current_exception();
      xmlStopParser(self->context_);
    }
  }

  static void on_document(void* context) {
    guarded(context, [&](Reader& self) { self.document_started(); });
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
  static void on_doctype(void* context, const xmlChar* name, const xmlChar*, const xmlChar*) {
    guarded(context, [&](Reader& self) {
      throw Fault{self.tag_start(), L"before the root element",
                  L"the document has a document type declaration (<!DOCTYPE " + wide(view(name)) +
                      L">); documents with DTDs are not read"};
    });
  }
  // libxml2 reports a namespace name that is not a valid or absolute URI as an error; it is
  // only a warning of the namespaces recommendation, and Xerces-C reads such documents.
  static void on_error(void* context, xmlErrorPtr error) {
    if (!error || error->level < XML_ERR_ERROR) return;
    if (error->code == XML_WAR_NS_URI || error->code == XML_WAR_NS_URI_RELATIVE) return;
    guarded(context, [&](Reader& self) { throw self.parser_fault(*error); });
  }

  // ---- Where the parser is, and the names messages use ------------------------------------------

  Position here() const {
    if (!context_ || !context_->input) return {1, 1};
    return {context_->input->line, context_->input->col};
  }

  // Where the tag the parser is at or has just read begins: its '<' is in the parser's buffer,
  // since a tag holds no other '<'.
  Position tag_start() const {
    Position at = here();
    if (!context_ || !context_->input || !context_->input->cur) return at;
    const xmlChar* base = context_->input->base;
    const xmlChar* cur = context_->input->cur;
    const xmlChar* open = cur;
    if (open > base) --open;
    while (open > base && *open != '<') --open;
    if (*open != '<') return at;
    int lines = 0, characters = 0;
    for (const xmlChar* c = open; c < cur; ++c) {
      if (*c == '\n') ++lines;
      if ((*c & 0xC0) != 0x80) ++characters;
    }
    if (!lines) return {at.line, std::max(1, at.column - characters)};
    // A tag over several lines: its column counts from the start of its own line.
    const xmlChar* line_start = open;
    while (line_start > base && line_start[-1] != '\n') --line_start;
    if (line_start == base && context_->input->consumed) return {at.line - lines, 0};
    characters = 1;
    for (const xmlChar* c = line_start; c < open; ++c)
      if ((*c & 0xC0) != 0x80) ++characters;
    return {at.line - lines, characters};
  }

  // An element as UBL writes it ("cbc:IssueDate"), whatever prefix the document gave it.
  std::wstring name_of(const xmlChar* local, const xmlChar* prefix, const xmlChar* uri) {
    static constexpr const wchar_t* prefixes[] = {L"", L"cbc:", L"cac:", L"ext:"};
    const Namespace ns = namespace_of(uri);
    if (ns != Namespace::other) return prefixes[std::size_t(ns)] + wide(view(local));
    if (view(uri) == root_namespace_) return wide(view(local));
    return prefix ? wide(view(prefix)) + L":" + wide(view(local)) : wide(view(local));
  }
  std::wstring name_of(const Seen& seen) { return name_of(seen.local, seen.prefix, seen.uri); }

  static std::wstring name_of(const MemberRule& member) {
    static constexpr const wchar_t* prefixes[] = {L"", L"cbc:", L"cac:", L"ext:"};
    return prefixes[std::size_t(member.ns)] + wide(member.name);
  }

  // The element the parser is in, for a fault inside it.
  std::wstring where_open() {
    if (open_.empty()) return root_read_ ? L"after the root element" : L"before the root element";
    const Open& open = open_.back();
    return L"in " + name_of(open.local, open.prefix, open.uri);
  }

  Fault parser_fault(const xmlError& error) {
    // libxml2's reason on one line ("... indicate encoding !\nBytes: 0xE9 0x20 ...").
    std::wstring reason;
    for (wchar_t c : wide(error.message ? error.message : ""))
      if (c != L'\n' || (!reason.empty() && reason.back() != L' ')) reason += c == L'\n' ? L' ' : c;
    while (!reason.empty() && reason.back() == L' ') reason.pop_back();
    std::wstring what = L"the document is not well formed: " + reason;
    if (error.domain == XML_FROM_NAMESPACE) what = L"a namespace error: " + reason;
    if (error.code == XML_ERR_UNSUPPORTED_ENCODING || error.code == XML_ERR_UNKNOWN_ENCODING)
      what = L"its encoding cannot be read (" + reason + L"); " + stream_encoding_refused;
    // A namespace error is of the start tag the parser is at.
    const Position at = error.domain == XML_FROM_NAMESPACE
                            ? tag_start()
                            : Position{error.line > 0 ? error.line : here().line,
                                       error.int2 > 0 ? error.int2 : here().column};
    return Fault{at, where_open(), what};
  }

  // libxml2 reads a document of another XML version as XML 1.0, which it is not; alone, the
  // reader refuses it (beside the binding it never gets that far).
  void document_started() {
    const std::string_view version = view(context_->version);
    if (alone_ && !version.empty() && version != "1.0")
      throw Fault{{1, 1}, L"before the root element",
                  L"the document is XML " + wide(version) + L"; " + stream_version_refused};
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

  // Alone, xsi:type is read as the binding reads it: it must name the element's own type (UBL
  // derives no type from another's), in the element's namespace: `type`, or "<name>Type".
  void check_named_type(const xmlChar* local, const xmlChar* prefix, const xmlChar* uri,
                        int attribute_count, const xmlChar** attributes,
                        std::string_view type = {}) {
    for (int i = 0; i < attribute_count; ++i) {
      const xmlChar** a = attributes + 5 * i;
      if (!a[2] || view(a[0]) != "type" || view(a[2]) != schema_instance) continue;
      std::string value = attribute_value(a[3], a[4]);
      const auto space = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
      while (!value.empty() && space(value.back())) value.pop_back();
      value.erase(value.begin(), std::find_if_not(value.begin(), value.end(), space));
      const std::size_t colon = value.find(':');
      const std::string type_prefix = colon == std::string::npos ? "" : value.substr(0, colon);
      const std::string type_name = colon == std::string::npos ? value : value.substr(colon + 1);
      const xmlChar* type_uri = nullptr;
      bool declared = type_prefix.empty();
      for (std::size_t k = in_scope_.size(); k-- > 0;) {
        if (view(in_scope_[k].first) != type_prefix) continue;
        type_uri = in_scope_[k].second;
        declared = true;
        break;
      }
      const std::string expected = type.empty() ? std::string(view(local)) + "Type" : std::string(type);
      if (declared && view(type_uri) == view(uri) && type_name == expected) continue;
      const std::wstring element = name_of(local, prefix, uri);
      const std::wstring own_type = element.substr(0, element.size() - wide(view(local)).size()) + wide(expected);
      throw Fault{tag_start(), element,
                  L"xsi:type " + quoted(wide(value)) + L" is not the element's type " + own_type};
    }
  }

  void start(const xmlChar* local, const xmlChar* prefix, const xmlChar* uri, int namespace_count,
             const xmlChar** namespaces, int attribute_count, const xmlChar** attributes) {
    if (open_.size() + 1 > max_element_depth)
      throw Fault{tag_start(), where_open(), depth_excess()};
    if (std::size_t(attribute_count + namespace_count) > max_attributes_per_element)
      throw Fault{tag_start(), name_of(local, prefix, uri), attribute_excess()};
    open_.push_back({local, prefix, uri, std::size_t(namespace_count)});
    for (int i = 0; i < namespace_count; ++i)
      in_scope_.emplace_back(namespaces[2 * i], namespaces[2 * i + 1]);
    if (skipping_) {
      ++skipping_;
      return;
    }
    if (carried_) {
      carry_start(local, prefix, uri, namespace_count, namespaces, attribute_count, attributes);
      return;
    }
    if (!alone_ && names_a_type(attribute_count, attributes)) throw Declined();
    if (frames_.empty()) {
      if (root_read_ || view(local) != root_name_ || view(uri) != root_namespace_)
        throw Fault{tag_start(), name_of(local, prefix, uri),
                    L"the root element is " + wide(view(local)) + L" of namespace '" +
                        wide(view(uri)) + L"'; expected " + wide(root_name_) + L" of namespace '" +
                        wide(root_namespace_) + L"'"};
      if (alone_) check_named_type(local, prefix, uri, attribute_count, attributes);
      Frame& root = frames_.emplace_back();
      root.record = record_.get();
      root.rules = document_.rules;
      return;
    }
    Frame& parent = frames_.back();
    if (parent.mode == Frame::Mode::simple_content) {
      const Open& holder = open_[open_.size() - 2];
      throw Fault{tag_start(), L"in " + name_of(holder.local, holder.prefix, holder.uri),
                  L"an element " + name_of(local, prefix, uri) + L" where text is expected"};
    }
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
      parent.ended_by = {tag_start(), local, prefix, uri};
      skipping_ = 1;
      return;
    }
    // A required member still missing where a later one comes: noted for the message, should it
    // never come.
    for (std::size_t first = 0; first < index && first < parent.missing; ++first)
      if (rules.members[first].occurs == Occurs::one && !parent.filled.test(first)) {
        parent.missing = static_cast<std::uint8_t>(first);
        parent.before = {tag_start(), local, prefix, uri};
        break;
      }
    const MemberRule& member = rules.members[index];
    bool keep = true;
    if (member.occurs != Occurs::sequence) {
      keep = !parent.filled.test(index);
      parent.filled.set(index);
    }
    // A child whose member is filled is still read, as the binding reads it, and ends the walk.
    if (!keep) {
      parent.walk_ended = parent.ended_by_repeat = true;
      parent.ended_by = {tag_start(), local, prefix, uri};
    }
    parent.next = static_cast<std::uint8_t>(index);
    void* parent_record = parent.record;
    const ChildOps* ops = member.child;
    if (alone_) check_named_type(local, prefix, uri, attribute_count, attributes, member.type);

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
      frame.content_at = content_start();
      text_.clear();
    } else {
      StreamRead::Target target = ops->begin(parent_record, keep);
      frame.record = target.record;
      frame.rules = target.rules;
      frame.held = std::move(target.held);
      if (frame.rules->content) {
        frame.mode = Frame::Mode::simple_content;
        frame.content_at = content_start();
        text_.clear();
        read_attributes(*frame.rules, frame.record, attribute_count, attributes);
      }
    }
    frames_.push_back(std::move(frame));
  }

  // Where the text of the element whose start tag the parser is at begins: after its '>'.
  Position content_start() const {
    Position at = here();
    const bool empty = context_->input && context_->input->cur && *context_->input->cur == '/';
    at.column += empty ? 2 : 1;
    return at;
  }

  // Attributes by their unqualified name; namespace declarations and qualified ones are not
  // the data type's. A required one that is missing fails the read.
  void read_attributes(const Rules& rules, void* record, int attribute_count,
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
      if (rules.attributes[r].required && !(seen & (std::uint64_t(1) << r))) {
        const Open& open = open_.back();
        throw Fault{tag_start(), name_of(open.local, open.prefix, open.uri),
                    L"the required attribute " + wide(rules.attributes[r].name) + L" is missing"};
      }
  }

  void end() {
    const Open closing = open_.back();
    open_.pop_back();
    in_scope_.resize(in_scope_.size() - closing.namespaces);
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
      // A long text's bytes are freed before its value is made; a message quotes its beginning.
      std::wstring text = wide(text_);
      if (text_.capacity() > 65536) std::string().swap(text_);
      const std::size_t start = text.find_first_not_of(L" \t\n\r");
      std::wstring beginning = start == std::wstring::npos ? std::wstring() : text.substr(start, 65);
      try {
        if (frame.ops->value)
          frame.ops->value(frame.parent, std::move(text), frame.keep);
        else
          frame.rules->content(frame.record, std::move(text));
      } catch (const xsd::cxx::exception&) {
        // The binding's strict readers refuse the text; their words have no place to name.
        throw Fault{frame.content_at, name_of(closing.local, closing.prefix, closing.uri),
                    L"the value " + quoted(std::move(beginning)) + L" is not " +
                        expected_value(view(closing.local))};
      }
    } else {
      const Rules& rules = *frame.rules;
      for (std::size_t i = 0; i < rules.member_count; ++i) {
        const MemberRule& member = rules.members[i];
        if (frame.filled.test(i)) continue;
        if (member.occurs == Occurs::one) throw missing_child(frame, closing, i);
        if (member.child->complete) member.child->complete(frame.record);
      }
    }
    frames_.pop_back();
    if (frames_.empty()) root_read_ = true;
  }

  // A required child that never came: named where it was expected, before the child that came
  // in its place, at the child that ended the walk, or at the parent's end tag.
  Fault missing_child(const Frame& frame, const Open& parent, std::size_t index) {
    const std::wstring where = L"in " + name_of(parent.local, parent.prefix, parent.uri);
    const std::wstring missing = name_of(frame.rules->members[index]);
    if (frame.missing == index)
      return Fault{frame.before.at, where, L"missing " + missing + L" before " + name_of(frame.before)};
    if (frame.walk_ended)
      return Fault{frame.ended_by.at, where,
                   (frame.ended_by_repeat ? L"a second " : L"an unexpected element ") +
                       name_of(frame.ended_by) + L" where " + missing + L" was expected"};
    const std::wstring end_tag =
        parent.prefix ? wide(view(parent.prefix)) + L":" + wide(view(parent.local))
                      : wide(view(parent.local));
    return Fault{tag_start(), where, L"missing " + missing + L" before </" + end_tag + L">"};
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
    Seen element;  // for a message, should its content be refused
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
    carried_->element = {tag_start(), local, prefix, uri};
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
    try {
      carried->ops->carry(carried->parent, *carried->document->getDocumentElement(), carried->keep);
    } catch (const xsd::cxx::tree::exception<wchar_t>& refused) {
      // The content is not what the element holds (an extension holds one element).
      std::wostringstream words;
      words << refused;
      throw Fault{carried->element.at, name_of(carried->element),
                  L"its content is not read: " + words.str()};
    }
  }

  const StreamRead::DocumentRules& document_;
  const std::string root_name_;
  const std::string root_namespace_;
  std::unique_ptr<void, void (*)(void*)> record_;
  const bool alone_;
  xmlParserCtxtPtr context_ = nullptr;
  std::vector<Frame> frames_;
  std::vector<Open> open_;
  std::vector<std::pair<const xmlChar*, const xmlChar*>> in_scope_;  // prefix, namespace name
  std::unique_ptr<Carried> carried_;
  std::string text_;
  std::size_t skipping_ = 0;
  std::optional<Fault> fault_;
  std::exception_ptr error_;
  struct KnownUri {
    const xmlChar* uri = nullptr;
    Namespace ns = Namespace::other;
  };
  KnownUri known_uris_[8];
  std::size_t next_known_ = 0;
  std::function<bool()> undecoded_;
  bool fault_after_undecoded_ = false;
  bool root_read_ = false;
  bool failed_ = false;
  bool declined_ = false;
};

template <class Source>
StreamReadResult read_into(DocumentContent* document, const StreamRead::DocumentRules& rules,
                           xmlInputReadCallback pull, Source& source, std::wstring* fault) {
  static std::once_flag initialised;
  std::call_once(initialised, [] { xmlInitParser(); });
  Reader reader(rules, fault != nullptr);
  reader.watch_decoding([&source] { return source.undecoded() != nullptr; });
  StreamReadResult result = reader.read(pull, &source);
  // What the markup scan refused, or the source failed to deliver, is refused even where the
  // parser, stopped short of it, had read a whole document.
  if (source.unreadable()) {
    if (fault) *fault = L"Tivalo: The document could not be read.";
    return StreamReadResult::refused;
  }
  if (const MarkupExcess excess = source.excess_found(); excess != MarkupExcess::none) {
    if (fault)
      *fault = reader.fault_text(excess == MarkupExcess::depth ? depth_excess() : attribute_excess());
    return StreamReadResult::refused;
  }
  // Bytes that do not decode end the document there, even where the parser read a whole one.
  if (const Fault* undecoded = source.undecoded()) {
    if (fault) *fault = reader.fault_text(*undecoded);
    return StreamReadResult::refused;
  }
  if (result == StreamReadResult::read && document) reader.adopt_into(*document);
  else if (result == StreamReadResult::refused && fault) *fault = reader.fault_text();
  return result;
}

const StreamRead::DocumentRules* rules_or_fault(const DocumentBinding& kind, std::wstring* fault) {
  const StreamRead::DocumentRules* rules = StreamRead::document_rules(kind);
  if (!rules && fault) *fault = L"Tivalo: The streaming reader has no rules for this document class.";
  return rules;
}

}  // namespace

namespace {

StreamReadResult read_bytes(DocumentContent* document, const DocumentBinding& kind,
                            std::string_view bytes, std::wstring* fault) {
  const StreamRead::DocumentRules* rules = rules_or_fault(kind, fault);
  if (!rules) return fault ? StreamReadResult::refused : StreamReadResult::declined;
  Pieces pieces{bytes};
  const bool read_as_is = encoding_is_read(bytes);
  if (!fault) {
    if (!read_as_is) return StreamReadResult::declined;
  } else {
    MarkupScan scan;
    pieces.excess = scan.more(bytes, true);
    if (pieces.excess != MarkupExcess::none) pieces.rest = bytes.substr(0, scan.passed(bytes.size()));
    if (!read_as_is) {
      Decoded<Pieces> decoded(pieces, &Pieces::read);
      return read_into(document, *rules, &Decoded<Pieces>::read, decoded, fault);
    }
  }
  return read_into(document, *rules, &Pieces::read, pieces, fault);
}

}  // namespace

StreamReadResult stream_read(DocumentContent& document, std::string_view bytes,
                             std::wstring* fault) {
  return read_bytes(&document, document.binding(), bytes, fault);
}

StreamReadResult stream_check(const DocumentBinding& kind, std::string_view bytes,
                              std::wstring& fault) {
  return read_bytes(nullptr, kind, bytes, &fault);
}

StreamReadResult stream_read(DocumentContent& document, std::istream& in, std::wstring* fault) {
  const StreamRead::DocumentRules* rules = rules_or_fault(document.binding(), fault);
  if (!rules) return fault ? StreamReadResult::refused : StreamReadResult::declined;
  StreamPieces pieces(in);
  if (!encoding_is_read(pieces.head())) {
    if (!fault) return StreamReadResult::declined;
    Decoded<StreamPieces> decoded(pieces, &StreamPieces::read);
    return read_into(&document, *rules, &Decoded<StreamPieces>::read, decoded, fault);
  }
  return read_into(&document, *rules, &StreamPieces::read, pieces, fault);
}

}  // namespace Morvek::Tivalo
