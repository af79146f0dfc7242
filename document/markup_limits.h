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
MarkupExcess markup_excess(std::string_view document);

}  // namespace Morvek::Tivalo
