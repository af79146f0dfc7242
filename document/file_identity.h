// What tells a file apart from its earlier self without reading it: its size and modification
// time. The caches that keep compiled schemas and stylesheets between calls check every file an
// entry came from against this before they use it.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

namespace Morvek::Tivalo {

struct FileIdentity {
  std::string path;  // as the file system names it
  std::uintmax_t size = 0;
  std::filesystem::file_time_type modified{};

  bool operator==(const FileIdentity& other) const {
    return path == other.path && size == other.size && modified == other.modified;
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
  return FileIdentity{path, size, modified};
}

inline bool unchanged(const FileIdentity& file) {
  const std::optional<FileIdentity> now = identity_of(file.path);
  return now && *now == file;
}

}  // namespace Morvek::Tivalo
