// The registrar: replaces the variables of a script, parses it into a tree of keys and walks the
// tree against the registry.
#include "module/registrar.h"

#include "module/registry.h"

#include <cwctype>
#include <memory>
#include <optional>

namespace Morvek::Tivalo::Registrar {

namespace {

// Scripts that do not parse, name an unknown variable or root, or use a value type the
// registry does not hold.
constexpr HRESULT bad_script = E_FAIL;

bool same_text(const std::wstring& a, const std::wstring& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::towlower(a[i]) != std::towlower(b[i])) return false;
  }
  return true;
}

std::optional<std::wstring> replace_variables(const std::wstring& script,
                                              const Replacements& replacements) {
  std::wstring out;
  out.reserve(script.size());
  for (size_t i = 0; i < script.size(); ++i) {
    if (script[i] != L'%') {
      out += script[i];
      continue;
    }
    size_t end = script.find(L'%', i + 1);
    if (end == std::wstring::npos) return std::nullopt;
    std::wstring name = script.substr(i + 1, end - i - 1);
    if (name.empty()) {
      out += L'%';
    } else {
      const std::wstring* value = nullptr;
      for (const auto& replacement : replacements) {
        if (same_text(replacement.first, name)) value = &replacement.second;
      }
      if (!value) return std::nullopt;
      out += *value;
    }
    i = end;
  }
  return out;
}

struct Token {
  std::wstring text;
  bool quoted = false;
  bool is(const wchar_t* word) const { return !quoted && same_text(text, word); }
};

// Tokens are separated by white space; a quoted token may hold any text.
std::optional<std::vector<Token>> tokenize(const std::wstring& text) {
  std::vector<Token> tokens;
  size_t i = 0;
  while (i < text.size()) {
    if (std::iswspace(text[i])) {
      ++i;
      continue;
    }
    Token token;
    if (text[i] == L'\'') {
      token.quoted = true;
      for (++i;; ++i) {
        if (i >= text.size()) return std::nullopt;
        if (text[i] == L'\'') {
          if (i + 1 < text.size() && text[i + 1] == L'\'') {
            token.text += L'\'';
            ++i;
            continue;
          }
          ++i;
          break;
        }
        token.text += text[i];
      }
    } else {
      while (i < text.size() && !std::iswspace(text[i])) token.text += text[i++];
    }
    tokens.push_back(std::move(token));
  }
  return tokens;
}

enum class KeyFlag { None, NoRemove, ForceRemove, Delete };

struct KeyNode {
  KeyFlag flag = KeyFlag::None;
  std::wstring name;
  std::optional<std::wstring> default_value;
  std::vector<std::pair<std::wstring, std::wstring>> values;
  std::vector<KeyNode> children;
};

struct RootNode {
  std::wstring path;
  std::vector<KeyNode> keys;
};

class Parser {
 public:
  explicit Parser(std::vector<Token> tokens) : tokens_(std::move(tokens)) {}

  std::optional<std::vector<RootNode>> roots(bool per_user) {
    std::vector<RootNode> roots;
    while (!at_end()) {
      auto path = root_path(next().text, per_user);
      if (!path || !expect(L"{")) return std::nullopt;
      RootNode root{*path, {}};
      while (!peek_is(L"}")) {
        KeyNode key;
        if (at_end() || !parse_key(key)) return std::nullopt;
        root.keys.push_back(std::move(key));
      }
      next();
      roots.push_back(std::move(root));
    }
    return roots;
  }

 private:
  static std::optional<std::wstring> root_path(const std::wstring& name, bool per_user) {
    if (same_text(name, L"HKCR") || same_text(name, L"HKEY_CLASSES_ROOT"))
      return classes_root(per_user);
    if (same_text(name, L"HKCU") || same_text(name, L"HKEY_CURRENT_USER")) return L"HKCU";
    if (same_text(name, L"HKLM") || same_text(name, L"HKEY_LOCAL_MACHINE")) return L"HKLM";
    if (same_text(name, L"HKU") || same_text(name, L"HKEY_USERS")) return L"HKU";
    if (same_text(name, L"HKCC") || same_text(name, L"HKEY_CURRENT_CONFIG")) return L"HKCC";
    return std::nullopt;
  }

  bool parse_key(KeyNode& key) {
    if (peek_word(L"NoRemove")) {
      key.flag = KeyFlag::NoRemove;
    } else if (peek_word(L"ForceRemove")) {
      key.flag = KeyFlag::ForceRemove;
    } else if (peek_word(L"Delete")) {
      key.flag = KeyFlag::Delete;
    }
    if (key.flag != KeyFlag::None) next();
    if (at_end() || is_punctuation(peek())) return false;
    key.name = next().text;
    if (peek_is(L"=")) {
      next();
      auto value = parse_value();
      if (!value) return false;
      key.default_value = std::move(value);
    }
    if (!peek_is(L"{")) return true;
    next();
    while (!peek_is(L"}")) {
      if (at_end()) return false;
      if (peek_word(L"val")) {
        next();
        if (at_end()) return false;
        std::wstring name = next().text;
        if (!expect(L"=")) return false;
        auto value = parse_value();
        if (!value) return false;
        key.values.emplace_back(std::move(name), std::move(*value));
      } else {
        KeyNode child;
        if (!parse_key(child)) return false;
        key.children.push_back(std::move(child));
      }
    }
    next();
    return true;
  }

  // `s 'text'` or `d number`; the store keeps every value as text.
  std::optional<std::wstring> parse_value() {
    if (at_end()) return std::nullopt;
    Token type = next();
    if (at_end() || !(type.is(L"s") || type.is(L"d"))) return std::nullopt;
    return next().text;
  }

  static bool is_punctuation(const Token& token) {
    return !token.quoted && (token.text == L"{" || token.text == L"}" || token.text == L"=");
  }

  bool at_end() const { return position_ >= tokens_.size(); }
  const Token& peek() const { return tokens_[position_]; }
  const Token& next() { return tokens_[position_++]; }
  bool peek_is(const wchar_t* punctuation) const {
    return !at_end() && !peek().quoted && peek().text == punctuation;
  }
  // A keyword counts only when something follows it: a key may itself be named "val".
  bool peek_word(const wchar_t* word) const {
    return !at_end() && peek().is(word) && position_ + 1 < tokens_.size() &&
           !is_punctuation(tokens_[position_ + 1]);
  }
  bool expect(const wchar_t* punctuation) {
    if (!peek_is(punctuation)) return false;
    next();
    return true;
  }

  std::vector<Token> tokens_;
  size_t position_ = 0;
};

HRESULT register_key(Registry::Store& store, const std::wstring& parent, const KeyNode& key) {
  std::wstring path = Registry::join(parent, key.name);
  if (key.flag == KeyFlag::Delete) {
    if (store.key_exists(path)) store.delete_tree(path);
    return S_OK;
  }
  if (key.flag == KeyFlag::ForceRemove && store.key_exists(path)) {
    HRESULT hr = store.delete_tree(path);
    if (FAILED(hr)) return hr;
  }
  HRESULT hr = store.create_key(path);
  if (SUCCEEDED(hr) && key.default_value) hr = store.set_value(path, L"", *key.default_value);
  for (const auto& value : key.values) {
    if (FAILED(hr)) break;
    hr = store.set_value(path, value.first, value.second);
  }
  for (const auto& child : key.children) {
    if (FAILED(hr)) break;
    hr = register_key(store, path, child);
  }
  return hr;
}

// What the key's script wrote goes; a NoRemove key itself stays, and a key that still holds
// sub-keys written by someone else stays too. A key that cannot go stops nothing: every other key
// is still removed, and the first failure is reported.
HRESULT unregister_key(Registry::Store& store, const std::wstring& parent, const KeyNode& key) {
  std::wstring path = Registry::join(parent, key.name);
  if (key.flag == KeyFlag::Delete || !store.key_exists(path)) return S_OK;
  if (key.flag == KeyFlag::ForceRemove) return store.delete_tree(path);
  HRESULT first = S_OK;
  for (const auto& child : key.children) {
    const HRESULT hr = unregister_key(store, path, child);
    if (SUCCEEDED(first)) first = hr;
  }
  for (const auto& value : key.values) store.delete_value(path, value.first);
  if (key.flag == KeyFlag::NoRemove || !store.subkeys(path).empty()) return first;
  const HRESULT hr = store.delete_key(path);
  return FAILED(first) ? first : hr;
}

}  // namespace

std::wstring classes_root(bool per_user) {
  return per_user ? L"HKCU\\Software\\Classes" : L"HKCR";
}

HRESULT run_script(const std::wstring& script, const Replacements& replacements, bool do_register,
                   bool per_user) {
  auto text = replace_variables(script, replacements);
  if (!text) return bad_script;
  auto tokens = tokenize(*text);
  if (!tokens) return bad_script;
  auto roots = Parser(std::move(*tokens)).roots(per_user);
  if (!roots) return bad_script;

  Registry::Store& store = Registry::registry();
  HRESULT first_failure = S_OK;  // unregistration goes on past a key that cannot go
  for (const auto& root : *roots) {
    if (do_register) {
      HRESULT hr = store.create_key(root.path);
      if (FAILED(hr)) return hr;
    }
    for (const auto& key : root.keys) {
      if (do_register) {
        const HRESULT hr = register_key(store, root.path, key);
        if (FAILED(hr)) return hr;
      } else {
        const HRESULT hr = unregister_key(store, root.path, key);
        if (SUCCEEDED(first_failure)) first_failure = hr;
      }
    }
  }
  return first_failure;
}

HRESULT update_registry_from_resource(int id, bool do_register, const Replacements& replacements,
                                      bool per_user) {
  const wchar_t* script = registry_script(id);
  if (!script) return E_INVALIDARG;
  return run_script(script, replacements, do_register, per_user);
}

}  // namespace Morvek::Tivalo::Registrar
