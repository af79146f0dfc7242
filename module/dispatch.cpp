// IDispatch for every object: names to DISPIDs through a case-insensitive hash per class, and
// Invoke through the generated thunks, with the errors of the platform's type-library dispatch.
#include "model/object.h"
#include "module/invoke_member.h"
#include "module/type_info.h"

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace Morvek::Tivalo {

namespace Dispatch {

VARTYPE vartype_of(TypeLibrary::ParamType type) {
  switch (type) {
    case TypeLibrary::ParamType::Bstr: return VT_BSTR;
    case TypeLibrary::ParamType::Date: return VT_DATE;
    case TypeLibrary::ParamType::Double: return VT_R8;
    case TypeLibrary::ParamType::Bool: return VT_BOOL;
    case TypeLibrary::ParamType::Long: return VT_I4;
    case TypeLibrary::ParamType::Variant: return VT_VARIANT;
    case TypeLibrary::ParamType::Object: return VT_DISPATCH;
  }
  return VT_EMPTY;
}

namespace {

// The members that share one DISPID: a property's get and put, or one method.
struct MemberSet {
  const TypeLibrary::Member* get = nullptr;
  const TypeLibrary::Member* put = nullptr;
  const TypeLibrary::Member* method = nullptr;
  const Thunk* get_thunk = nullptr;
  const Thunk* put_thunk = nullptr;
  const Thunk* method_thunk = nullptr;
};

// Names are ASCII; anything else matches nothing.
bool lower_ascii(const OLECHAR* name, std::string& key) {
  key.clear();
  for (; *name; ++name) {
    if (*name <= 0 || *name > 0x7F) return false;
    char c = char(*name);
    key += c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c;
  }
  return true;
}

std::string lower_ascii(const char* name) {
  std::string key;
  for (; *name; ++name) key += *name >= 'A' && *name <= 'Z' ? char(*name - 'A' + 'a') : *name;
  return key;
}

class ClassIndex {
 public:
  ClassIndex(const TypeLibrary::Class& c, const ClassThunks& thunks) {
    DISPID highest = 0;
    for (size_t i = 0; i < c.member_count; ++i) highest = std::max(highest, c.members[i].dispid);
    by_dispid_.resize(size_t(highest) + 1);
    for (size_t i = 0; i < c.member_count && i < thunks.count; ++i) {
      const TypeLibrary::Member& m = c.members[i];
      MemberSet& set = by_dispid_[size_t(m.dispid)];
      switch (m.kind) {
        case TypeLibrary::MemberKind::PropGet:
          set.get = &m, set.get_thunk = &thunks.thunks[i];
          break;
        case TypeLibrary::MemberKind::PropPut:
          set.put = &m, set.put_thunk = &thunks.thunks[i];
          break;
        case TypeLibrary::MemberKind::Method:
          set.method = &m, set.method_thunk = &thunks.thunks[i];
          break;
      }
      // A property's put carries no parameter names: the get or method one is kept.
      auto [it, added] = by_name_.emplace(lower_ascii(m.name), &m);
      if (!added && m.kind != TypeLibrary::MemberKind::PropPut) it->second = &m;
    }
  }

  const MemberSet* find(DISPID id) const {
    if (id < 0 || size_t(id) >= by_dispid_.size()) return nullptr;
    const MemberSet& set = by_dispid_[size_t(id)];
    return set.get || set.put || set.method ? &set : nullptr;
  }

  const TypeLibrary::Member* find(const std::string& lower_name) const {
    auto it = by_name_.find(lower_name);
    return it == by_name_.end() ? nullptr : it->second;
  }

 private:
  std::vector<MemberSet> by_dispid_;
  std::unordered_map<std::string, const TypeLibrary::Member*> by_name_;
};

const ClassIndex* class_index(int k) {
  static const std::vector<std::unique_ptr<ClassIndex>> indexes = [] {
    std::vector<std::unique_ptr<ClassIndex>> all;
    size_t count = std::min(TypeLibrary::class_count(), class_thunks_count);
    for (size_t i = 0; i < count; ++i)
      all.push_back(std::make_unique<ClassIndex>(TypeLibrary::classes()[i], class_thunks[i]));
    return all;
  }();
  return k >= 0 && size_t(k) < indexes.size() ? indexes[size_t(k)].get() : nullptr;
}

size_t in_parameter_count(const TypeLibrary::Member& member) {
  size_t count = 0;
  for (size_t i = 0; i < member.param_count; ++i) count += member.params[i].retval ? 0 : 1;
  return count;
}

// Index of the [in] parameter called `lower_name`, or -1.
int parameter_index(const TypeLibrary::Member& member, const std::string& lower_name) {
  for (size_t i = 0; i < member.param_count; ++i) {
    const TypeLibrary::Param& p = member.params[i];
    if (!p.retval && p.name && lower_ascii(p.name) == lower_name) return int(i);
  }
  return -1;
}

// Fills EXCEPINFO with the member's failure code and the error information it left on the thread.
void fill_exception(EXCEPINFO* exception, HRESULT hr) {
  if (!exception) return;
  *exception = EXCEPINFO{};
  exception->scode = hr;
  IErrorInfo* error = nullptr;
  if (GetErrorInfo(0, &error) != S_OK || !error) return;
  error->GetSource(&exception->bstrSource);
  error->GetDescription(&exception->bstrDescription);
  error->GetHelpFile(&exception->bstrHelpFile);
  error->GetHelpContext(&exception->dwHelpContext);
  error->Release();
}

// The [in] arguments in declaration order: positional ones come last-first in rgvarg, named ones
// first, each named by its parameter index (or DISPID_PROPERTYPUT for a put's value).
HRESULT order_arguments(const TypeLibrary::Member& member, const DISPPARAMS& params,
                        std::vector<const VARIANT*>& values, std::vector<UINT>& positions) {
  size_t expected = in_parameter_count(member);
  if (params.cArgs != expected) return DISP_E_BADPARAMCOUNT;
  if (params.cNamedArgs > params.cArgs || (params.cArgs && !params.rgvarg) ||
      (params.cNamedArgs && !params.rgdispidNamedArgs))
    return E_INVALIDARG;
  bool is_put = member.kind == TypeLibrary::MemberKind::PropPut;
  if (is_put && (params.cNamedArgs != 1 || params.rgdispidNamedArgs[0] != DISPID_PROPERTYPUT))
    return DISP_E_PARAMNOTFOUND;

  values.assign(expected, nullptr);
  positions.assign(expected, 0);
  UINT positional = params.cArgs - params.cNamedArgs;
  for (UINT i = 0; i < positional; ++i) {
    positions[i] = params.cArgs - 1 - i;
    values[i] = &params.rgvarg[positions[i]];
  }
  for (UINT j = 0; j < params.cNamedArgs; ++j) {
    DISPID named = params.rgdispidNamedArgs[j];
    size_t index = is_put && named == DISPID_PROPERTYPUT ? expected - 1 : size_t(named);
    if (named < 0 && !(is_put && named == DISPID_PROPERTYPUT)) return DISP_E_PARAMNOTFOUND;
    if (index >= expected || values[index]) return DISP_E_PARAMNOTFOUND;
    values[index] = &params.rgvarg[j];
    positions[index] = j;
  }
  return S_OK;
}

const Thunk* choose(const MemberSet& set, WORD flags, const TypeLibrary::Member*& member) {
  if (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) {
    member = set.put;
    return set.put_thunk;
  }
  if ((flags & DISPATCH_METHOD) && set.method) {
    member = set.method;
    return set.method_thunk;
  }
  if ((flags & DISPATCH_PROPERTYGET) && set.get) {
    member = set.get;
    return set.get_thunk;
  }
  return nullptr;
}

}  // namespace

HRESULT GetTypeInfoCount(UINT* count) {
  if (!count) return E_POINTER;
  *count = 1;
  return S_OK;
}

HRESULT GetTypeInfo(int k, UINT index, LCID, ITypeInfo** info) {
  if (!info) return E_POINTER;
  *info = nullptr;
  if (index != 0) return DISP_E_BADINDEX;
  return create_type_info(k, info);
}

HRESULT GetIDsOfNames(int k, REFIID riid, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
  if (!IsEqualGUID(riid, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
  if (count == 0) return S_OK;
  if (!names || !ids) return E_POINTER;
  const ClassIndex* index = class_index(k);
  if (!index) return E_UNEXPECTED;

  for (UINT i = 0; i < count; ++i) ids[i] = DISPID_UNKNOWN;
  std::string key;
  const TypeLibrary::Member* member =
      names[0] && lower_ascii(names[0], key) ? index->find(key) : nullptr;
  if (!member) return DISP_E_UNKNOWNNAME;
  ids[0] = member->dispid;

  // Further names are the member's parameters, answered by position for named arguments.
  HRESULT hr = S_OK;
  for (UINT i = 1; i < count; ++i) {
    int position = names[i] && lower_ascii(names[i], key) ? parameter_index(*member, key) : -1;
    if (position < 0) {
      hr = DISP_E_UNKNOWNNAME;
    } else {
      ids[i] = position;
    }
  }
  return hr;
}

HRESULT Invoke(int k, IDispatch* self, DISPID id, REFIID riid, LCID, WORD flags,
               DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception, UINT* arg_error) {
  if (!IsEqualGUID(riid, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
  if (!params) return E_INVALIDARG;
  const ClassIndex* index = class_index(k);
  if (!index || !self) return E_UNEXPECTED;
  const MemberSet* set = index->find(id);
  if (!set) return DISP_E_MEMBERNOTFOUND;
  const TypeLibrary::Member* member = nullptr;
  const Thunk* thunk = choose(*set, flags, member);
  if (!thunk) return DISP_E_MEMBERNOTFOUND;

  std::vector<const VARIANT*> values;
  std::vector<UINT> positions;
  HRESULT hr = order_arguments(*member, *params, values, positions);
  if (FAILED(hr)) return hr;

  // A VT_BYREF argument is read through its reference, as script hosts pass variables.
  std::vector<VARIANT> dereferenced(values.size());
  for (size_t i = 0; i < values.size(); ++i) {
    VariantInit(&dereferenced[i]);
    if (!(values[i]->vt & VT_BYREF)) continue;
    hr = VariantCopyInd(&dereferenced[i], const_cast<VARIANT*>(values[i]));  // Windows' is not const
    if (FAILED(hr)) {
      if (arg_error) *arg_error = positions[i];
      break;
    }
    values[i] = &dereferenced[i];
  }

  if (SUCCEEDED(hr)) {
    if (result) VariantInit(result);
    // Error information left from an earlier call must not describe this one.
    SetErrorInfo(0, nullptr);
    bool member_called = false;
    hr = (*thunk)(self, *member, Arguments{values.data(), positions.data(), &member_called},
                  result, arg_error);
    // As type-library dispatch does: a failing member is an exception carrying its own code.
    if (FAILED(hr) && member_called) {
      fill_exception(exception, hr);
      hr = DISP_E_EXCEPTION;
    }
  }
  for (auto& value : dereferenced) VariantClear(&value);
  return hr;
}

}  // namespace Dispatch

}  // namespace Morvek::Tivalo
