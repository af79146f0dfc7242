#include "platform/guid_text.h"

#include <cwchar>

namespace tivalo {
namespace {

// Positions of the 32 hex digits inside the 38-character braced form, most significant first.
constexpr int kDigitPositions[32] = {1,  2,  3,  4,  5,  6,  7,  8,  10, 11, 12, 13, 15, 16, 17, 18,
                                     20, 21, 22, 23, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36};
constexpr size_t kTextLength = 38;

int hex_value(wchar_t c) {
  if (c >= L'0' && c <= L'9') return c - L'0';
  if (c >= L'a' && c <= L'f') return c - L'a' + 10;
  if (c >= L'A' && c <= L'F') return c - L'A' + 10;
  return -1;
}

// The GUID's 16 bytes in text order (the first three fields big-endian).
void to_text_order(const GUID& g, uint8_t bytes[16]) {
  for (int i = 0; i < 4; ++i) bytes[i] = uint8_t(g.Data1 >> (24 - 8 * i));
  bytes[4] = uint8_t(g.Data2 >> 8), bytes[5] = uint8_t(g.Data2);
  bytes[6] = uint8_t(g.Data3 >> 8), bytes[7] = uint8_t(g.Data3);
  for (int i = 0; i < 8; ++i) bytes[8 + i] = g.Data4[i];
}

GUID from_text_order(const uint8_t bytes[16]) {
  GUID g{};
  for (int i = 0; i < 4; ++i) g.Data1 = (g.Data1 << 8) | bytes[i];
  g.Data2 = uint16_t((bytes[4] << 8) | bytes[5]);
  g.Data3 = uint16_t((bytes[6] << 8) | bytes[7]);
  for (int i = 0; i < 8; ++i) g.Data4[i] = bytes[8 + i];
  return g;
}

}  // namespace

std::wstring to_wstring(const GUID& guid) {
  static const wchar_t digits[] = L"0123456789abcdef";
  uint8_t bytes[16];
  to_text_order(guid, bytes);
  std::wstring text(L"{00000000-0000-0000-0000-000000000000}");
  for (int i = 0; i < 32; ++i) {
    int nibble = (i % 2 == 0) ? bytes[i / 2] >> 4 : bytes[i / 2] & 0xF;
    text[size_t(kDigitPositions[i])] = digits[nibble];
  }
  return text;
}

bool parse_guid(const wchar_t* text, GUID& guid) {
  if (!text || std::wcslen(text) != kTextLength) return false;
  if (text[0] != L'{' || text[37] != L'}') return false;
  for (int dash : {9, 14, 19, 24})
    if (text[dash] != L'-') return false;
  uint8_t bytes[16] = {};
  for (int i = 0; i < 32; ++i) {
    int value = hex_value(text[kDigitPositions[i]]);
    if (value < 0) return false;
    bytes[i / 2] = uint8_t(bytes[i / 2] << 4 | value);
  }
  guid = from_text_order(bytes);
  return true;
}

}  // namespace tivalo
