// The system registry behind registration on Windows: paths "HKCR\...", "HKCU\..." and so on
// map onto the predefined keys.
#include "module/registry.h"

#include <memory>

namespace Morvek::Tivalo::Registry {

namespace {

struct Root {
  const wchar_t* name;
  HKEY key;
};
const Root roots[] = {{L"HKCR", HKEY_CLASSES_ROOT},   {L"HKCU", HKEY_CURRENT_USER},
                      {L"HKLM", HKEY_LOCAL_MACHINE},  {L"HKU", HKEY_USERS},
                      {L"HKCC", HKEY_CURRENT_CONFIG}};

// The predefined key and the rest of the path; null for an unknown root.
HKEY split_root(const std::wstring& path, std::wstring& rest) {
  const size_t slash = path.find(L'\\');
  const std::wstring first = path.substr(0, slash);
  rest = slash == std::wstring::npos ? std::wstring() : path.substr(slash + 1);
  for (const Root& root : roots) {
    if (_wcsicmp(first.c_str(), root.name) == 0) return root.key;
  }
  return nullptr;
}

HRESULT status_of(LONG error) { return error == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(error); }

// An open key that closes itself.
class OpenKey {
 public:
  OpenKey(const std::wstring& path, REGSAM access) {
    std::wstring rest;
    HKEY root = split_root(path, rest);
    error_ = root ? RegOpenKeyExW(root, rest.c_str(), 0, access, &key_) : ERROR_INVALID_PARAMETER;
    if (error_ != ERROR_SUCCESS) key_ = nullptr;
  }
  ~OpenKey() {
    if (key_) RegCloseKey(key_);
  }
  OpenKey(const OpenKey&) = delete;
  OpenKey& operator=(const OpenKey&) = delete;

  HKEY get() const { return key_; }
  LONG error() const { return error_; }

 private:
  HKEY key_ = nullptr;
  LONG error_ = ERROR_SUCCESS;
};

class SystemStore final : public Store {
 public:
  HRESULT create_key(const std::wstring& path) override {
    std::wstring rest;
    HKEY root = split_root(path, rest);
    if (!root) return E_INVALIDARG;
    if (rest.empty()) return S_OK;
    HKEY key = nullptr;
    LONG error = RegCreateKeyExW(root, rest.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                 KEY_READ | KEY_WRITE, nullptr, &key, nullptr);
    if (key) RegCloseKey(key);
    return status_of(error);
  }

  bool key_exists(const std::wstring& path) const override {
    return OpenKey(path, KEY_READ).get() != nullptr;
  }

  HRESULT set_value(const std::wstring& path, const std::wstring& name,
                    const std::wstring& value) override {
    OpenKey key(path, KEY_SET_VALUE);
    if (!key.get()) return status_of(key.error());
    return status_of(RegSetValueExW(key.get(), name.empty() ? nullptr : name.c_str(), 0, REG_SZ,
                                    reinterpret_cast<const BYTE*>(value.c_str()),
                                    DWORD((value.size() + 1) * sizeof(wchar_t))));
  }

  std::optional<std::wstring> value(const std::wstring& path,
                                    const std::wstring& name) const override {
    OpenKey key(path, KEY_QUERY_VALUE);
    if (!key.get()) return std::nullopt;
    const wchar_t* value_name = name.empty() ? nullptr : name.c_str();
    DWORD type = 0, size = 0;
    if (RegQueryValueExW(key.get(), value_name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS ||
        (type != REG_SZ && type != REG_EXPAND_SZ))
      return std::nullopt;
    std::wstring text(size / sizeof(wchar_t) + 1, L'\0');
    if (RegQueryValueExW(key.get(), value_name, nullptr, &type,
                         reinterpret_cast<BYTE*>(&text[0]), &size) != ERROR_SUCCESS)
      return std::nullopt;
    text.resize(wcsnlen(text.c_str(), size / sizeof(wchar_t)));
    return text;
  }

  HRESULT delete_value(const std::wstring& path, const std::wstring& name) override {
    OpenKey key(path, KEY_SET_VALUE);
    if (!key.get()) return status_of(key.error());
    return status_of(RegDeleteValueW(key.get(), name.empty() ? nullptr : name.c_str()));
  }

  HRESULT delete_key(const std::wstring& path) override {
    if (!subkeys(path).empty()) return HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
    std::wstring rest;
    HKEY root = split_root(path, rest);
    if (!root || rest.empty()) return E_INVALIDARG;
    return status_of(RegDeleteKeyW(root, rest.c_str()));
  }

  HRESULT delete_tree(const std::wstring& path) override {
    std::wstring rest;
    HKEY root = split_root(path, rest);
    if (!root || rest.empty()) return E_INVALIDARG;
    // Removes the key itself too; one already gone is no failure.
    LONG error = RegDeleteTreeW(root, rest.c_str());
    return error == ERROR_FILE_NOT_FOUND ? S_OK : status_of(error);
  }

  std::vector<std::wstring> subkeys(const std::wstring& path) const override {
    std::vector<std::wstring> names;
    OpenKey key(path, KEY_READ);
    if (!key.get()) return names;
    wchar_t name[256];
    for (DWORD i = 0;; ++i) {
      DWORD length = 256;
      if (RegEnumKeyExW(key.get(), i, name, &length, nullptr, nullptr, nullptr, nullptr) !=
          ERROR_SUCCESS)
        break;
      names.emplace_back(name, length);
    }
    return names;
  }

  std::vector<std::wstring> value_names(const std::wstring& path) const override {
    std::vector<std::wstring> names;
    OpenKey key(path, KEY_READ);
    if (!key.get()) return names;
    wchar_t name[16384];
    for (DWORD i = 0;; ++i) {
      DWORD length = 16384;
      if (RegEnumValueW(key.get(), i, name, &length, nullptr, nullptr, nullptr, nullptr) !=
          ERROR_SUCCESS)
        break;
      if (length) names.emplace_back(name, length);
    }
    return names;
  }
};

}  // namespace

Store& system_registry() {
  static SystemStore store;
  return store;
}

}  // namespace Morvek::Tivalo::Registry
