// Reading a document straight from its bytes into the object model: libxml2's SAX2 parser drives
// the generated rules of each class (model/stream_read.h), with no tree of its own. It follows
// the binding's parse exactly (the walk over members in schema order and what ends it, attributes
// by unqualified name, whitespace per type, strict values), so a document it reads becomes the same
// objects as through the binding.
#pragma once

#include "model/document.h"

#include <iosfwd>
#include <string>
#include <string_view>

namespace Morvek::Tivalo {

enum class StreamReadResult {
  read,     // the document is the content now
  refused,  // the document has a fault; the content is as it was
  declined  // the reader leaves this document to the binding (see below); the content is as it was
};

// Reads `bytes` as a document of the content's class and, only when all of it was read, makes it
// the whole content.
//
// Beside the binding (`fault` null), faults (not well formed, a refused DTD, limits, a missing
// required child, a value not of its type, ...) are `refused` without a message: the binding's
// path names them, so every fault keeps its one text. Declined, for the binding to read:
// encodings other than UTF-8, UTF-16 with a byte order mark and ISO-8859-1, XML 1.1, and
// elements that name their type with xsi:type.
//
// Alone (`fault` given: a class with no binding, or a test of the reader), nothing is declined
// and a refusal's text goes to `fault`: "Tivalo: Line 7, column 17, cbc:IssueDate: ..." naming
// where, the element (or "in" the element a child of it is missing from or misplaced in) and
// what is wrong. Every encoding the binding's parser reads is read: a document in one that the two
// parsers might read differently (all but UTF-8, UTF-16 with a byte order mark and ISO-8859-1) is
// decoded by Xerces-C's reader, as the binding's parser decodes it, and handed to libxml2 as
// UTF-8. XML 1.1 is refused; xsi:type is read when it names the element's own type.
// An exception that is no fault of the document (out of memory) is thrown.
//
// Beside the binding the caller has held `bytes` to the markup limits already
// (markup_limits.h); alone, the reader does. The parse holds every element to them again.
StreamReadResult stream_read(DocumentContent& document, std::string_view bytes,
                             std::wstring* fault = nullptr);

// The same, pulling the bytes from `in` a piece at a time: no copy of the whole document is held.
// A document the markup scan refuses, or that `in` fails to deliver, is `refused`.
StreamReadResult stream_read(DocumentContent& document, std::istream& in,
                             std::wstring* fault = nullptr);

// Reads `bytes` as the reader alone reads a document of `kind`, for its verdict only: the objects
// are discarded. `read`, or `refused` with the fault's text in `fault`.
StreamReadResult stream_check(const DocumentBinding& kind, std::string_view bytes,
                              std::wstring& fault);

// Part of the texts of the refusals the reader alone makes where the binding's parser may read
// the document: a version of XML other than 1.0, and an encoding libxml2 does not know met in a
// document it reads itself (its first bytes said UTF-8, UTF-16 or ISO-8859-1).
inline constexpr wchar_t stream_version_refused[] = L"only XML 1.0 documents are read";
inline constexpr wchar_t stream_encoding_refused[] = L"documents so encoded are not read";

}  // namespace Morvek::Tivalo
