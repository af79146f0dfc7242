#include "document/stylesheet_cache.h"

#include "document/file_identity.h"

#include <algorithm>
#include <filesystem>
#include <list>
#include <mutex>

namespace Morvek::Tivalo::Rules {
namespace {

struct Entry {
  std::string key;
  std::vector<FileIdentity> files;
  std::shared_ptr<const CompiledStylesheet> stylesheet;
};

class Cache {
 public:
  std::shared_ptr<const CompiledStylesheet> find(const std::string& key) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto entry = std::find_if(entries_.begin(), entries_.end(),
                              [&](const Entry& e) { return e.key == key; });
    if (entry == entries_.end()) return nullptr;
    if (!std::all_of(entry->files.begin(), entry->files.end(),
                     [](const FileIdentity& file) { return unchanged(file); })) {
      entries_.erase(entry);
      return nullptr;
    }
    entries_.splice(entries_.begin(), entries_, entry);  // most recently used first
    return entry->stylesheet;
  }

  void keep(Entry entry) {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.remove_if([&](const Entry& e) { return e.key == entry.key; });
    if (capacity_ == 0) return;
    entries_.push_front(std::move(entry));
    while (entries_.size() > capacity_) entries_.pop_back();
  }

  void set_capacity(size_t capacity) {
    std::lock_guard<std::mutex> lock(mutex_);
    capacity_ = capacity;
    while (entries_.size() > capacity_) entries_.pop_back();
  }

 private:
  std::mutex mutex_;
  std::list<Entry> entries_;
  size_t capacity_ = 16;
};

Cache& cache() {
  static Cache* kept = new Cache;  // lives as long as the process: checks may run at exit
  return *kept;
}

std::string absolute(const std::string& path) {
  std::error_code error;
  const std::filesystem::path full = std::filesystem::absolute(path, error);
  return error ? path : full.lexically_normal().string();
}

}  // namespace

Compilation compiled_stylesheet(const std::string& path, const Compiler& compiler) {
  const std::string key = absolute(path);
  if (auto kept = cache().find(key)) return {kept, kept->said()};

  const std::optional<FileIdentity> before = identity_of(key);
  std::vector<Diagnostic> said;
  std::vector<std::string> files_read;
  xsltStylesheetPtr compiled = compiler.compile(path, said, files_read);
  if (!compiled) return {nullptr, std::move(said)};

  auto stylesheet = std::make_shared<const CompiledStylesheet>(compiled, said);
  // A stylesheet edited while it was being compiled, or one whose files cannot all be told apart
  // from their later selves, is not kept: the next check compiles again.
  bool keep = before && unchanged(*before);
  Entry entry{key, {}, stylesheet};
  if (before) entry.files.push_back(*before);
  for (const std::string& file : files_read) {
    if (absolute(file) == key) continue;
    const std::optional<FileIdentity> read = identity_of(absolute(file));
    if (read) entry.files.push_back(*read);
    keep = keep && read;
  }
  if (keep) cache().keep(std::move(entry));
  return {stylesheet, std::move(said)};
}

void set_stylesheet_cache_capacity(size_t capacity) { cache().set_capacity(capacity); }

}  // namespace Morvek::Tivalo::Rules
