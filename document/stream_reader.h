// Reading a document straight from its bytes into the object model: libxml2's SAX2 parser drives
// the generated rules of each class (model/stream_read.h), with no tree of its own. It follows
// the binding's parse exactly (the walk over members in schema order and what ends it, attributes
// by unqualified name, whitespace per type, strict values), so a document it reads becomes the same
// objects as through the binding.
#pragma once

#include "model/document.h"

#include <iosfwd>
#include <string_view>

namespace Morvek::Tivalo {

enum class StreamReadResult {
  read,     // the document is the content now
  refused,  // the document has a fault; the content is as it was
  declined  // the reader leaves this document to the binding (see below); the content is as it was
};

// Reads `bytes` as a document of the content's class and, only when all of it was read, makes it
// the whole content. Faults (not well formed, a refused DTD, limits, a missing required child, a
// value not of its type, ...) are `refused` without a message: the binding's path names them, so
// every fault keeps its one text. Declined, for the binding to read: encodings other than UTF-8,
// UTF-16 with a byte order mark and ISO-8859-1, XML 1.1, and elements that name their type with
// xsi:type.
// The caller has held `bytes` to the markup limits already (markup_limits.h); the parse holds
// every element to them again as it goes.
StreamReadResult stream_read(DocumentContent& document, std::string_view bytes);

// The same, pulling the bytes from `in` a piece at a time: no copy of the whole document is held.
// A document the markup scan refuses, or that `in` fails to deliver, is `refused`.
StreamReadResult stream_read(DocumentContent& document, std::istream& in);

}  // namespace Morvek::Tivalo
