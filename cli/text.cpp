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
  // A name that is not UTF-8 (an old Latin-1 file name) is kept byte for byte.
  return is_utf8(bytes) ? decode(CP_UTF8, 0, bytes) : widen_bytes(bytes);
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
