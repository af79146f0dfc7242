// The in-memory registry: a tree of keys under named roots, guarded by one lock since
// registration may run on any thread.
#include "module/registry.h"

#include <atomic>
#include <cwctype>
#include <map>
#include <memory>
#include <mutex>

namespace Morvek::Tivalo::Registry {

namespace {

struct CaseInsensitiveLess {
  bool operator()(const std::wstring& a, const std::wstring& b) const {
    size_t n = std::min(a.size(), b.size());
    for (size_t i = 0; i < n; ++i) {
      wint_t x = std::towlower(a[i]), y = std::towlower(b[i]);
      if (x != y) return x < y;
    }
    return a.size() < b.size();
  }
};

struct Key {
  std::optional<std::wstring> default_value;
  std::map<std::wstring, std::wstring, CaseInsensitiveLess> values;
  std::map<std::wstring, std::unique_ptr<Key>, CaseInsensitiveLess> children;
};

std::vector<std::wstring> split(const std::wstring& path) {
  std::vector<std::wstring> parts;
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find(L'\\', start);
    if (end == std::wstring::npos) end = path.size();
    if (end > start) parts.push_back(path.substr(start, end - start));
    start = end + 1;
  }
  return parts;
}

class MemoryStore final : public Store {
 public:
  HRESULT create_key(const std::wstring& path) override {
    std::lock_guard<std::mutex> hold(lock_);
    auto parts = split(path);
    if (parts.empty()) return E_INVALIDARG;
    Key* key = &root_;
    for (const auto& part : parts) {
      auto& child = key->children[part];
      if (!child) child = std::make_unique<Key>();
      key = child.get();
    }
    return S_OK;
  }

  bool key_exists(const std::wstring& path) const override {
    std::lock_guard<std::mutex> hold(lock_);
    return find(path) != nullptr;
  }

  HRESULT set_value(const std::wstring& path, const std::wstring& name,
                    const std::wstring& value) override {
    std::lock_guard<std::mutex> hold(lock_);
    Key* key = find(path);
    if (!key) return E_FAIL;
    if (name.empty()) {
      key->default_value = value;
    } else {
      key->values[name] = value;
    }
    return S_OK;
  }

  std::optional<std::wstring> value(const std::wstring& path,
                                    const std::wstring& name) const override {
    std::lock_guard<std::mutex> hold(lock_);
    const Key* key = find(path);
    if (!key) return std::nullopt;
    if (name.empty()) return key->default_value;
    auto it = key->values.find(name);
    if (it == key->values.end()) return std::nullopt;
    return it->second;
  }

  HRESULT delete_value(const std::wstring& path, const std::wstring& name) override {
    std::lock_guard<std::mutex> hold(lock_);
    Key* key = find(path);
    if (!key) return E_FAIL;
    if (name.empty()) {
      key->default_value.reset();
    } else {
      key->values.erase(name);
    }
    return S_OK;
  }

  HRESULT delete_key(const std::wstring& path) override { return erase(path, false); }
  HRESULT delete_tree(const std::wstring& path) override { return erase(path, true); }

  std::vector<std::wstring> subkeys(const std::wstring& path) const override {
    std::lock_guard<std::mutex> hold(lock_);
    std::vector<std::wstring> names;
    if (const Key* key = find(path)) {
      for (const auto& child : key->children) names.push_back(child.first);
    }
    return names;
  }

  std::vector<std::wstring> value_names(const std::wstring& path) const override {
    std::lock_guard<std::mutex> hold(lock_);
    std::vector<std::wstring> names;
    if (const Key* key = find(path)) {
      for (const auto& value : key->values) names.push_back(value.first);
    }
    return names;
  }

 private:
  Key* find(const std::wstring& path) const {
    auto parts = split(path);
    if (parts.empty()) return nullptr;
    const Key* key = &root_;
    for (const auto& part : parts) {
      auto it = key->children.find(part);
      if (it == key->children.end()) return nullptr;
      key = it->second.get();
    }
    return const_cast<Key*>(key);
  }

  HRESULT erase(const std::wstring& path, bool with_subtree) {
    std::lock_guard<std::mutex> hold(lock_);
    auto parts = split(path);
    if (parts.size() < 2) return E_INVALIDARG;  // a root stays
    std::wstring leaf = parts.back();
    parts.pop_back();
    Key* parent = &root_;
    for (const auto& part : parts) {
      auto it = parent->children.find(part);
      if (it == parent->children.end()) return E_FAIL;
      parent = it->second.get();
    }
    auto it = parent->children.find(leaf);
    if (it == parent->children.end()) return E_FAIL;
    if (!with_subtree && !it->second->children.empty()) return E_ACCESSDENIED;
    parent->children.erase(it);
    return S_OK;
  }

  mutable std::mutex lock_;
  Key root_;
};

}  // namespace

Store& memory_registry() {
  static MemoryStore store;
  return store;
}

namespace {
std::atomic<Store*> installed{nullptr};
}  // namespace

#ifndef _WIN32
Store& system_registry() { return memory_registry(); }
#endif

Store& registry() {
  Store* store = installed.load();
  return store ? *store : system_registry();
}

Store* use_registry(Store* store) {
  Store* previous = installed.exchange(store);
  return previous ? previous : &system_registry();
}

std::wstring join(const std::wstring& parent, const std::wstring& child) {
  if (parent.empty()) return child;
  if (child.empty()) return parent;
  return parent + L'\\' + child;
}

}  // namespace Morvek::Tivalo::Registry
