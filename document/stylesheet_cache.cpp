#include "document/stylesheet_cache.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <list>
#include <mutex>

namespace Morvek::Tivalo::Rules {
namespace {

// What identifies a file's content without reading it.
struct FileIdentity {
  std::string path;
  bool exists = false;
  off_t size = 0;
  long long modified_ns = 0;
  ino_t inode = 0;

  static FileIdentity of(const std::string& path) {
    FileIdentity identity{path};
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0) {
      identity.exists = true;
      identity.size = status.st_size;
      identity.modified_ns = static_cast<long long>(status.st_mtim.tv_sec) * 1000000000LL +
                             status.st_mtim.tv_nsec;
      identity.inode = status.st_ino;
    }
    return identity;
  }
  bool unchanged() const {
    const FileIdentity now = of(path);
    return now.exists == exists && now.size == size && now.modified_ns == modified_ns &&
           now.inode == inode;
  }
};

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
                     [](const FileIdentity& file) { return file.unchanged(); })) {
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

  const FileIdentity before = FileIdentity::of(key);
  std::vector<Diagnostic> said;
  std::vector<std::string> files_read;
  xsltStylesheetPtr compiled = compiler.compile(path, said, files_read);
  if (!compiled) return {nullptr, std::move(said)};

  auto stylesheet = std::make_shared<const CompiledStylesheet>(compiled, said);
  Entry entry{key, {before}, stylesheet};
  for (const std::string& file : files_read) {
    if (absolute(file) != key) entry.files.push_back(FileIdentity::of(absolute(file)));
  }
  // A stylesheet edited while it was being compiled is not kept: the next check compiles again.
  if (before.exists && before.unchanged()) cache().keep(std::move(entry));
  return {stylesheet, std::move(said)};
}

void set_stylesheet_cache_capacity(size_t capacity) { cache().set_capacity(capacity); }

}  // namespace Morvek::Tivalo::Rules
