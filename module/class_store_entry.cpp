// The UBL 2.1 library's place in the runtime that the UBL 2.0 library carries on Linux: while it
// is loaded, that runtime finds its classes here. On Windows the system's runtime finds them
// through the registry instead.
#include "module/class_store.h"
#include "module/entry_points.h"

namespace {

const tivalo::ClassStore store = {&DllGetClassObject, &Morvek::Tivalo::own_clsid_from_progid,
                                  &Morvek::Tivalo::own_progid_from_clsid};

struct StoreAdded {
  StoreAdded() { tivalo::add_class_store(&store); }
  ~StoreAdded() { tivalo::remove_class_store(&store); }
} added;

}  // namespace
