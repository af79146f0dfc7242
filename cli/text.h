// Text between the terminal (UTF-8 bytes) and the component (wide strings).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tivalo::cli {

// Command-line text to wide characters and back.
std::wstring from_utf8(std::string_view bytes);
std::string to_utf8(std::wstring_view text);

// Document text as the component's XML property carries it: one character per byte, so the
// bytes go through unchanged (the tool never sets a locale, so the component's code page is the
// "C" locale's, which maps bytes one to one).
std::wstring widen_bytes(std::string_view bytes);
std::string narrow_bytes(std::wstring_view text);

// A message of the component for the terminal. The stylesheet check hands its messages back
// byte by byte, so a text whose characters all fit a byte and that reads as UTF-8 is taken as
// those bytes; any other text is written as UTF-8.
std::string message_for_terminal(std::wstring_view message);

// UTF-8 text made safe for a terminal: control characters (C0, DEL, C1), the bidirectional
// overrides and bytes that are not UTF-8 are written as escapes ("\x1b", "\u202e"), so a
// document cannot steer the user's terminal. Line feeds are escaped too: callers split lines first.
std::string escape_controls(std::string_view utf8);

// A component's text for the terminal: message_for_terminal, then escape_controls.
std::string printable(std::wstring_view text);

// The lines of a text, without line ends; no empty line at the end.
std::vector<std::string> lines_of(const std::string& text);

// A finding or error located in `source`: a diagnostic that begins with ':' (":12:5 error: ...",
// a problem in the document itself) gets the source's name in front, and so does one that begins
// "Line 12, column 5, " (written ":12:5 error: "); anything else the name and ": ".
std::string located(const std::string& source, const std::string& line);

// A message the streaming reader placed itself ("Line 12, column 5, <what>"), taken apart; false
// for any other.
bool reader_placed(const std::string& message, long& line, long& column, std::string& what);

}  // namespace tivalo::cli
