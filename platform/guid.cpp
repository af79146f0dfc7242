#include <cwctype>

#include "platform/automation.h"

const GUID GUID_NULL = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};

HRESULT CLSIDFromString(LPCOLESTR text, LPCLSID clsid) {
  if (!clsid) return E_INVALIDARG;
  if (!text) {
    *clsid = GUID_NULL;
    return S_OK;
  }
  return tivalo::parse_guid(text, *clsid) ? S_OK : CO_E_CLASSSTRING;
}

HRESULT IIDFromString(LPCOLESTR text, LPIID iid) {
  if (!iid) return E_INVALIDARG;
  if (!text) {
    *iid = GUID_NULL;
    return S_OK;
  }
  return tivalo::parse_guid(text, *iid) ? S_OK : E_INVALIDARG;
}

int StringFromGUID2(REFGUID guid, LPOLESTR buffer, int capacity) {
  std::wstring text = tivalo::to_wstring(guid);
  if (!buffer || capacity < int(text.size()) + 1) return 0;
  for (size_t i = 0; i < text.size(); ++i) buffer[i] = wchar_t(std::towupper(wint_t(text[i])));
  buffer[text.size()] = L'\0';
  return int(text.size()) + 1;
}

HRESULT StringFromCLSID(REFCLSID clsid, LPOLESTR* text) {
  if (!text) return E_INVALIDARG;
  constexpr int kCapacity = 39;
  *text = static_cast<LPOLESTR>(CoTaskMemAlloc(kCapacity * sizeof(OLECHAR)));
  if (!*text) return E_OUTOFMEMORY;
  StringFromGUID2(clsid, *text, kCapacity);
  return S_OK;
}

HRESULT StringFromIID(REFIID iid, LPOLESTR* text) { return StringFromCLSID(iid, text); }
