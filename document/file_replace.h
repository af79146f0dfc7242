// Writing a file whole or not at all: the bytes go to a temporary file beside the target, which
// takes its place only once every byte is written and the file closed. Shared by the component's
// Write and the tivalo tool's `convert -o`, so both treat a target the same way.
#pragma once

#include <string>

namespace Morvek::Tivalo::Files {

struct Replaced {
  int error = 0;         // the system's error number; 0 when the file was written
  bool opened = true;    // false when the target or its temporary file could not be created
  bool ok() const { return error == 0; }
};

// Replaces the file at `path` (the file system's bytes) with `bytes`.
// - A target the caller may not write is refused with the system's reason, as an open for
//   writing would be: a read-only file is not replaced behind its owner's back.
// - The temporary file is created exclusively, never through a symbolic link, and readable by the
//   owner only until it is complete; then it takes the target's permissions (a new file: those a
//   plain create would give).
// - A symbolic link is written through: the file it names is replaced, the link stays.
// - Devices and pipes (a terminal, /dev/null) cannot be replaced and are written directly.
// Windows writes in text mode (CR LF line ends).
Replaced replace_file(const std::string& path, const std::string& bytes);

// The system's text for an error number.
std::string reason(int error);

}  // namespace Morvek::Tivalo::Files
