#include "document/text.h"

#include "binding/errors.h"

#include <cstdint>
#include <cwchar>
#include <optional>

namespace Morvek::Tivalo::Documents {
namespace {

bool is_high_surrogate(wchar_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool is_low_surrogate(wchar_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// A byte of a file name that is not UTF-8, carried as U+DC80 to U+DCFF; not the second half of a
// surrogate pair.
bool is_escaped_byte(const std::wstring& text, size_t at) {
  return text[at] >= 0xDC80 && text[at] <= 0xDCFF && !(at > 0 && is_high_surrogate(text[at - 1]));
}

std::string utf8(const wchar_t* wide, size_t length) {
  if (length == 0) return {};
  const int size = WideCharToMultiByte(CP_UTF8, 0, wide, int(length), nullptr, 0, nullptr, nullptr);
  std::string bytes(size_t(size > 0 ? size : 0), '\0');
  if (size > 0) WideCharToMultiByte(CP_UTF8, 0, wide, int(length), &bytes[0], size, nullptr, nullptr);
  return bytes;
}

// `wide` in the thread's code page, or nothing when a character does not fit it. UTF-8 pages
// refuse what they cannot encode under WC_ERR_INVALID_CHARS; single-byte pages refuse that flag
// and report a substituted character instead.
std::optional<std::string> in_thread_code_page(const wchar_t* wide, size_t length) {
  if (length == 0) return std::string();
  DWORD flags = WC_ERR_INVALID_CHARS;
  BOOL substituted = FALSE;
  BOOL* report_substitution = nullptr;
  int size = WideCharToMultiByte(CP_THREAD_ACP, flags, wide, int(length), nullptr, 0, nullptr, nullptr);
  if (size == 0 && GetLastError() == ERROR_INVALID_FLAGS) {
    flags = 0;
    report_substitution = &substituted;
    size = WideCharToMultiByte(CP_THREAD_ACP, flags, wide, int(length), nullptr, 0, nullptr,
                               report_substitution);
  }
  if (size <= 0 || substituted) return std::nullopt;
  std::string bytes(size_t(size), '\0');
  if (WideCharToMultiByte(CP_THREAD_ACP, flags, wide, int(length), &bytes[0], size, nullptr,
                          report_substitution) != size)
    return std::nullopt;
  return bytes;
}

// "U+00E9"; a code unit is taken as its 32 bits, so a negative wchar_t names no plane.
std::wstring code_point(wchar_t unit) {
  static const wchar_t digits[] = L"0123456789ABCDEF";
  auto value = static_cast<std::uint32_t>(unit);
  std::wstring hex;
  do {
    hex.insert(hex.begin(), digits[value & 0xF]);
    value >>= 4;
  } while (value);
  if (hex.size() < 4) hex.insert(0, 4 - hex.size(), L'0');
  return L"U+" + hex;
}

// Why `wide` cannot be converted: its first character that the thread's code page cannot carry.
std::wstring why_not_convertible(const std::wstring& wide) {
  for (size_t at = 0; at < wide.size(); ++at) {
    const size_t length =
        is_high_surrogate(wide[at]) && at + 1 < wide.size() && is_low_surrogate(wide[at + 1]) ? 2 : 1;
    if (!in_thread_code_page(wide.data() + at, length)) {
      const std::wstring where = L" at offset " + std::to_wstring(at) + L" of the text";
      if (is_high_surrogate(wide[at]) || is_low_surrogate(wide[at]))
        return L"Tivalo: The text holds a lone surrogate (" + code_point(wide[at]) + L")" + where +
               L"; no encoding can carry it.";
      if (static_cast<std::uint32_t>(wide[at]) > 0x10FFFF)
        return L"Tivalo: The text holds " + code_point(wide[at]) + where +
               L", which is no Unicode character.";
      return L"Tivalo: The text holds " + code_point(wide[at]) + where +
             L", which the thread's code page cannot carry; run in a UTF-8 locale.";
    }
    at += length - 1;
  }
  return L"Tivalo: The text cannot be converted to the thread's code page.";
}

std::wstring decoded(UINT code_page, const std::string& bytes) {
  if (bytes.empty() || bytes.size() > size_t(INT32_MAX)) return {};
  const int size = static_cast<int>(bytes.size());
  const int length = MultiByteToWideChar(code_page, 0, bytes.data(), size, nullptr, 0);
  if (length <= 0) return {};
  std::wstring text(static_cast<size_t>(length), L'\0');
  if (MultiByteToWideChar(code_page, 0, bytes.data(), size, &text[0], length) != length) return {};
  return text;
}

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::wstring text_of(BSTR text) { return text ? std::wstring(text) : std::wstring(); }

std::string file_path(const std::wstring& path) {
  std::string bytes;
  size_t run = 0;  // the first character not yet converted
  for (size_t at = 0; at < path.size(); ++at) {
    if (!is_escaped_byte(path, at)) continue;
    bytes += utf8(path.data() + run, at - run);
    bytes += static_cast<char>(path[at] - 0xDC00);
    run = at + 1;
  }
  return bytes + utf8(path.data() + run, path.size() - run);
}

AnsiBytes ansi_bytes(BSTR text) {
  constexpr size_t too_long = size_t(1) << 30;
  const size_t length = text ? std::wcslen(text) : 0;
  if (length + 1 >= too_long) return {};  // with the terminator
  AnsiBytes result;
  // Only UTF-8 pages take the flag (see in_thread_code_page).
  result.utf8 =
      WideCharToMultiByte(CP_THREAD_ACP, WC_ERR_INVALID_CHARS, L"<", 1, nullptr, 0, nullptr, nullptr) == 1;
  if (std::optional<std::string> bytes = in_thread_code_page(text, length))
    result.bytes = std::move(*bytes);
  else
    result.failure = why_not_convertible(std::wstring(text, length));
  return result;
}

std::wstring ansi_text(const std::string& bytes) { return decoded(CP_THREAD_ACP, bytes); }

// Decoded straight into the new string: a document of many megabytes is copied once.
BSTR ansi_string(const std::string& bytes) {
  const int size = bytes.size() > size_t(INT32_MAX) ? 0 : static_cast<int>(bytes.size());
  const int length =
      size > 0 ? MultiByteToWideChar(CP_THREAD_ACP, 0, bytes.data(), size, nullptr, 0) : 0;
  BSTR text = SysAllocStringLen(nullptr, static_cast<UINT>(length > 0 ? length : 0));
  if (text && length > 0 &&
      MultiByteToWideChar(CP_THREAD_ACP, 0, bytes.data(), size, text, length) != length)
    text[0] = L'\0';
  return text;
}

std::wstring widen_bytes(const std::string& bytes) {
  std::wstring wide;
  wide.reserve(bytes.size());
  for (char c : bytes) wide += static_cast<wchar_t>(static_cast<unsigned char>(c));
  return wide;
}

std::wstring uri_for_parser(const std::string& uri) {
  std::string bytes;
  bytes.reserve(uri.size());
  for (size_t at = 0; at < uri.size(); ++at) {
    if (uri[at] == '%' && at + 2 < uri.size() && hex_digit(uri[at + 1]) >= 0 &&
        hex_digit(uri[at + 2]) >= 0) {
      const int value = hex_digit(uri[at + 1]) * 16 + hex_digit(uri[at + 2]);
      if (value >= 0x80) {
        bytes += static_cast<char>(value);
        at += 2;
        continue;
      }
    }
    bytes += uri[at];
  }
  return decoded(CP_UTF8, bytes);
}

std::wstring printed(const xsd::cxx::exception& error) {
  if (auto* binding_error = dynamic_cast<const xml_schema::exception*>(&error))
    return UBL2::error_text(*binding_error);
  return widen_bytes(error.what());
}

}  // namespace Morvek::Tivalo::Documents
