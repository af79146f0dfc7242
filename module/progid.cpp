// Object creation and program identifiers, answered from the class map: what the platform's
// registry of classes provides on Windows.
#include "module/catalogue.h"
#include "module/entry_points.h"
#include "module/module.h"

#include <cstring>
#include <cwctype>
#include <string>

namespace Morvek::Tivalo {
namespace {

constexpr std::wstring_view progid_prefix = L"TivaloCOM.";
constexpr std::wstring_view version_suffix = L".1";

bool starts_with_ignoring_case(std::wstring_view text, std::wstring_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    if (std::towlower(text[i]) != std::towlower(prefix[i])) return false;
  }
  return true;
}

// "TivaloCOM.<Class>" or "TivaloCOM.<Class>.1", without regard to case as registry keys are.
const TypeLibrary::Class* class_of_progid(std::wstring_view progid) {
  if (!starts_with_ignoring_case(progid, progid_prefix)) return nullptr;
  progid.remove_prefix(progid_prefix.size());
  if (progid.size() > version_suffix.size() &&
      progid.substr(progid.size() - version_suffix.size()) == version_suffix) {
    progid.remove_suffix(version_suffix.size());
  }
  std::string name;
  for (wchar_t c : progid) {
    if (c <= 0 || c > 0x7F) return nullptr;  // class names are ASCII
    name += char(c);
  }
  const TypeLibrary::Class* c = TypeLibrary::find_class_by_name(name);
  return c && module().find(c->clsid) ? c : nullptr;
}

}  // namespace
}  // namespace Morvek::Tivalo

using namespace Morvek::Tivalo;

HRESULT CLSIDFromProgID(LPCOLESTR progid, LPCLSID clsid) {
  if (!progid || !clsid) return E_INVALIDARG;
  const TypeLibrary::Class* c = class_of_progid(progid);
  if (!c) {
    std::memset(clsid, 0, sizeof(CLSID));
    return CO_E_CLASSSTRING;
  }
  *clsid = c->clsid;
  return S_OK;
}

HRESULT ProgIDFromCLSID(REFCLSID clsid, LPOLESTR* progid) {
  if (!progid) return E_INVALIDARG;
  *progid = nullptr;
  const ClassMapEntry* entry = module().find(clsid);
  if (!entry || !entry->info) return REGDB_E_CLASSNOTREG;
  std::wstring text = std::wstring(progid_prefix);
  for (const char* p = entry->info->progid_name; *p; ++p) text += wchar_t(*p);
  text += version_suffix;
  auto* copy = static_cast<LPOLESTR>(CoTaskMemAlloc((text.size() + 1) * sizeof(wchar_t)));
  if (!copy) return E_OUTOFMEMORY;
  std::memcpy(copy, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
  *progid = copy;
  return S_OK;
}

// The path a client takes: the class object from the module, then an instance from it.
HRESULT CoCreateInstance(REFCLSID clsid, LPUNKNOWN outer, DWORD context, REFIID iid, LPVOID* out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (!(context & CLSCTX_INPROC_SERVER)) return REGDB_E_CLASSNOTREG;
  IClassFactory* factory = nullptr;
  HRESULT hr = DllGetClassObject(clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory));
  if (hr == CLASS_E_CLASSNOTAVAILABLE) return REGDB_E_CLASSNOTREG;
  if (FAILED(hr)) return hr;
  hr = factory->CreateInstance(outer, iid, out);
  factory->Release();
  return hr;
}
