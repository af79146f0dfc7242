// The UBL schemas that come with the tool, the default for `validate`.
#pragma once

#include <filesystem>
#include <string>

namespace tivalo::cli {

// The folder holding ubl-<version>/xsd/..., found from the tool's own location: the installed
// copy beside an installed tool, else the source tree the tool was built from. Nobody has to set
// anything.
std::filesystem::path bundled_schema_root();

// The main schema of a document class for a UBL version ("2.0", or what UBLVersionID says):
// ubl-2.0/xsd/maindoc/UBL-<Class>-2.0.xsd. A version without bundled schemas gets 2.0's.
std::filesystem::path bundled_schema(const std::wstring& document_class, const std::string& ubl_version = "2.0");

}  // namespace tivalo::cli
