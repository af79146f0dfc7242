// The UBL schemas that come with the tool, the default for `validate`.
#pragma once

#include "cli/ubl_version.h"

#include <filesystem>
#include <string>

namespace tivalo::cli {

// The folder holding ubl-<version>/xsd/..., found from the tool's own location: the installed
// copy beside an installed tool, else the source tree the tool was built from. Nobody has to set
// anything.
std::filesystem::path bundled_schema_root();

// The main schema of a document class of a UBL version: ubl-2.1/xsd/maindoc/UBL-<Class>-2.1.xsd.
std::filesystem::path bundled_schema(const std::wstring& document_class, const UblVersion& version);

}  // namespace tivalo::cli
