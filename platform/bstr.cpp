#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "platform/automation.h"

namespace {

// The block behind a BSTR: the byte length, then the characters, then a wide terminator.
struct Prefix {
  uint32_t byteLength;
};
static_assert(sizeof(Prefix) % alignof(wchar_t) == 0, "the prefix keeps the characters aligned");

Prefix* prefix_of(BSTR text) { return reinterpret_cast<Prefix*>(text) - 1; }

constexpr size_t kMaxBytes = 0x7FFFFFF0;

BSTR allocate_bytes(const void* bytes, size_t byteLength) {
  if (byteLength > kMaxBytes) return nullptr;
  size_t rounded = (byteLength + sizeof(wchar_t) - 1) / sizeof(wchar_t) * sizeof(wchar_t);
  auto* block = static_cast<Prefix*>(std::malloc(sizeof(Prefix) + rounded + sizeof(wchar_t)));
  if (!block) return nullptr;
  block->byteLength = uint32_t(byteLength);
  auto* chars = reinterpret_cast<char*>(block + 1);
  if (bytes) std::memcpy(chars, bytes, byteLength);
  else std::memset(chars, 0, byteLength);
  std::memset(chars + byteLength, 0, rounded - byteLength + sizeof(wchar_t));
  return reinterpret_cast<BSTR>(chars);
}

}  // namespace

BSTR SysAllocString(const OLECHAR* text) {
  return text ? SysAllocStringLen(text, UINT(std::wcslen(text))) : nullptr;
}

BSTR SysAllocStringLen(const OLECHAR* text, UINT length) {
  if (size_t(length) > kMaxBytes / sizeof(OLECHAR)) return nullptr;
  return allocate_bytes(text, size_t(length) * sizeof(OLECHAR));
}

BSTR SysAllocStringByteLen(LPCSTR bytes, UINT length) { return allocate_bytes(bytes, length); }

INT SysReAllocString(BSTR* target, const OLECHAR* text) {
  return SysReAllocStringLen(target, text, text ? UINT(std::wcslen(text)) : 0);
}

INT SysReAllocStringLen(BSTR* target, const OLECHAR* text, UINT length) {
  if (!target) return FALSE;
  // Allocated before the old one is freed: `text` may point into it.
  BSTR replacement = SysAllocStringLen(text, length);
  if (!replacement) return FALSE;
  SysFreeString(*target);
  *target = replacement;
  return TRUE;
}

void SysFreeString(BSTR text) {
  if (text) std::free(prefix_of(text));
}

UINT SysStringLen(BSTR text) { return text ? prefix_of(text)->byteLength / sizeof(OLECHAR) : 0; }

UINT SysStringByteLen(BSTR text) { return text ? prefix_of(text)->byteLength : 0; }
