#include "cli/text.h"

#include "platform/automation.h"

#include <regex>

namespace tivalo::cli {
namespace {

std::wstring decode(UINT code_page, DWORD flags, std::string_view bytes) {
  if (bytes.empty()) return {};
  const int size = static_cast<int>(bytes.size());
  const int length = MultiByteToWideChar(code_page, flags, bytes.data(), size, nullptr, 0);
  std::wstring text(static_cast<size_t>(length > 0 ? length : 0), L'\0');
  if (length > 0) MultiByteToWideChar(code_page, flags, bytes.data(), size, &text[0], length);
  return text;
}

std::string encode(UINT code_page, std::wstring_view text) {
  if (text.empty()) return {};
  const int size = static_cast<int>(text.size());
  const int length =
      WideCharToMultiByte(code_page, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
  std::string bytes(static_cast<size_t>(length > 0 ? length : 0), '\0');
  if (length > 0)
    WideCharToMultiByte(code_page, 0, text.data(), size, &bytes[0], length, nullptr, nullptr);
  return bytes;
}

bool is_utf8(std::string_view bytes) {
  return bytes.empty() || !decode(CP_UTF8, MB_ERR_INVALID_CHARS, bytes).empty();
}

}  // namespace

std::wstring from_utf8(std::string_view bytes) {
  if (is_utf8(bytes)) return decode(CP_UTF8, 0, bytes);
  // A name that is not UTF-8 (an old Latin-1 file name) keeps each byte that is not part of a
  // UTF-8 character as U+DC80 to U+DCFF, which the component turns back into that byte.
  std::wstring text;
  for (size_t at = 0; at < bytes.size();) {
    size_t length = 1;
    while (length <= 4 && at + length <= bytes.size() && !is_utf8(bytes.substr(at, length))) ++length;
    if (length <= 4 && at + length <= bytes.size()) {
      text += decode(CP_UTF8, 0, bytes.substr(at, length));
      at += length;
    } else {
      text += static_cast<wchar_t>(0xDC00 + static_cast<unsigned char>(bytes[at++]));
    }
  }
  return text;
}

std::string to_utf8(std::wstring_view text) { return encode(CP_UTF8, text); }

std::wstring widen_bytes(std::string_view bytes) { return decode(CP_THREAD_ACP, 0, bytes); }

std::string narrow_bytes(std::wstring_view text) { return encode(CP_THREAD_ACP, text); }

std::string message_for_terminal(std::wstring_view message) {
  for (wchar_t c : message) {
    if (c > 0xFF) return to_utf8(message);
  }
  std::string bytes = narrow_bytes(message);
  return is_utf8(bytes) ? bytes : to_utf8(message);
}

namespace {

std::string hex_escape(unsigned value, int digits, const char* prefix) {
  static const char hex[] = "0123456789abcdef";
  std::string text = prefix;
  for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) text += hex[(value >> shift) & 0xF];
  return text;
}

bool is_bidi_control(unsigned c) {
  return c == 0x200E || c == 0x200F || (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

// Length of the UTF-8 sequence at `i` and its code point; 0 when the bytes are not UTF-8.
size_t decode_one(std::string_view bytes, size_t i, unsigned& c) {
  const auto byte = [&](size_t k) { return static_cast<unsigned char>(bytes[k]); };
  const unsigned first = byte(i);
  size_t length = first < 0x80 ? 1 : (first >> 5) == 0x6 ? 2 : (first >> 4) == 0xE ? 3 : (first >> 3) == 0x1E ? 4 : 0;
  if (length == 0 || i + length > bytes.size()) return 0;
  c = length == 1 ? first : first & (0x7F >> length);
  for (size_t k = 1; k < length; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) return 0;
    c = (c << 6) | (byte(i + k) & 0x3F);
  }
  static const unsigned smallest[] = {0, 0, 0x80, 0x800, 0x10000};
  if (c < smallest[length] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return 0;
  return length;
}

}  // namespace

std::string escape_controls(std::string_view utf8) {
  std::string safe;
  safe.reserve(utf8.size());
  for (size_t i = 0; i < utf8.size();) {
    unsigned c = 0;
    const size_t length = decode_one(utf8, i, c);
    if (length == 0) {
      safe += hex_escape(static_cast<unsigned char>(utf8[i]), 2, "\\x");
      ++i;
      continue;
    }
    if (c == '\t') safe += "\\t";
    else if (c < 0x20 || c == 0x7F) safe += hex_escape(c, 2, "\\x");
    else if ((c >= 0x80 && c <= 0x9F) || is_bidi_control(c)) safe += hex_escape(c, 4, "\\u");
    else safe.append(utf8.substr(i, length));
    i += length;
  }
  return safe;
}

std::string printable(std::wstring_view text) { return escape_controls(message_for_terminal(text)); }

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(start, end - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(std::move(line));
    start = end + 1;
  }
  while (!lines.empty() && lines.back().empty()) lines.pop_back();
  return lines;
}

bool reader_placed(const std::string& message, long& line, long& column, std::string& what) {
  static const std::regex placed(R"(^(?:Tivalo: )?Line (\d{1,9}), column (\d{1,9}), (.*)$)");
  std::smatch parts;
  if (!std::regex_match(message, parts, placed)) return false;
  line = std::stol(parts[1].str());
  column = std::stol(parts[2].str());
  what = parts[3].str();
  return true;
}

std::string located(const std::string& source, const std::string& line) {
  if (!line.empty() && line.front() == ':') return source + line;
  long number = 0, column = 0;
  std::string what;
  if (reader_placed(line, number, column, what))
    return source + ":" + std::to_string(number) + ":" + std::to_string(column) + " error: " + what;
  return source + ": " + line;
}

}  // namespace tivalo::cli
