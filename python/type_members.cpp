#include "python/type_members.h"

#include <cwctype>
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

std::wstring lower(std::wstring text) {
  for (wchar_t& c : text) c = wchar_t(std::towlower(c));
  return text;
}

const TypeMembers* TypeMembers::of(IDispatch* object) {
  static std::unordered_map<const void*, const TypeMembers*> by_table;
  static std::unordered_map<GUID, const TypeMembers*> by_interface;

  const void* table = *reinterpret_cast<void* const*>(object);
  auto known = by_table.find(table);
  if (known != by_table.end()) return known->second;

  const TypeMembers* members = nullptr;
  UINT count = 0;
  tivalo::ComPtr<ITypeInfo> info;
  HeldTypeAttr attributes{nullptr};
  if (SUCCEEDED(object->GetTypeInfoCount(&count)) && count > 0 &&
      SUCCEEDED(object->GetTypeInfo(0, LOCALE_USER_DEFAULT, info.put())) && info) {
    attributes.info = info.get();
    if (SUCCEEDED(info->GetTypeAttr(&attributes.description)) && attributes.description) {
      const TypeMembers*& shared = by_interface[attributes.description->guid];
      if (!shared) shared = new TypeMembers(info.get());
      members = shared;
    }
  }
  by_table.emplace(table, members);
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
  for (auto& [id, member] : members_) {
    member.id = id;
    by_lower_name_.emplace(lower(member.name), &member);
  }
  find_lists();
}

void TypeMembers::find_lists() {
  for (const auto& [id, member] : members_) {
    if (!member.is_method || member.name.rfind(L"get", 0) != 0 || member.parameters.size() != 1 ||
        member.parameters[0].type != VT_I4) {
      continue;
    }
    std::wstring element = member.name.substr(3);
    const Member* add = find(id + 1);
    const Member* remove = find(id + 2);
    const Member* clear = find(id + 3);
    const Member* count = find(id + 4);
    if (!add || !remove || !clear || !count || lower(add->name) != lower(L"add" + element) ||
        lower(remove->name) != lower(L"remove" + element) ||
        lower(count->name) != lower(element + L"Count") || add->parameters.size() != 1) {
      continue;
    }
    auto [entry, is_new] = lists_by_lower_name_.try_emplace(lower(element));
    if (!is_new || by_lower_name_.count(entry->first)) continue;  // a real member comes first
    entry->second = {element, id, add->id, remove->id, clear->id, count->id,
                     add->parameters[0].type};
    names_.push_back(element);
  }
}

PyTypeObject* TypeMembers::python_type(PyObject* (*make)(const std::wstring& name)) const {
  if (!python_type_) python_type_ = make(interface_name_);
  return reinterpret_cast<PyTypeObject*>(python_type_);
}

const Slot* TypeMembers::slot(PyObject* name) const {
  if (!slot_index_ && !(slot_index_ = PyDict_New())) return nullptr;
  if (PyObject* index = PyDict_GetItemWithError(slot_index_, name)) {
    return slots_[size_t(PyLong_AsSsize_t(index))].get();
  }
  if (PyErr_Occurred()) return nullptr;
  Py_ssize_t length = 0;
  wchar_t* text = PyUnicode_AsWideCharString(name, &length);
  if (!text) return nullptr;
  std::wstring spelt(text, size_t(length));
  PyMem_Free(text);

  slots_.push_back(std::make_unique<Slot>(resolve(spelt)));
  PyObject* index = PyLong_FromSsize_t(Py_ssize_t(slots_.size() - 1));
  if (!index || PyDict_SetItem(slot_index_, name, index) != 0) {
    Py_XDECREF(index);
    return nullptr;
  }
  Py_DECREF(index);
  return slots_.back().get();
}

Slot TypeMembers::resolve(const std::wstring& name) const {
  std::wstring key = lower(name);
  if (auto member = by_lower_name_.find(key); member != by_lower_name_.end()) {
    const Member* m = member->second;
    // A property that takes arguments is called like a method.
    bool called = m->is_method || (m->has_get && !m->parameters.empty());
    return {called ? Slot::method : Slot::property, m, nullptr};
  }
  if (auto list = lists_by_lower_name_.find(key); list != lists_by_lower_name_.end()) {
    return {Slot::sequence, nullptr, &list->second};
  }
  return {};
}

void TypeMembers::add(ITypeInfo* info, const FUNCDESC& function) {
  // IUnknown and IDispatch themselves are restricted: a script never calls them by name.
  if (function.wFuncFlags & FUNCFLAG_FRESTRICTED) return;
  auto [entry, is_new] = members_.try_emplace(function.memid);
  Member& member = entry->second;
  std::vector<std::wstring> names = names_of(info, function.memid);
  if (is_new) {
    member.id = function.memid;
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
