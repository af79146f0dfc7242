#include "binding/errors.h"

#include <sstream>

#include <xsd/cxx/tree/type-serializer-map.hxx>

namespace Morvek::UBL2 {
namespace {

std::wstring qualified_name(const std::wstring& ns, const std::wstring& name) {
  return ns.empty() ? name : ns + L"#" + name;
}

// A type's schema name from the runtime's registry of types; every generated type is in it.
xsd::cxx::xml::qualified_name<wchar_t> schema_name(const std::type_info& type) {
  const auto* registered = xsd::cxx::tree::type_serializer_map_instance<0, wchar_t>().find(type);
  if (registered) return registered->name();
  const char* cpp_name = type.name();
  return {std::wstring(cpp_name, cpp_name + std::char_traits<char>::length(cpp_name)), L""};
}

}  // namespace

xml_schema::not_derived not_derived_types(const std::type_info& expected, const std::type_info& found) {
  const auto base = schema_name(expected), derived = schema_name(found);
  return {base.name(), base.namespace_(), derived.name(), derived.namespace_()};
}

std::wstring error_text(const xml_schema::exception& e) {
  if (auto* unexpected = dynamic_cast<const xml_schema::unexpected_element*>(&e);
      unexpected && !unexpected->expected_name().empty()) {
    return L"unexpected element '" +
           qualified_name(unexpected->encountered_namespace(), unexpected->encountered_name()) +
           L"' instead of '" +
           qualified_name(unexpected->expected_namespace(), unexpected->expected_name()) + L"'";
  }
  std::wostringstream os;
  os << e;
  return os.str();
}

}  // namespace Morvek::UBL2
