#pragma once
// GUID and its registry text form "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}".
#include <cstring>
#include <functional>

#include "platform/hresult.h"

struct GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
};
typedef GUID IID;
typedef GUID CLSID;
typedef GUID* LPGUID;
typedef IID* LPIID;
typedef CLSID* LPCLSID;
typedef const GUID& REFGUID;
typedef const IID& REFIID;
typedef const CLSID& REFCLSID;

inline bool IsEqualGUID(REFGUID a, REFGUID b) { return std::memcmp(&a, &b, sizeof(GUID)) == 0; }
#define IsEqualIID(a, b) IsEqualGUID(a, b)
#define IsEqualCLSID(a, b) IsEqualGUID(a, b)
inline bool operator==(REFGUID a, REFGUID b) { return IsEqualGUID(a, b); }
inline bool operator!=(REFGUID a, REFGUID b) { return !IsEqualGUID(a, b); }

extern const GUID GUID_NULL;
#define IID_NULL GUID_NULL
#define CLSID_NULL GUID_NULL

// Only the braced form is understood; a program identifier is not looked up here.
// Bad text gives CO_E_CLASSSTRING (CLSIDFromString) or E_INVALIDARG (IIDFromString).
HRESULT CLSIDFromString(LPCOLESTR text, LPCLSID clsid);
HRESULT IIDFromString(LPCOLESTR text, LPIID iid);
// Writes the braced form in upper case, as Windows does; returns the characters written
// including the terminator (39), or 0 when the buffer is too small.
int StringFromGUID2(REFGUID guid, LPOLESTR buffer, int capacity);
// As StringFromGUID2, into memory the caller frees with CoTaskMemFree.
HRESULT StringFromCLSID(REFCLSID clsid, LPOLESTR* text);
HRESULT StringFromIID(REFIID iid, LPOLESTR* text);

namespace std {
template <>
struct hash<GUID> {
  size_t operator()(const GUID& g) const noexcept {
    uint64_t halves[2];
    std::memcpy(halves, &g, sizeof halves);
    return std::hash<uint64_t>()(halves[0] ^ (halves[1] * 0x9E3779B97F4A7C15ull));
  }
};
}  // namespace std
