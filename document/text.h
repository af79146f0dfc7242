// Text at the boundary of the document operations: wide strings from the caller, narrow bytes
// for files, parsers and the stylesheet processor.
#pragma once

#include "platform/automation.h"

#include <xsd/cxx/exceptions.hxx>

#include <string>

namespace Morvek::Tivalo::Documents {

// A caller's string; an absent one is empty.
std::wstring text_of(BSTR text);

// A path as the file system expects its bytes (UTF-8 on Linux).
std::string file_path(const std::wstring& path);

// Document text in the thread's ANSI code page, one byte per character, so that a string got
// from `XML` goes back in as the very bytes it came from. Texts of 2^30 characters or more,
// terminator included, are not converted and give no bytes.
std::string ansi_bytes(BSTR text);

// Bytes read in the thread's ANSI code page as a new string; null when the conversion fails.
BSTR ansi_string(const std::string& bytes);

// Each byte becomes the character of the same value.
std::wstring widen_bytes(const std::string& bytes);

// The binding's printing of one of its errors ("expected element '...'", the parser's
// diagnostics); for an error of the XML layer, its description.
std::wstring printed(const xsd::cxx::exception& error);

}  // namespace Morvek::Tivalo::Documents
