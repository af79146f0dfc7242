// ProgIDs of this library's classes, answered from the class map and the catalogue.
#include "module/catalogue.h"
#include "module/class_store.h"
#include "module/identity.h"
#include "module/module.h"

#include <cstring>
#include <cwctype>
#include <string>

namespace Morvek::Tivalo {
namespace {

constexpr std::wstring_view version_suffix = L".1";

bool starts_with_ignoring_case(std::wstring_view text, std::wstring_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    if (std::towlower(text[i]) != std::towlower(prefix[i])) return false;
  }
  return true;
}

// "<prefix><Class>" or "<prefix><Class>.1", without regard to case as registry keys are.
const TypeLibrary::Class* class_of_progid(std::wstring_view progid) {
  const std::wstring_view prefix = Identity::progid_prefix;
  if (!starts_with_ignoring_case(progid, prefix)) return nullptr;
  progid.remove_prefix(prefix.size());
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

HRESULT own_clsid_from_progid(LPCOLESTR progid, LPCLSID clsid) {
  const TypeLibrary::Class* c = class_of_progid(progid);
  if (!c) {
    std::memset(clsid, 0, sizeof(CLSID));
    return CO_E_CLASSSTRING;
  }
  *clsid = c->clsid;
  return S_OK;
}

HRESULT own_progid_from_clsid(REFCLSID clsid, LPOLESTR* progid) {
  const ClassMapEntry* entry = module().find(clsid);
  if (!entry || !entry->info) return REGDB_E_CLASSNOTREG;
  std::wstring text = std::wstring(Identity::progid_prefix);
  for (const char* p = entry->info->progid_name; *p; ++p) text += wchar_t(*p);
  text += version_suffix;
  auto* copy = static_cast<LPOLESTR>(CoTaskMemAlloc((text.size() + 1) * sizeof(wchar_t)));
  if (!copy) return E_OUTOFMEMORY;
  std::memcpy(copy, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
  *progid = copy;
  return S_OK;
}

}  // namespace Morvek::Tivalo
