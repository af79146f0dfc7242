// Text at the boundary of the document operations: wide strings from the caller, narrow bytes
// for files, parsers and the stylesheet processor.
#pragma once

#include "platform/automation.h"

#include <xsd/cxx/exceptions.hxx>

#include <string>

namespace Morvek::Tivalo::Documents {

// A caller's string; an absent one is empty.
std::wstring text_of(BSTR text);

// A path as the file system expects its bytes: UTF-8 on Linux. The characters U+DC80 to U+DCFF
// stand for the bytes 0x80 to 0xFF of a name that is not UTF-8, as Python hands such names over.
std::string file_path(const std::wstring& path);

// Document text in the thread's ANSI code page, with the reason when it cannot be converted.
struct AnsiBytes {
  std::string bytes;
  std::wstring failure;  // empty when the text converted
  bool utf8 = false;     // the code page is UTF-8: the bytes are the text's characters
};

// Document text in the thread's ANSI code page: with a single-byte code page one byte per
// character, so that a string got from `XML` goes back in as the very bytes it came from. A
// character the code page cannot carry (a lone surrogate, or one beyond a single-byte page)
// fails with a message naming it. Texts of 2^30 characters or more, terminator included, are
// not converted and give no bytes.
AnsiBytes ansi_bytes(BSTR text);

// Bytes read in the thread's ANSI code page.
std::wstring ansi_text(const std::string& bytes);

// The same as a new string; null when it cannot be allocated.
BSTR ansi_string(const std::string& bytes);

// Each byte becomes the character of the same value.
std::wstring widen_bytes(const std::string& bytes);

// A URI for the XML parser, which reads every escape as one character: the escapes of bytes
// above 127 become the characters their UTF-8 bytes spell ("/a/%C3%A9" -> "/a/é"), so that the
// parser finds the file; the ASCII escapes stay.
std::wstring uri_for_parser(const std::string& uri);

// The binding's printing of one of its errors ("expected element '...'", the parser's
// diagnostics); for an error of the XML layer, its description.
std::wstring printed(const xsd::cxx::exception& error);

}  // namespace Morvek::Tivalo::Documents
