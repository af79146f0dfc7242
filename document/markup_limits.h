// Limits on the shape of a document. No UBL document comes near them, but past them the parsers'
// costs grow faster than the document (attributes of one element are compared pairwise, nested
// content is copied recursively), so a document beyond them is refused before it is parsed.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Morvek::Tivalo {

inline constexpr std::size_t max_element_depth = 1000;
inline constexpr std::size_t max_attributes_per_element = 100;

enum class MarkupExcess { none, depth, attributes };

// The message for a document refused for `excess`.
std::wstring excess_message(MarkupExcess excess);

// Looks at the markup of a document's bytes without parsing it: start and end tags, comments,
// CDATA sections and processing instructions, in UTF-8 and the other encodings whose markup
// characters are ASCII, UTF-16 and UTF-32 (told by their byte order mark or their first
// characters). A document in another encoding is left to the parser, which applies the same
// limits as it builds the tree. Stops at a declaration ("<!DOCTYPE"): the parser refuses those.
// Fed piece by piece as a document is read, it refuses a flood before the rest has arrived.
class MarkupScan {
 public:
  struct State {
    std::size_t at = 0;     // the first unit not yet looked at
    std::size_t depth = 0;  // elements open there
    bool done = false;
  };

  // `document` is everything read so far (each call a longer beginning of the same document);
  // `complete` once it is the whole document.
  MarkupExcess more(std::string_view document, bool complete = false);

  // How many bytes from the beginning the scan has passed: all of them once it has stopped at a
  // declaration or met an encoding it leaves to the parser.
  std::size_t passed(std::size_t available) const;

  // The caller is to drop up to `bytes` (no more than `passed`) from the front of what it hands
  // to `more`: returns how many to drop, whole code units only.
  std::size_t forget(std::size_t bytes);

 private:
  std::size_t unit_width() const;
  enum class Encoding { unknown, byte, utf16le, utf16be, utf32le, utf32be, other };
  Encoding encoding_ = Encoding::unknown;
  State state_;
};

MarkupExcess markup_excess(std::string_view document);

// The same for a caller's text, before it is converted to bytes.
MarkupExcess markup_excess(std::wstring_view text);

}  // namespace Morvek::Tivalo
