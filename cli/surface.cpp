#include "cli/surface.h"

#include <cstring>

namespace tivalo::cli {
namespace {

using TypeLibrary::Member;
using TypeLibrary::MemberKind;

const Member* find_member(const TypeLibrary::Class& c, MemberKind kind, const std::string& name) {
  for (const Member* m = c.members; m != c.members + c.member_count; ++m) {
    if (m->kind == kind && name == m->name) return m;
  }
  return nullptr;
}

bool is_set_partner(const TypeLibrary::Class& c, const std::string& name) {
  const std::string prefix = "Is", suffix = "Set";
  if (name.size() <= prefix.size() + suffix.size() || name.compare(0, 2, prefix) != 0 ||
      name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
    return false;
  const std::string property = name.substr(2, name.size() - 5);
  return find_member(c, MemberKind::PropGet, property) != nullptr;
}

// get<E> when `name` is the <E>Count of a list.
const Member* list_item_of(const TypeLibrary::Class& c, const std::string& name) {
  const std::string suffix = "Count";
  if (name.size() <= suffix.size() || name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
    return nullptr;
  return find_member(c, MemberKind::Method, "get" + name.substr(0, name.size() - suffix.size()));
}

}  // namespace

std::string Property::name() const {
  return list_item ? std::string(list_item->name + 3) : std::string(get->name);
}

std::vector<Property> readable_properties(const TypeLibrary::Class& c) {
  std::vector<Property> properties;
  for (const Member* m = c.members; m != c.members + c.member_count; ++m) {
    if (m->kind != MemberKind::PropGet || is_set_partner(c, m->name)) continue;
    if (c.kind == TypeLibrary::ClassKind::Document && std::strcmp(m->name, "XML") == 0) continue;
    if (const Member* item = list_item_of(c, m->name)) {
      properties.push_back({m, nullptr, item});
    } else {
      properties.push_back({m, find_member(c, MemberKind::PropGet, std::string("Is") + m->name + "Set"), nullptr});
    }
  }
  return properties;
}

const TypeLibrary::Class* result_class(const TypeLibrary::Member& member) {
  for (const TypeLibrary::Param* p = member.params; p != member.params + member.param_count; ++p) {
    if (p->retval && p->type == TypeLibrary::ParamType::Object && p->object_class >= 0)
      return &TypeLibrary::classes()[p->object_class];
  }
  return nullptr;
}

std::string type_name(const TypeLibrary::Param& param) {
  std::string name;
  switch (param.type) {
    case TypeLibrary::ParamType::Bstr: name = "BSTR"; break;
    case TypeLibrary::ParamType::Date: name = "DATE"; break;
    case TypeLibrary::ParamType::Double: name = "double"; break;
    case TypeLibrary::ParamType::Bool: name = "VARIANT_BOOL"; break;
    case TypeLibrary::ParamType::Long: name = "long"; break;
    case TypeLibrary::ParamType::Variant: name = "VARIANT"; break;
    case TypeLibrary::ParamType::Object:
      name = param.object_class >= 0 ? TypeLibrary::classes()[param.object_class].interface_name : "IDispatch";
      name += '*';
      break;
  }
  return param.retval ? name + '*' : name;
}

const char* kind_name(TypeLibrary::MemberKind kind) {
  switch (kind) {
    case MemberKind::PropGet: return "propget";
    case MemberKind::PropPut: return "propput";
    case MemberKind::Method: return "method";
  }
  return "";
}

const char* kind_name(TypeLibrary::ClassKind kind) {
  switch (kind) {
    case TypeLibrary::ClassKind::DataType: return "data type";
    case TypeLibrary::ClassKind::Aggregate: return "aggregate";
    case TypeLibrary::ClassKind::Document: return "document";
  }
  return "";
}

}  // namespace tivalo::cli
