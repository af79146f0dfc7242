#include "cli/bundled_schemas.h"

namespace tivalo::cli {

std::filesystem::path bundled_schema_root() {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::path tool = fs::read_symlink("/proc/self/exe", error);
  if (!error) {
    const fs::path installed = tool.parent_path() / TIVALO_INSTALLED_SCHEMAS;
    if (fs::is_directory(installed, error)) return fs::canonical(installed, error);
  }
  return TIVALO_BUILD_TREE_SCHEMAS;
}

std::filesystem::path bundled_schema(const std::wstring& document_class, const UblVersion& version) {
  return bundled_schema_root() / std::wstring(version.schema_folder) / L"xsd" / L"maindoc" /
         (L"UBL-" + document_class + std::wstring(version.schema_suffix));
}

}  // namespace tivalo::cli
