#include "binding/errors.h"

#include <sstream>

namespace Morvek::UBL2 {
namespace {

std::wstring qualified_name(const std::wstring& ns, const std::wstring& name) {
  return ns.empty() ? name : ns + L"#" + name;
}

}  // namespace

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
