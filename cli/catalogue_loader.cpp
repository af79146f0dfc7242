// The catalogue's functions the tool uses, forwarded to the component library, which the tool
// loads on first use like the rest of the component (see platform/component_loader.cpp).
#include "module/catalogue.h"
#include "platform/runtime_table.h"

namespace Morvek::Tivalo::TypeLibrary {
namespace {

const CatalogueTable& catalogue() {
  static const auto* table = tivalo::component_table<CatalogueTable>("TivaloCatalogue");
  return *table;
}

}  // namespace

const Class* classes() { return catalogue().classes(); }
size_t class_count() { return catalogue().class_count(); }
const Class* find_class_by_name(std::string_view name) {
  return catalogue().find_class_by_name(name);
}
const char* idl_text() { return catalogue().idl_text(); }

}  // namespace Morvek::Tivalo::TypeLibrary
