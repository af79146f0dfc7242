#include "platform/runtime_table.h"

extern "C" const TivaloRuntimeTable* TivaloRuntime() {
#define TIVALO_RUNTIME_TABLE_ENTRY(name) &::name,
  static const TivaloRuntimeTable table{TIVALO_RUNTIME_FUNCTIONS(TIVALO_RUNTIME_TABLE_ENTRY)};
#undef TIVALO_RUNTIME_TABLE_ENTRY
  return &table;
}
