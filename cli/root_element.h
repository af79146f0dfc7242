// The name of a document's root element, found without parsing the document: the tool picks the
// document class by it before the component reads anything.
#pragma once

#include <istream>
#include <string>

namespace tivalo::cli {

// Local name of the first element, after a byte-order mark, the XML declaration, comments,
// processing instructions and a document type declaration. Empty when the text holds no element
// there (not XML, or not in an ASCII-compatible encoding).
std::string root_element_name(std::istream& in);

}  // namespace tivalo::cli
