// The module object: lock count, class map, class factories, termination callbacks and the
// per-user switch of registration. One instance per loaded library.
#pragma once

#include "model/object.h"
#include "module/catalogue.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

namespace Morvek::Tivalo {

struct ClassMapEntry;

// Creates the class object of an entry (the standard class factory over its instance creator).
using ClassObjectCreator = HRESULT (*)(InstanceCreator create, REFIID iid, void** out);
// Runs the entry's registry script to register (true) or unregister (false).
using RegistryUpdater = HRESULT (*)(const ClassMapEntry& entry, bool do_register);

struct ClassMapEntry {
  const CLSID* clsid;
  const TypeLibrary::Class* info;  // names and resource number: k
  RegistryUpdater update_registry;
  ClassObjectCreator create_class_object;
  InstanceCreator create_instance;
  IUnknown* class_factory;              // created on first request, kept until unload
  const wchar_t* (*description)();      // no description text
  const void* (*category_map)();        // no component categories
  void (*object_main)(bool starting);   // called with false at unload; does nothing

  // Resource number of the class's registry script.
  int registry_resource() const;
};

// A function and its one argument, run at unload.
using TerminationCallback = void (*)(std::uintptr_t argument);

class CTivaloModule {
 public:
  CTivaloModule();
  ~CTivaloModule();
  CTivaloModule(const CTivaloModule&) = delete;
  CTivaloModule& operator=(const CTivaloModule&) = delete;

  // False before construction and after destruction: the entry points then answer E_UNEXPECTED.
  bool initialised() const { return initialised_; }

  LONG Lock() { return ++lock_count_; }
  LONG Unlock() { return --lock_count_; }
  LONG GetLockCount() const { return lock_count_; }

  HRESULT GetClassObject(REFCLSID clsid, REFIID iid, void** out);
  HRESULT RegisterServer();
  HRESULT UnregisterServer();
  HRESULT Install(BOOL install, LPCWSTR command_line);

  HRESULT AddTermFunc(TerminationCallback callback, std::uintptr_t argument);

  // While set, the scripts' "HKCR" goes to "HKCU\Software\Classes" and the type library is
  // registered for the current user.
  bool per_user() const { return per_user_; }

  const ClassMapEntry* find(REFCLSID clsid) const;
  const std::vector<ClassMapEntry>& class_map() const { return class_map_; }

 private:
  std::atomic<LONG> lock_count_{0};
  bool initialised_ = false;
  bool per_user_ = false;
  std::mutex factory_creation_;
  std::vector<ClassMapEntry> class_map_;
  // The entries that can hand out class objects, sorted by CLSID: lookup is a binary search.
  std::vector<std::pair<GUID, const ClassMapEntry*>> by_clsid_;
  std::vector<std::pair<TerminationCallback, std::uintptr_t>> termination_callbacks_;
};

// The module object of this library.
CTivaloModule& module();

// The library's full path, as the registrar offers it as %MODULE%.
std::wstring module_path();

}  // namespace Morvek::Tivalo
