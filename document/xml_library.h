// libxml2 and libxslt keep process-wide state that the stylesheet check sets and cleans up on
// every call, so every use of them in the component takes this one lock.
#pragma once

#include <mutex>

namespace Morvek::Tivalo::Documents {

std::mutex& xml_library_lock();

}  // namespace Morvek::Tivalo::Documents
