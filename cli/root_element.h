// The name of a document's root element, found without parsing the document: the tool picks the
// document class by it before the component reads anything.
#pragma once

#include <istream>
#include <string>

namespace tivalo::cli {

struct DocumentHead {
  std::string root;         // local name of the root element; empty when none was found
  std::string ubl_version;  // the text of the first UBLVersionID, when the document has one
};

// Reads past a byte-order mark, the XML declaration, comments, processing instructions and a
// document type declaration (without expanding anything) to the first element, in UTF-8, UTF-16
// or UTF-32 (with or without a byte-order mark), EBCDIC, UTF-7 or any single-byte encoding that
// keeps ASCII.
DocumentHead read_document_head(std::istream& in);

// Local name of the root element; empty when the text holds no element there.
std::string root_element_name(std::istream& in);

}  // namespace tivalo::cli
