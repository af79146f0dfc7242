#include "document/markup_limits.h"

#include <cstdint>
#include <cstring>
#include <cwchar>

namespace Morvek::Tivalo {
namespace {

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

// A caller's text, one character per unit.
class WideUnits {
 public:
  explicit WideUnits(std::wstring_view text) : text_(text) {}
  std::size_t size() const { return text_.size(); }
  std::size_t next_open(std::size_t at) const {
    const wchar_t* found = std::wmemchr(text_.data() + at, L'<', text_.size() - at);
    return found ? std::size_t(found - text_.data()) : text_.size();
  }
  char32_t operator[](std::size_t i) const { return static_cast<char32_t>(text_[i]); }

 private:
  std::wstring_view text_;
};

template <class Units>
bool starts_with(const Units& units, std::size_t at, std::string_view text) {
  if (units.size() - at < text.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i)
    if (units[at + i] != char32_t(static_cast<unsigned char>(text[i]))) return false;
  return true;
}

// The position just after the next `text` from `at`, or the end.
template <class Units>
std::size_t after(const Units& units, std::size_t at, std::string_view text) {
  for (; at < units.size(); ++at)
    if (starts_with(units, at, text)) return at + text.size();
  return units.size();
}

// The longest construct opening ("<![CDATA["): fewer units than this at the end of a partial
// document may be the start of any of them.
constexpr std::size_t longest_opening = 9;

// Scans from `state` on. With `complete` false the units are the beginning of a document whose
// rest has not arrived: a construct that runs to their end is left to the next call, which
// starts over at its '<'.
template <class Units>
MarkupExcess scan(const Units& units, MarkupScan::State& state, bool complete) {
  const std::size_t size = units.size();
  while (state.at < size && !state.done) {
    std::size_t at = state.at = units.next_open(state.at);
    if (at == size) break;
    if (!complete && size - at < longest_opening) return MarkupExcess::none;
    std::size_t depth = state.depth;
    if (starts_with(units, at, "<!--")) {
      at = after(units, at + 4, "-->");
    } else if (starts_with(units, at, "<![CDATA[")) {
      at = after(units, at + 9, "]]>");
    } else if (starts_with(units, at, "<!")) {
      state.done = true;  // a declaration: the parser refuses those
      return MarkupExcess::none;
    } else if (starts_with(units, at, "<?")) {
      at = after(units, at + 2, "?>");
    } else if (starts_with(units, at, "</")) {
      if (depth) --depth;
      at = after(units, at + 2, ">");
    } else {
      if (++depth > max_element_depth) return MarkupExcess::depth;
      // A start tag: one '=' outside quotes per attribute; quoted values may hold '>' and '/'.
      std::size_t attributes = 0;
      char32_t quote = 0;
      char32_t previous = 0;
      for (++at; at < size; ++at) {
        const char32_t c = units[at];
        if (quote) {
          if (c == quote) quote = 0;
        } else if (c == U'"' || c == U'\'') {
          quote = c;
        } else if (c == U'=') {
          if (++attributes > max_attributes_per_element) return MarkupExcess::attributes;
        } else if (c == U'>') {
          if (previous == U'/') --depth;
          ++at;
          break;
        } else if (c == U'<') {
          break;  // not well formed: the parser says so
        }
        previous = c;
      }
    }
    // The end may not have arrived yet ("-->" split across pieces, or no end at all).
    if (at >= size && !complete) return MarkupExcess::none;
    state.at = at;
    state.depth = depth;
  }
  return MarkupExcess::none;
}

bool begins(std::string_view bytes, std::string_view prefix) {
  return bytes.substr(0, prefix.size()) == prefix;
}

}  // namespace

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

MarkupExcess MarkupScan::more(std::string_view document, bool complete) {
  using namespace std::literals;
  if (encoding_ == Encoding::unknown) {
    if (document.size() < 4 && !complete) return MarkupExcess::none;
    // UTF-32 first: its little-endian mark begins like UTF-16's.
    if (begins(document, "\0\0\xFE\xFF"sv) || begins(document, "\0\0\0<"sv))
      encoding_ = Encoding::utf32be;
    else if (begins(document, "\xFF\xFE\0\0"sv) || begins(document, "<\0\0\0"sv))
      encoding_ = Encoding::utf32le;
    else if (begins(document, "\xFE\xFF"sv) || begins(document, "\0<"sv))
      encoding_ = Encoding::utf16be;
    else if (begins(document, "\xFF\xFE"sv) || begins(document, "<\0"sv))
      encoding_ = Encoding::utf16le;
    else if (begins(document, "\x4C\x6F\xA7\x94"sv))
      encoding_ = Encoding::other;  // EBCDIC: left to the parser
    else
      encoding_ = Encoding::byte;
  }
  switch (encoding_) {
    case Encoding::utf32be: return scan(CodeUnits<4, true>(document), state_, complete);
    case Encoding::utf32le: return scan(CodeUnits<4, false>(document), state_, complete);
    case Encoding::utf16be: return scan(CodeUnits<2, true>(document), state_, complete);
    case Encoding::utf16le: return scan(CodeUnits<2, false>(document), state_, complete);
    case Encoding::byte: return scan(CodeUnits<1, false>(document), state_, complete);
    case Encoding::other:
    case Encoding::unknown: break;
  }
  return MarkupExcess::none;
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
  if (state_.done || encoding_ == Encoding::other) return available;
  if (encoding_ == Encoding::unknown) return 0;
  return state_.at * unit_width();
}

std::size_t MarkupScan::forget(std::size_t bytes) {
  if (state_.done || encoding_ == Encoding::other) return bytes;
  state_.at -= bytes / unit_width();
  return bytes - bytes % unit_width();
}

MarkupExcess markup_excess(std::string_view document) {
  return MarkupScan().more(document, true);
}

MarkupExcess markup_excess(std::wstring_view text) {
  MarkupScan::State state;
  return scan(WideUnits(text), state, true);
}

}  // namespace Morvek::Tivalo
