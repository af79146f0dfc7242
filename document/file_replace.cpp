#include "document/file_replace.h"

#include <cerrno>
#include <system_error>

#ifdef _WIN32
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#endif

namespace Morvek::Tivalo::Files {

std::string reason(int error) { return std::generic_category().message(error); }

#ifndef _WIN32
namespace {

// Follows symbolic links to the name of the file they stand for; a dangling link names the file
// that writing through it creates.
int resolve_links(std::string& path) {
  for (int hops = 0; hops < 40; ++hops) {
    struct stat status;
    if (::lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) return 0;
    std::string target(256, '\0');
    for (;;) {
      const ssize_t length = ::readlink(path.c_str(), &target[0], target.size());
      if (length < 0) return errno;
      if (size_t(length) < target.size()) {
        target.resize(size_t(length));
        break;
      }
      target.resize(target.size() * 2);
    }
    const size_t slash = path.rfind('/');
    path = target[0] == '/' || slash == std::string::npos ? target
                                                          : path.substr(0, slash + 1) + target;
  }
  return ELOOP;
}

// What a plain create gives: 0666 less the process's file mode mask, read without changing it
// (changing it for a moment would race with other threads creating files).
mode_t creation_mode() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("Umask:", 0) == 0) return 0666 & ~mode_t(std::stoul(line.substr(6), nullptr, 8));
  }
  return 0644;
}

int write_all(int fd, const std::string& bytes) {
  for (size_t written = 0; written < bytes.size();) {
    const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return n < 0 ? errno : EIO;
    written += size_t(n);
  }
  return 0;
}

int write_and_close(int fd, const std::string& bytes) {
  int error = write_all(fd, bytes);
  if (::close(fd) != 0 && !error) error = errno;
  return error;
}

}  // namespace

Replaced replace_file(const std::string& path, const std::string& bytes) {
  if (path.empty() || path.back() == '/') return {ENOENT, false};
  std::string target = path;
  if (const int error = resolve_links(target)) return {error, false};

  struct stat existing;
  const bool exists = ::stat(target.c_str(), &existing) == 0;
  if (exists && S_ISDIR(existing.st_mode)) return {EISDIR, false};
  if (exists && !S_ISREG(existing.st_mode)) {
    const int fd = ::open(target.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return {errno, false};
    return {write_and_close(fd, bytes), true};
  }
  if (exists) {
    // The system decides whether the caller may write the file (mode, ACLs, a read-only mount);
    // replacing it through a rename would bypass that.
    const int fd = ::open(target.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return {errno, false};
    ::close(fd);
  }

  const size_t slash = target.rfind('/');
  const std::string directory = slash == std::string::npos ? "" : target.substr(0, slash + 1);
  std::string temporary = directory + "." + target.substr(directory.size()) + ".tivalo-XXXXXX";
  // Created exclusively (never through a link someone placed there) and private: 0600.
  const int fd = ::mkostemp(&temporary[0], O_CLOEXEC);
  if (fd < 0) return {errno, false};
  int error = write_all(fd, bytes);
  if (!error && exists) {
    // The owner first: a change of owner clears the set-id bits that the mode then restores. Only
    // root may give a file away; anyone else's new file stays their own.
    const int owned = ::fchown(fd, existing.st_uid, existing.st_gid);
    (void)owned;
  }
  if (!error && ::fchmod(fd, exists ? existing.st_mode & 07777 : creation_mode()) != 0)
    error = errno;
  if (::close(fd) != 0 && !error) error = errno;
  if (!error && ::rename(temporary.c_str(), target.c_str()) != 0) error = errno;
  if (error) ::unlink(temporary.c_str());
  return {error, true};
}

#else

namespace {

namespace fs = std::filesystem;

int put_bytes(std::ofstream& out, const std::string& bytes) {
  errno = 0;
  out.write(bytes.data(), std::streamsize(bytes.size()));
  out.flush();
  if (out) out.close();
  return out.fail() ? (errno ? errno : EIO) : 0;
}

// A name beside the target that no other writer picks.
fs::path temporary_beside(const fs::path& target) {
  static std::atomic<unsigned> calls{0};
  const auto ticks = std::chrono::steady_clock::now().time_since_epoch().count();
  const size_t unique = std::hash<std::thread::id>()(std::this_thread::get_id()) ^
                        size_t(ticks) ^ (size_t(++calls) << 20);
  fs::path name = target.filename();
  name += ".tivalo-" + std::to_string(unique % 1000000007u) + ".tmp";
  return target.parent_path() / fs::path("." + name.string());
}

}  // namespace

// Text mode: line feeds become CR LF, as the system's programs write text.
Replaced replace_file(const std::string& path, const std::string& bytes) {
  std::error_code ignored;
  fs::path target(path);
  if (!target.has_filename()) return {ENOENT, false};
  if (fs::is_symlink(fs::symlink_status(target, ignored))) {
    const fs::path resolved = fs::canonical(target, ignored);
    if (!resolved.empty()) target = resolved;
  }
  const fs::file_status existing = fs::status(target, ignored);
  if (fs::exists(existing) && !fs::is_regular_file(existing)) {
    std::ofstream out(target, std::ios::out | std::ios::trunc);
    if (!out) return {errno ? errno : EACCES, false};
    return {put_bytes(out, bytes), true};
  }
  if (fs::exists(existing) && (existing.permissions() & fs::perms::owner_write) == fs::perms::none)
    return {EACCES, false};  // the read-only attribute
  const fs::path temporary = temporary_beside(target);
  std::ofstream out(temporary, std::ios::out | std::ios::trunc);
  if (!out) return {errno ? errno : ENOENT, false};
  if (const int error = put_bytes(out, bytes)) {
    fs::remove(temporary, ignored);
    return {error, true};
  }
  std::error_code renamed;
  fs::rename(temporary, target, renamed);
  if (renamed) {
    fs::remove(temporary, ignored);
    return {renamed.value(), true};
  }
  return {};
}

#endif

}  // namespace Morvek::Tivalo::Files
