// What tells a file apart from its earlier self without reading it: its size, modification time,
// inode and change time. Size and modification time alone miss a file rewritten with both kept (as
// archives and reproducible builds keep them) and a file replaced by a rename; the change time
// moves on every write and the inode with every replacement, and neither can be set by a caller.
// The caches that keep compiled schemas and stylesheets between calls check every file an entry
// came from against this before they use it.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

#include <sys/stat.h>
#include <sys/types.h>

namespace Morvek::Tivalo {

struct FileIdentity {
  std::string path;  // as the file system names it
  std::uintmax_t size = 0;
  std::filesystem::file_time_type modified{};
  std::uintmax_t device = 0, inode = 0;  // 0 on Windows, which has no inode here
  std::int64_t changed_ns = 0;           // change time; creation time on Windows

  bool operator==(const FileIdentity& other) const {
    return path == other.path && size == other.size && modified == other.modified &&
           device == other.device && inode == other.inode && changed_ns == other.changed_ns;
  }
  bool operator!=(const FileIdentity& other) const { return !(*this == other); }

  // Modified within `window` of now: a change within the same tick of the file system's clock
  // would not show in its modification time.
  bool settling(std::chrono::seconds window) const {
    return std::filesystem::file_time_type::clock::now() - modified < window;
  }
};

inline std::optional<FileIdentity> identity_of(const std::string& path) {
  std::error_code error;
  const std::filesystem::path name = std::filesystem::u8path(path);
  const std::uintmax_t size = std::filesystem::file_size(name, error);
  if (error) return std::nullopt;
  const std::filesystem::file_time_type modified = std::filesystem::last_write_time(name, error);
  if (error) return std::nullopt;
  FileIdentity identity{path, size, modified};
#ifdef _WIN32
  struct _stat64 status;
  if (_wstat64(name.c_str(), &status) != 0) return std::nullopt;
  identity.changed_ns = std::int64_t(status.st_ctime) * 1000000000;
#else
  struct stat status;
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  identity.device = status.st_dev;
  identity.inode = status.st_ino;
  identity.changed_ns = std::int64_t(status.st_ctim.tv_sec) * 1000000000 + status.st_ctim.tv_nsec;
#endif
  return identity;
}

inline bool unchanged(const FileIdentity& file) {
  const std::optional<FileIdentity> now = identity_of(file.path);
  return now && *now == file;
}

}  // namespace Morvek::Tivalo
