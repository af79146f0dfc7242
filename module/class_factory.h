// The standard class factory, one shared creator for every entry of the class map.
#pragma once

#include "model/object.h"

namespace Morvek::Tivalo {

// Creates a class factory over `create` and asks it for `iid`. The factory is meant to be cached
// by the class map: while anyone besides that first holder references it, it holds a module
// lock, so a client's factory keeps the library loaded.
HRESULT create_class_factory(InstanceCreator create, REFIID iid, void** out);

}  // namespace Morvek::Tivalo
