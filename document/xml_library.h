// libxml2's helpers outside the rule check (path to URI) are used under this one lock. The rule
// check itself holds no process-wide lock: its processor state belongs to the calling thread.
#pragma once

#include <mutex>

namespace Morvek::Tivalo::Documents {

std::mutex& xml_library_lock();

}  // namespace Morvek::Tivalo::Documents
