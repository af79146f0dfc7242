// Registration of the type library, the catalogue compiled into the module, in the same
// registry as the scripts: TypeLib\{LIBID}\<version> and Interface\{IID} of every interface.
#pragma once

#include "platform/automation.h"

#include <string>

namespace Morvek::Tivalo {

// `path` is the module file that carries the type library.
HRESULT register_type_library(const std::wstring& path, bool per_user);
// Removes what register_type_library wrote; nothing registered is not a failure.
HRESULT unregister_type_library(bool per_user);

}  // namespace Morvek::Tivalo
