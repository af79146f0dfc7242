#include "cli/text.h"

#include "platform/automation.h"

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

std::string located(const std::string& source, const std::string& line) {
  if (!line.empty() && line.front() == ':') return source + line;
  return source + ": " + line;
}

}  // namespace tivalo::cli
