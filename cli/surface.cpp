#include "cli/surface.h"

#include <cstring>

namespace tivalo::cli {
namespace {

using Catalogue::Member;
using Catalogue::MemberKind;

const Member* find_member(const Catalogue::Class& c, MemberKind kind, const std::string& name) {
  for (const Member* m = c.members; m != c.members + c.member_count; ++m) {
    if (m->kind == kind && name == m->name) return m;
  }
  return nullptr;
}

bool is_set_partner(const Catalogue::Class& c, const std::string& name) {
  const std::string prefix = "Is", suffix = "Set";
  if (name.size() <= prefix.size() + suffix.size() || name.compare(0, 2, prefix) != 0 ||
      name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
    return false;
  const std::string property = name.substr(2, name.size() - 5);
  return find_member(c, MemberKind::PropGet, property) != nullptr;
}

// get<E> when `name` is the <E>Count of a list.
const Member* list_item_of(const Catalogue::Class& c, const std::string& name) {
  const std::string suffix = "Count";
  if (name.size() <= suffix.size() || name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
    return nullptr;
  return find_member(c, MemberKind::Method, "get" + name.substr(0, name.size() - suffix.size()));
}

}  // namespace

std::string Property::name() const {
  return list_item ? std::string(list_item->name + 3) : std::string(get->name);
}

std::vector<Property> readable_properties(const Catalogue::Class& c) {
  std::vector<Property> properties;
  for (const Member* m = c.members; m != c.members + c.member_count; ++m) {
    if (m->kind != MemberKind::PropGet || is_set_partner(c, m->name)) continue;
    if (c.kind == Catalogue::ClassKind::Document && std::strcmp(m->name, "XML") == 0) continue;
    if (const Member* item = list_item_of(c, m->name)) {
      properties.push_back({m, nullptr, item});
    } else {
      properties.push_back({m, find_member(c, MemberKind::PropGet, std::string("Is") + m->name + "Set"), nullptr});
    }
  }
  return properties;
}

const Catalogue::Class* result_class(const Catalogue::Member& member) {
  for (const Catalogue::Param* p = member.params; p != member.params + member.param_count; ++p) {
    if (p->retval && p->type == Catalogue::ParamType::Object && p->object_class >= 0)
      return &Catalogue::classes()[p->object_class];
  }
  return nullptr;
}

std::string type_name(const Catalogue::Param& param) {
  std::string name;
  switch (param.type) {
    case Catalogue::ParamType::Bstr: name = "BSTR"; break;
    case Catalogue::ParamType::Date: name = "DATE"; break;
    case Catalogue::ParamType::Double: name = "double"; break;
    case Catalogue::ParamType::Bool: name = "VARIANT_BOOL"; break;
    case Catalogue::ParamType::Long: name = "long"; break;
    case Catalogue::ParamType::Variant: name = "VARIANT"; break;
    case Catalogue::ParamType::Object:
      name = param.object_class >= 0 ? Catalogue::classes()[param.object_class].interface_name : "IDispatch";
      name += '*';
      break;
  }
  return param.retval ? name + '*' : name;
}

const char* kind_name(Catalogue::MemberKind kind) {
  switch (kind) {
    case MemberKind::PropGet: return "propget";
    case MemberKind::PropPut: return "propput";
    case MemberKind::Method: return "method";
  }
  return "";
}

const char* kind_name(Catalogue::ClassKind kind) {
  switch (kind) {
    case Catalogue::ClassKind::DataType: return "data type";
    case Catalogue::ClassKind::Aggregate: return "aggregate";
    case Catalogue::ClassKind::Document: return "document";
  }
  return "";
}

}  // namespace tivalo::cli
