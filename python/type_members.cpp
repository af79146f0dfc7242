#include "python/type_members.h"

#include <unordered_map>

namespace tivalo::python {
namespace {

VARTYPE declared_type(const TYPEDESC& type) {
  switch (type.vt) {
    case VT_PTR:
      return type.lptdesc ? declared_type(*type.lptdesc) : VT_VARIANT;
    case VT_USERDEFINED:  // the component's own interfaces
    case VT_UNKNOWN:
      return VT_DISPATCH;
    default:
      return type.vt;
  }
}

bool is_result(const ELEMDESC& parameter) {
  return parameter.paramdesc.wParamFlags & (PARAMFLAG_FRETVAL | PARAMFLAG_FOUT);
}

// Member name first, then the parameter names.
std::vector<std::wstring> names_of(ITypeInfo* info, MEMBERID id) {
  BSTR names[64] = {};
  UINT count = 0;
  if (FAILED(info->GetNames(id, names, 64, &count))) return {};
  std::vector<std::wstring> result;
  for (UINT i = 0; i < count; ++i) {
    tivalo::Bstr name = tivalo::Bstr::attach(names[i]);
    result.push_back(name.str());
  }
  return result;
}

// Frees a description handed out by ITypeInfo when it goes out of scope.
template <class Description, void (ITypeInfo::*release)(Description*)>
struct HeldDescription {
  ITypeInfo* info;
  Description* description = nullptr;
  ~HeldDescription() {
    if (description) (info->*release)(description);
  }
};
using HeldTypeAttr = HeldDescription<TYPEATTR, &ITypeInfo::ReleaseTypeAttr>;
using HeldFuncDesc = HeldDescription<FUNCDESC, &ITypeInfo::ReleaseFuncDesc>;

}  // namespace

std::shared_ptr<const TypeMembers> TypeMembers::of(IDispatch* object) {
  // One table per interface identity; only touched with the interpreter lock held.
  static std::unordered_map<GUID, std::shared_ptr<const TypeMembers>> known;

  UINT count = 0;
  tivalo::ComPtr<ITypeInfo> info;
  if (FAILED(object->GetTypeInfoCount(&count)) || count == 0) return nullptr;
  if (FAILED(object->GetTypeInfo(0, LOCALE_USER_DEFAULT, info.put())) || !info) return nullptr;
  HeldTypeAttr attributes{info.get()};
  if (FAILED(info->GetTypeAttr(&attributes.description)) || !attributes.description) return nullptr;

  std::shared_ptr<const TypeMembers>& members = known[attributes.description->guid];
  if (!members) members.reset(new TypeMembers(info.get()));
  return members;
}

TypeMembers::TypeMembers(ITypeInfo* info) {
  tivalo::Bstr name;
  if (SUCCEEDED(info->GetDocumentation(MEMBERID_NIL, name.put(), nullptr, nullptr, nullptr))) {
    interface_name_ = name.str();
  }
  HeldTypeAttr attributes{info};
  if (FAILED(info->GetTypeAttr(&attributes.description)) || !attributes.description) return;
  for (UINT i = 0; i < attributes.description->cFuncs; ++i) {
    HeldFuncDesc function{info};
    if (SUCCEEDED(info->GetFuncDesc(i, &function.description)) && function.description) {
      add(info, *function.description);
    }
  }
}

void TypeMembers::add(ITypeInfo* info, const FUNCDESC& function) {
  // IUnknown and IDispatch themselves are restricted: a script never calls them by name.
  if (function.wFuncFlags & FUNCFLAG_FRESTRICTED) return;
  auto [entry, is_new] = members_.try_emplace(function.memid);
  Member& member = entry->second;
  std::vector<std::wstring> names = names_of(info, function.memid);
  if (is_new) {
    member.name = names.empty() ? std::wstring() : names.front();
    if (!member.name.empty()) names_.push_back(member.name);
  }

  if (function.invkind & (INVOKE_PROPERTYPUT | INVOKE_PROPERTYPUTREF)) {
    member.has_put = true;
    if (function.cParams > 0) {
      member.put_type = declared_type(function.lprgelemdescParam[function.cParams - 1].tdesc);
    }
    return;
  }
  member.is_method = member.is_method || (function.invkind & INVOKE_FUNC);
  member.has_get = member.has_get || (function.invkind & INVOKE_PROPERTYGET);
  member.parameters.clear();
  for (SHORT i = 0; i < function.cParams; ++i) {
    const ELEMDESC& parameter = function.lprgelemdescParam[i];
    if (is_result(parameter)) continue;
    size_t name_index = size_t(i) + 1;
    member.parameters.push_back(
        {name_index < names.size() ? names[name_index] : std::wstring(),
         declared_type(parameter.tdesc)});
  }
}

const Member* TypeMembers::find(DISPID id) const {
  auto entry = members_.find(id);
  return entry == members_.end() ? nullptr : &entry->second;
}

}  // namespace tivalo::python
