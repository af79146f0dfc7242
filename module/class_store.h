// Where the runtime (carried by the UBL 2.0 library on Linux) finds the classes of the component's
// other libraries (the UBL 2.1 library): each adds its class store when it loads, as registering an
// in-process server tells the system's runtime where its classes are. A library that is not loaded
// yet is loaded from beside the runtime's when one of its ProgIDs or classes is asked for.
#pragma once

#include "platform/automation.h"

namespace tivalo {

struct ClassStore {
  HRESULT (*get_class_object)(REFCLSID clsid, REFIID iid, void** out);  // its DllGetClassObject
  // CO_E_CLASSSTRING for a ProgID of another library.
  HRESULT (*clsid_from_progid)(LPCOLESTR progid, LPCLSID clsid);
  // REGDB_E_CLASSNOTREG for a class of another library.
  HRESULT (*progid_from_clsid)(REFCLSID clsid, LPOLESTR* progid);
};

void add_class_store(const ClassStore* store);
void remove_class_store(const ClassStore* store);

}  // namespace tivalo

namespace Morvek::Tivalo {

// This library's own answers, which its class store hands out.
HRESULT own_clsid_from_progid(LPCOLESTR progid, LPCLSID clsid);
HRESULT own_progid_from_clsid(REFCLSID clsid, LPOLESTR* progid);

}  // namespace Morvek::Tivalo
