// The tables a host reads when it loads the library on first use instead of linking it.
#include "module/catalogue.h"
#include "platform/runtime_table.h"

extern "C" const TivaloRuntimeTable* TivaloRuntime() {
#define TIVALO_RUNTIME_TABLE_ENTRY(name) &::name,
  static const TivaloRuntimeTable table{TIVALO_RUNTIME_FUNCTIONS(TIVALO_RUNTIME_TABLE_ENTRY)};
#undef TIVALO_RUNTIME_TABLE_ENTRY
  return &table;
}

extern "C" const Morvek::Tivalo::TypeLibrary::CatalogueTable* TivaloCatalogue() {
  namespace catalogue = Morvek::Tivalo::TypeLibrary;
  static const catalogue::CatalogueTable table{&catalogue::classes, &catalogue::class_count,
                                               &catalogue::find_class_by_name,
                                               &catalogue::idl_text};
  return &table;
}
