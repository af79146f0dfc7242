// The UBL 2.0 schemas that come with the tool, the default for `validate`.
#pragma once

#include <filesystem>
#include <string>

namespace tivalo::cli {

// Found from the tool's own location: the installed copy beside an installed tool, else the
// source tree the tool was built from. Nobody has to set anything.
std::filesystem::path bundled_schema_dir();

// The main schema of a document class: maindoc/UBL-<Class>-2.0.xsd.
std::filesystem::path bundled_schema(const std::wstring& document_class);

}  // namespace tivalo::cli
