#include "document/markup_limits.h"

#include <cstdint>

namespace Morvek::Tivalo {
namespace {

// The document as a sequence of code units of one width and byte order; only the ASCII markup
// characters matter, so the units are not decoded any further.
template <std::size_t Width, bool BigEndian>
class Units {
 public:
  explicit Units(std::string_view bytes) : bytes_(bytes), size_(bytes.size() / Width) {}

  std::size_t size() const { return size_; }
  char32_t operator[](std::size_t i) const {
    const auto* unit = reinterpret_cast<const unsigned char*>(bytes_.data()) + i * Width;
    char32_t value = 0;
    for (std::size_t b = 0; b < Width; ++b)
      value |= char32_t(unit[BigEndian ? b : Width - 1 - b]) << (8 * (Width - 1 - b));
    return value;
  }

  bool starts_with(std::size_t at, std::string_view text) const {
    if (size_ - at < text.size()) return false;
    for (std::size_t i = 0; i < text.size(); ++i)
      if ((*this)[at + i] != char32_t(static_cast<unsigned char>(text[i]))) return false;
    return true;
  }

  // The position just after the next `text` from `at`, or the end.
  std::size_t after(std::size_t at, std::string_view text) const {
    for (; at < size_; ++at)
      if (starts_with(at, text)) return at + text.size();
    return size_;
  }

 private:
  std::string_view bytes_;
  std::size_t size_;
};

template <std::size_t Width, bool BigEndian = false>
MarkupExcess scan(std::string_view bytes) {
  const Units<Width, BigEndian> units(bytes);
  std::size_t depth = 0;
  std::size_t at = 0;
  while (at < units.size()) {
    if (units[at] != U'<') {
      ++at;
      continue;
    }
    if (units.starts_with(at, "<!--")) {
      at = units.after(at + 4, "-->");
    } else if (units.starts_with(at, "<![CDATA[")) {
      at = units.after(at + 9, "]]>");
    } else if (units.starts_with(at, "<!")) {
      return MarkupExcess::none;
    } else if (units.starts_with(at, "<?")) {
      at = units.after(at + 2, "?>");
    } else if (units.starts_with(at, "</")) {
      if (depth) --depth;
      at = units.after(at + 2, ">");
    } else {
      if (++depth > max_element_depth) return MarkupExcess::depth;
      // A start tag: one '=' outside quotes per attribute; quoted values may hold '>' and '/'.
      std::size_t attributes = 0;
      char32_t quote = 0;
      char32_t previous = 0;
      for (++at; at < units.size(); ++at) {
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

MarkupExcess markup_excess(std::string_view document) {
  using namespace std::literals;
  // UTF-32 first: its little-endian mark begins like UTF-16's.
  if (begins(document, "\0\0\xFE\xFF"sv) || begins(document, "\0\0\0<"sv))
    return scan<4, true>(document);
  if (begins(document, "\xFF\xFE\0\0"sv) || begins(document, "<\0\0\0"sv))
    return scan<4>(document);
  if (begins(document, "\xFE\xFF"sv) || begins(document, "\0<"sv)) return scan<2, true>(document);
  if (begins(document, "\xFF\xFE"sv) || begins(document, "<\0"sv)) return scan<2>(document);
  if (begins(document, "\x4C\x6F\xA7\x94"sv)) return MarkupExcess::none;  // EBCDIC
  return scan<1>(document);
}

}  // namespace Morvek::Tivalo
