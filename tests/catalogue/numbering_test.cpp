// Slots and DISPIDs of every interface: slots from 7 without gaps; DISPIDs from 1, a get and
// its put sharing one, Is<P>Set taking the next, a list's five members five consecutive ones.
#include "catalogue_testing.h"

#include <map>
#include <string>

using namespace catalogue_testing;

namespace {

bool starts_with(std::string_view s, std::string_view prefix) {
  return s.substr(0, prefix.size()) == prefix;
}

// Walks one interface family by family and reports the first break of the rule.
std::string numbering_fault(const Class& c) {
  const Member* m = c.members;
  const Member* end = c.members + c.member_count;
  DISPID next = 1;
  auto fault = [&](const char* what) {
    return std::string(c.interface_name) + "." + m->cpp_name + ": " + what;
  };
  while (m != end) {
    if (m->dispid != next) return fault("DISPID out of sequence");
    std::string_view name = m->name;
    if (m->kind == MemberKind::PropGet && m + 1 != end && m[1].kind == MemberKind::PropPut &&
        name == m[1].name) {
      // A property: get, put, and for an optional one Is<P>Set on the next DISPID.
      if (m[1].dispid != m->dispid) return fault("put does not share the get's DISPID");
      const std::string is_set = "Is" + std::string(name) + "Set";
      if (m + 2 != end && is_set == m[2].name) {
        if (m[2].dispid != next + 1) return fault("IsSet not on the next DISPID");
        if (m[2].params[0].type != ParamType::Bool) return fault("IsSet not a BOOL");
        m += 3, next += 2;
      } else {
        m += 2, next += 1;
      }
    } else if (m->kind == MemberKind::PropPut && m + 1 != end && name == m[1].name) {
      // Value and XML: the put stands first.
      if (name != "Value" && name != "XML") return fault("put before get");
      if (m[1].dispid != m->dispid) return fault("get does not share the put's DISPID");
      m += 2, next += 1;
    } else if (m->kind == MemberKind::Method && starts_with(name, "get") && m + 4 < end) {
      // A list: get, add, remove, clear, Count on five consecutive DISPIDs.
      const std::string element(name.substr(3));
      if (m[1].name != "add" + element || m[2].name != "remove" + element ||
          !starts_with(m[3].name, "clear") || m[4].name != element + "Count" ||
          m[4].kind != MemberKind::PropGet)
        return fault("list members out of order");
      for (int i = 1; i < 5; ++i)
        if (m[i].dispid != next + i) return fault("list DISPIDs not consecutive");
      m += 5, next += 5;
    } else if (c.kind == ClassKind::Document && name == "Write") {
      // The ten operations close the interface; their numbering is pinned elsewhere.
      return end - m == 10 ? "" : fault("operations not last");
    } else {
      return fault("member outside every family");
    }
  }
  return "";
}

}  // namespace

TEST(CatalogueNumbering, EveryInterfaceFollowsTheFamilyRule) {
  for (size_t k = 0; k < class_count(); ++k)
    EXPECT_EQ(numbering_fault(classes()[k]), "");
}

// Each member: its slot, a DISPID above 0 that only one name uses and once per kind, a C++ name
// from its kind, and at most one result, always last.
TEST(CatalogueNumbering, EveryMemberHasItsSlotDispidAndCppName) {
  for (size_t k = 0; k < class_count(); ++k) {
    const Class& c = classes()[k];
    std::map<DISPID, std::string> owner;
    std::map<std::pair<DISPID, MemberKind>, int> uses;
    for (int i = 0; i < c.member_count; ++i) {
      const Member& m = c.members[i];
      const std::string where = std::string(c.interface_name) + "." + m.cpp_name;
      ASSERT_EQ(m.slot, 7 + i) << where;
      EXPECT_GT(m.dispid, 0) << where;
      EXPECT_EQ(owner.emplace(m.dispid, m.name).first->second, m.name) << where << ": DISPID shared";
      EXPECT_EQ(++uses[std::make_pair(m.dispid, m.kind)], 1) << where;
      const std::string expected = m.kind == MemberKind::PropGet   ? "get_" + std::string(m.name)
                                   : m.kind == MemberKind::PropPut ? "put_" + std::string(m.name)
                                                                   : std::string(m.name);
      EXPECT_EQ(expected, m.cpp_name) << c.interface_name;
      for (int p = 0; p + 1 < m.param_count; ++p) EXPECT_FALSE(m.params[p].retval) << where;
      EXPECT_EQ(m.kind == MemberKind::PropGet, m.param_count == 1 && m.params[0].retval) << where;
    }
  }
}
