// The catalogue's functions the tool uses, forwarded to the component library, which the tool
// loads on first use like the rest of the component (see platform/component_loader.cpp).
#include "module/catalogue.h"
#include "platform/runtime_table.h"

#include <string>

namespace Morvek::Tivalo::TypeLibrary {
namespace {

const CatalogueTable* selected = nullptr;

const CatalogueTable& catalogue() {
  if (!selected) selected = tivalo::component_table<CatalogueTable>("TivaloCatalogue");
  return *selected;
}

}  // namespace

// The UBL 2.1 library's catalogue instead of 2.0's, for `--ubl 2.1`.
void use_ubl21_catalogue() {
  using Entry = const CatalogueTable* (*)();
  selected = reinterpret_cast<Entry>(
      tivalo::other_component_symbol("libTivaloCOM21.so.1", "TivaloCatalogue"))();
}

const Class* classes() { return catalogue().classes(); }
size_t class_count() { return catalogue().class_count(); }
const Class* find_class_by_name(std::string_view name) {
  return catalogue().find_class_by_name(name);
}
const char* idl_text() { return catalogue().idl_text(); }

}  // namespace Morvek::Tivalo::TypeLibrary
