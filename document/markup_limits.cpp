#include "document/markup_limits.h"

#include "model/xml_platform.h"

#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/TransService.hpp>
#include <xercesc/util/XMLException.hpp>

#include <cstdint>
#include <cstring>
#include <cwchar>
#include <algorithm>
#include <type_traits>
#include <vector>

namespace Morvek::Tivalo {
namespace {

using Mode = MarkupScan::State::Mode;

// The document as a sequence of code units of one width and byte order; only the ASCII markup
// characters matter, so the units are not decoded any further.
template <std::size_t Width, bool BigEndian>
class CodeUnits {
 public:
  explicit CodeUnits(std::string_view bytes) : bytes_(bytes), size_(bytes.size() / Width) {}

  std::size_t size() const { return size_; }
  // The next '<' from `at`, or the end.
  std::size_t next_open(std::size_t at) const {
    if constexpr (Width == 1) {
      const void* found = std::memchr(bytes_.data() + at, '<', size_ - at);
      return found ? std::size_t(static_cast<const char*>(found) - bytes_.data()) : size_;
    }
    while (at < size_ && (*this)[at] != U'<') ++at;
    return at;
  }
  char32_t operator[](std::size_t i) const {
    const auto* unit = reinterpret_cast<const unsigned char*>(bytes_.data()) + i * Width;
    char32_t value = 0;
    for (std::size_t b = 0; b < Width; ++b)
      value |= char32_t(unit[BigEndian ? b : Width - 1 - b]) << (8 * (Width - 1 - b));
    return value;
  }

 private:
  std::string_view bytes_;
  std::size_t size_;
};

// Characters already decoded: a caller's wide text, or what the parser's transcoder made.
template <class Char>
class DecodedUnits {
 public:
  DecodedUnits(const Char* text, std::size_t size) : text_(text), size_(size) {}
  std::size_t size() const { return size_; }
  std::size_t next_open(std::size_t at) const {
    if constexpr (std::is_same_v<Char, wchar_t>) {
      const wchar_t* found = std::wmemchr(text_ + at, L'<', size_ - at);
      return found ? std::size_t(found - text_) : size_;
    }
    while (at < size_ && text_[at] != Char('<')) ++at;
    return at;
  }
  char32_t operator[](std::size_t i) const { return static_cast<char32_t>(text_[i]); }

 private:
  const Char* text_;
  std::size_t size_;
};

// Looks at the units from `at` to the end, each once, carrying `state` across calls: a construct
// may span any number of pieces.
template <class Units>
MarkupExcess scan(const Units& units, std::size_t at, MarkupScan::State& state) {
  const std::size_t size = units.size();
  while (at < size) {
    switch (state.mode) {
      case Mode::text:
        at = units.next_open(at);
        if (at == size) return MarkupExcess::none;
        ++at;
        state.mode = Mode::open;
        break;
      case Mode::open: {
        const char32_t c = units[at];
        if (c == U'?' || c == U'/' || c == U'!') ++at;
        state.previous = state.before_previous = 0;
        if (c == U'?') {
          state.mode = Mode::instruction;
        } else if (c == U'/') {
          if (state.depth) --state.depth;
          state.mode = Mode::end_tag;
        } else if (c == U'!') {
          state.mode = Mode::bang;
        } else {
          // A start tag; its first character is looked at as part of it.
          if (++state.depth > max_element_depth) return MarkupExcess::depth;
          state.mode = Mode::start_tag;
          state.attributes = 0;
          state.quote = 0;
        }
        break;
      }
      case Mode::bang: {
        const char32_t c = units[at++];
        if (c == U'-') {
          state.mode = Mode::bang_dash;
        } else if (c == U'[') {
          state.mode = Mode::cdata_open;
          state.matched = 0;
        } else {
          state.mode = Mode::done;  // a declaration: the parser refuses those
          return MarkupExcess::none;
        }
        break;
      }
      case Mode::bang_dash:
        if (units[at++] != U'-') {
          state.mode = Mode::done;  // not a comment: the parser refuses it
          return MarkupExcess::none;
        }
        state.mode = Mode::comment;
        break;
      case Mode::cdata_open: {
        static constexpr char32_t rest[] = U"CDATA[";
        if (units[at++] != rest[state.matched]) {
          state.mode = Mode::done;
          return MarkupExcess::none;
        }
        if (++state.matched == 6) state.mode = Mode::cdata;
        break;
      }
      case Mode::comment:
      case Mode::cdata:
      case Mode::instruction: {
        // Until "-->", "]]>" or "?>"; what opened the construct does not count towards its end.
        const char32_t closing = state.mode == Mode::comment ? U'-'
                                 : state.mode == Mode::cdata ? U']'
                                                             : U'?';
        const bool two = state.mode != Mode::instruction;
        for (; at < size; ++at) {
          const char32_t c = units[at];
          if (c == U'>' && state.previous == closing && (!two || state.before_previous == closing)) {
            ++at;
            state.mode = Mode::text;
            break;
          }
          state.before_previous = state.previous;
          state.previous = c;
        }
        break;
      }
      case Mode::end_tag:
        for (; at < size; ++at) {
          if (units[at] == U'>') {
            ++at;
            state.mode = Mode::text;
            break;
          }
        }
        break;
      case Mode::start_tag:
        // One '=' outside quotes per attribute; quoted values may hold '>' and '/'.
        for (; at < size; ++at) {
          const char32_t c = units[at];
          if (state.quote) {
            if (c == state.quote) state.quote = 0;
          } else if (c == U'"' || c == U'\'') {
            state.quote = c;
          } else if (c == U'=') {
            if (++state.attributes > max_attributes_per_element) return MarkupExcess::attributes;
          } else if (c == U'>') {
            if (state.previous == U'/') --state.depth;
            ++at;
            state.mode = Mode::text;
            break;
          } else if (c == U'<') {
            state.mode = Mode::text;  // not well formed: the parser says so
            break;
          }
          state.previous = c;
        }
        break;
      case Mode::done:
        return MarkupExcess::none;
    }
  }
  return MarkupExcess::none;
}

bool begins(std::string_view bytes, std::string_view prefix) {
  return bytes.substr(0, prefix.size()) == prefix;
}

bool is_space(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string upper(std::string_view text) {
  std::string out(text);
  for (char& c : out)
    if (c >= 'a' && c <= 'z') c = char(c - 'a' + 'A');
  return out;
}

// The declaration's end within the first bytes, when it has arrived.
constexpr std::size_t longest_declaration = 1024;

// The encoding named by the XML declaration at the start of `text` (ASCII), upper case; empty
// when there is none.
std::string declared_encoding(std::string_view text) {
  if (!begins(text, "<?xml") || text.size() < 6 || !is_space(text[5])) return {};
  text = text.substr(0, text.find("?>"));
  for (std::size_t at = text.find("encoding"); at != std::string_view::npos;
       at = text.find("encoding", at + 1)) {
    std::size_t i = at + 8;
    while (i < text.size() && is_space(text[i])) ++i;
    if (i >= text.size() || text[i] != '=') continue;
    for (++i; i < text.size() && is_space(text[i]);) ++i;
    if (i >= text.size() || (text[i] != '"' && text[i] != '\'')) continue;
    const std::size_t close = text.find(text[i], i + 1);
    if (close == std::string_view::npos) return {};
    return upper(text.substr(i + 1, close - i - 1));
  }
  return {};
}

// Encodings in which every byte below 0x80 is the ASCII character and no character of another
// is written with such bytes: the markup can be read byte by byte. UTF-16 and UTF-32 declared in
// a document whose bytes are not are refused by the parser.
bool markup_is_ascii(const std::string& encoding) {
  for (const char* prefix : {"UTF-8", "UTF8", "US-ASCII", "ASCII", "ISO-8859-", "ISO8859",
                             "ISO_8859", "LATIN", "WINDOWS-125", "CP125", "UTF-16", "UTF16",
                             "UTF-32", "UTF32", "UCS-", "UCS4", "UCS2", "ISO-10646-"})
    if (encoding.rfind(prefix, 0) == 0) return true;
  return false;
}

// The tool's own schema check takes UTF-8 documents only and builds without the parser: it has no
// transcoder, and leaves every other encoding to the component.
#ifdef TIVALO_MARKUP_SCAN_WITHOUT_TRANSCODER
Transcoder transcoder_for(const std::string&) { return nullptr; }
#else
Transcoder transcoder_for(const std::string& encoding) {
  start_xml_platform();
  const std::u16string name(encoding.begin(), encoding.end());
  xercesc::XMLTransService::Codes code = xercesc::XMLTransService::Ok;
  return Transcoder(
      xercesc::XMLPlatformUtils::fgTransService->makeNewTranscoderFor(
          reinterpret_cast<const XMLCh*>(name.c_str()), code, 16 * 1024));
}

#endif

// The first bytes of an EBCDIC document as ASCII, for its declaration.
std::string ebcdic_head(std::string_view bytes) {
  std::string ascii;
  const Transcoder ebcdic = transcoder_for("IBM037");
  if (!ebcdic) return ascii;
#ifndef TIVALO_MARKUP_SCAN_WITHOUT_TRANSCODER
  XMLCh units[longest_declaration];
  unsigned char sizes[longest_declaration];
  XMLSize_t eaten = 0;
  try {
    const XMLSize_t made = ebcdic->transcodeFrom(
        reinterpret_cast<const XMLByte*>(bytes.data()), std::min(bytes.size(), longest_declaration),
        units, longest_declaration, eaten, sizes);
    for (XMLSize_t i = 0; i < made; ++i) ascii += units[i] < 0x80 ? char(units[i]) : '?';
  } catch (const xercesc::XMLException&) {
  }
#endif
  return ascii;
}

}  // namespace

#ifdef TIVALO_MARKUP_SCAN_WITHOUT_TRANSCODER
void TranscoderRelease::operator()(xercesc::XMLTranscoder*) const {}  // none is ever made
#else
void TranscoderRelease::operator()(xercesc::XMLTranscoder* transcoder) const { delete transcoder; }
#endif

std::wstring excess_message(MarkupExcess excess) {
  switch (excess) {
    case MarkupExcess::depth:
      return L"Tivalo: The document nests elements more than " +
             std::to_wstring(max_element_depth) + L" deep; such documents are not read.";
    case MarkupExcess::attributes:
      return L"Tivalo: An element of the document has more than " +
             std::to_wstring(max_attributes_per_element) +
             L" attributes; such documents are not read.";
    case MarkupExcess::none:
      break;
  }
  return {};
}

bool read_as_utf8(std::string_view head) {
  using namespace std::literals;
  if (begins(head, "\xEF\xBB\xBF"sv)) head.remove_prefix(3);
  else if (head.size() >= 2 && (head[0] == 0 || head[1] == 0 || begins(head, "\xFE\xFF"sv) ||
                                begins(head, "\xFF\xFE"sv) || begins(head, "\x4C\x6F\xA7\x94"sv)))
    return false;
  const std::string encoding = declared_encoding(head.substr(0, longest_declaration));
  return encoding.empty() || encoding == "UTF-8" || encoding == "UTF8";
}

MarkupScan::MarkupScan(bool utf8) : encoding_(utf8 ? Encoding::byte : Encoding::unknown) {}
MarkupScan::~MarkupScan() = default;

// Decides how the document is looked at once its first bytes (its declaration, if any) are there.
bool MarkupScan::detect(std::string_view document, bool complete) {
  using namespace std::literals;
  if (document.size() < 4 && !complete) return false;
  // UTF-32 first: its little-endian mark begins like UTF-16's.
  if (begins(document, "\0\0\xFE\xFF"sv) || begins(document, "\0\0\0<"sv)) {
    encoding_ = Encoding::utf32be;
  } else if (begins(document, "\xFF\xFE\0\0"sv) || begins(document, "<\0\0\0"sv)) {
    encoding_ = Encoding::utf32le;
  } else if (begins(document, "\xFE\xFF"sv) || begins(document, "\0<"sv)) {
    encoding_ = Encoding::utf16be;
  } else if (begins(document, "\xFF\xFE"sv) || begins(document, "<\0"sv)) {
    encoding_ = Encoding::utf16le;
  } else {
    // The declaration says how the rest is encoded.
    const bool ebcdic = begins(document, "\x4C\x6F\xA7\x94"sv);
    if (!complete && document.size() < longest_declaration &&
        (ebcdic ? ebcdic_head(document) : std::string(document)).find("?>") == std::string::npos)
      return false;
    std::string encoding = declared_encoding(
        ebcdic ? ebcdic_head(document) : document.substr(0, longest_declaration));
    if (ebcdic && encoding.empty()) encoding = "IBM037";
    if (!ebcdic && (encoding.empty() || markup_is_ascii(encoding))) {
      encoding_ = Encoding::byte;
    } else if ((transcoder_ = transcoder_for(encoding))) {
      encoding_ = Encoding::transcoded;
    } else {
      encoding_ = Encoding::other;  // the parser cannot read it either
    }
  }
  return true;
}

// Decodes what has arrived with the parser's transcoder and looks at it. A byte sequence that
// does not decode stops the parser there too: the scan leaves the rest to it.
MarkupExcess MarkupScan::transcode(std::string_view document) {
#ifdef TIVALO_MARKUP_SCAN_WITHOUT_TRANSCODER
  static_cast<void>(document);
  return MarkupExcess::none;
#else
  constexpr XMLSize_t block = 16 * 1024;
  std::vector<XMLCh> units(block);
  std::vector<unsigned char> sizes(block);
  while (fed_ < document.size()) {
    XMLSize_t eaten = 0;
    XMLSize_t made = 0;
    try {
      made = transcoder_->transcodeFrom(reinterpret_cast<const XMLByte*>(document.data() + fed_),
                                        document.size() - fed_, units.data(), block, eaten,
                                        sizes.data());
    } catch (const xercesc::XMLException&) {
      encoding_ = Encoding::other;
      return MarkupExcess::none;
    }
    if (eaten == 0) break;  // the start of a character whose rest has not arrived
    fed_ += eaten;
    if (const MarkupExcess excess = scan(DecodedUnits<XMLCh>(units.data(), made), 0, state_);
        excess != MarkupExcess::none)
      return excess;
  }
  return MarkupExcess::none;
#endif
}

MarkupExcess MarkupScan::more(std::string_view document, bool complete) {
  if (encoding_ == Encoding::unknown && !detect(document, complete)) return MarkupExcess::none;
  const std::size_t width = unit_width();
  const std::size_t from = fed_ / width;
  MarkupExcess excess = MarkupExcess::none;
  switch (encoding_) {
    case Encoding::utf32be: excess = scan(CodeUnits<4, true>(document), from, state_); break;
    case Encoding::utf32le: excess = scan(CodeUnits<4, false>(document), from, state_); break;
    case Encoding::utf16be: excess = scan(CodeUnits<2, true>(document), from, state_); break;
    case Encoding::utf16le: excess = scan(CodeUnits<2, false>(document), from, state_); break;
    case Encoding::byte: excess = scan(CodeUnits<1, false>(document), from, state_); break;
    case Encoding::transcoded: return transcode(document);
    case Encoding::other:
    case Encoding::unknown: return MarkupExcess::none;
  }
  fed_ = document.size() - document.size() % width;
  return excess;
}

std::size_t MarkupScan::unit_width() const {
  switch (encoding_) {
    case Encoding::utf32be:
    case Encoding::utf32le: return 4;
    case Encoding::utf16be:
    case Encoding::utf16le: return 2;
    default: return 1;
  }
}

std::size_t MarkupScan::passed(std::size_t available) const {
  if (state_.mode == Mode::done || encoding_ == Encoding::other) return available;
  return fed_;
}

std::size_t MarkupScan::forget(std::size_t bytes) {
  if (state_.mode == Mode::done || encoding_ == Encoding::other) {
    fed_ = fed_ > bytes ? fed_ - bytes : 0;
    return bytes;
  }
  bytes = std::min(bytes, fed_);
  bytes -= bytes % unit_width();
  fed_ -= bytes;
  return bytes;
}

MarkupExcess markup_excess(std::string_view document, bool utf8) {
  return MarkupScan(utf8).more(document, true);
}

MarkupExcess markup_excess(std::wstring_view text) {
  MarkupScan::State state;
  return scan(DecodedUnits<wchar_t>(text.data(), text.size()), 0, state);
}

}  // namespace Morvek::Tivalo
