// Lookups the catalogue tests share.
#pragma once

#include "module/catalogue.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace catalogue_testing {

using namespace Morvek::Tivalo::TypeLibrary;

// The class of an interface such as "IInvoice"; fails the test when there is none.
inline const Class& interface_named(std::string_view interface_name) {
  const Class* c = find_class_by_name(interface_name.substr(1));
  if (c == nullptr) ADD_FAILURE() << "no interface " << interface_name;
  static const Class none{};
  return c ? *c : none;
}

inline std::vector<const Member*> members_named(const Class& c, std::string_view name) {
  std::vector<const Member*> found;
  for (const Member* m = c.members; m != c.members + c.member_count; ++m)
    if (name == m->name) found.push_back(m);
  return found;
}

// The one member with this C++ method name, or null.
inline const Member* method(const Class& c, std::string_view cpp_name) {
  for (const Member* m = c.members; m != c.members + c.member_count; ++m)
    if (cpp_name == m->cpp_name) return m;
  return nullptr;
}

inline std::vector<std::string> param_names(const Member& m) {
  std::vector<std::string> names;
  for (int i = 0; i < m.param_count; ++i)
    names.push_back(m.params[i].name ? m.params[i].name : "(unnamed)");
  return names;
}

}  // namespace catalogue_testing
