// tivalo convert: a document read into the object model of its class and written back out.
#include "cli/command.h"
#include "cli/document.h"
#include "cli/text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>

namespace tivalo::cli {
namespace {

InputError write_failure(const std::string& what) {
  return InputError(what + ": " + std::strerror(errno));
}

// Writes every byte or says why not; closes `fd` either way.
void write_all(int fd, const std::string& bytes) {
  for (size_t written = 0; written < bytes.size();) {
    const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      const int reason = errno;
      ::close(fd);
      errno = reason;
      throw write_failure("cannot write");
    }
    written += static_cast<size_t>(n);
  }
  if (::close(fd) != 0) throw write_failure("cannot write");
}

// A regular file is replaced only once the new content is wholly on disk: written to a temporary
// file beside it, then renamed over it. A device or pipe (/dev/stdout) is written directly.
void write_output(const std::string& target, const std::string& bytes) {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::file_status status = fs::status(target, error);
  if (fs::is_directory(status)) throw InputError("is a directory");
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    const int fd = ::open(target.c_str(), O_WRONLY | O_TRUNC);
    if (fd < 0) throw write_failure("cannot write");
    write_all(fd, bytes);
    return;
  }
  const fs::path path(target);
  std::string temporary =
      (path.parent_path() / ("." + path.filename().string() + ".tivalo-XXXXXX")).string();
  const int fd = ::mkstemp(&temporary[0]);
  if (fd < 0) throw write_failure("cannot write");
  const mode_t mask = ::umask(0);
  ::umask(mask);
  // The new file gets the old one's permissions, or what a plain create would give.
  ::fchmod(fd, fs::exists(status) ? static_cast<mode_t>(status.permissions()) & 07777 : 0666 & ~mask);
  try {
    write_all(fd, bytes);
    if (::rename(temporary.c_str(), target.c_str()) != 0) throw write_failure("cannot write");
  } catch (...) {
    ::unlink(temporary.c_str());
    throw;
  }
}

}  // namespace

int run_convert(const Arguments& arguments) {
  const std::string& argument = arguments.operands.front();
  const std::string* output = arguments.option("--output");
  std::string failing = document_name(argument);  // what an error message names
  return reporting_failures(failing, [&] {
    const DocumentInput input = open_document(argument);
    const Document document = Document::for_input(input);
    document.load(input);
    // The XML property hands the written bytes over one per character.
    const std::string bytes = narrow_bytes(document.object.get(L"XML").text());
    if (output) {
      failing = *output;
      write_output(*output, bytes);
    } else {
      std::cout << bytes;
      std::cout.flush();
      if (!std::cout) {
        failing = "<stdout>";
        throw InputError("cannot write");
      }
    }
    return exit_clean;
  });
}

}  // namespace tivalo::cli
