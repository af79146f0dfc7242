// The registry as registration sees it: keys named by full paths ("HKCR\CLSID\{...}"), each with
// a default value, named string values and sub-keys. Key and value names compare without regard
// to case. On Linux the store lives in memory, one per process; on Windows it is the system
// registry.
#pragma once

#include "platform/automation.h"

#include <optional>
#include <string>
#include <vector>

namespace Morvek::Tivalo::Registry {

class Store {
 public:
  virtual ~Store() = default;

  // Creates the key and any missing parents; an existing key is kept as it is.
  virtual HRESULT create_key(const std::wstring& path) = 0;
  virtual bool key_exists(const std::wstring& path) const = 0;
  // An empty name is the key's default value. The key must exist.
  virtual HRESULT set_value(const std::wstring& path, const std::wstring& name,
                            const std::wstring& value) = 0;
  virtual std::optional<std::wstring> value(const std::wstring& path,
                                            const std::wstring& name = L"") const = 0;
  virtual HRESULT delete_value(const std::wstring& path, const std::wstring& name) = 0;
  // Deletes a key that has no sub-keys; one with sub-keys is refused.
  virtual HRESULT delete_key(const std::wstring& path) = 0;
  // Deletes a key with everything below it.
  virtual HRESULT delete_tree(const std::wstring& path) = 0;
  virtual std::vector<std::wstring> subkeys(const std::wstring& path) const = 0;
  // Names of the named values (the default value is not listed).
  virtual std::vector<std::wstring> value_names(const std::wstring& path) const = 0;
};

// The system's registry on Windows; the in-memory store elsewhere.
Store& system_registry();

// The process-wide registry that registration writes to: the system's unless another was
// installed.
Store& registry();

// Installs `store` as the process-wide registry (nullptr goes back to the system one) and
// returns the one it replaces. A host puts the system registry here; tests, a failing one.
Store* use_registry(Store* store);

// The in-memory store, whichever registry is installed.
Store& memory_registry();

// Joins a parent path and a child name with a backslash.
std::wstring join(const std::wstring& parent, const std::wstring& child);

}  // namespace Morvek::Tivalo::Registry
