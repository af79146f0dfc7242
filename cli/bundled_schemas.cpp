#include "cli/bundled_schemas.h"

namespace tivalo::cli {

std::filesystem::path bundled_schema_dir() {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::path tool = fs::read_symlink("/proc/self/exe", error);
  if (!error) {
    const fs::path installed = tool.parent_path() / TIVALO_INSTALLED_SCHEMAS;
    if (fs::is_directory(installed, error)) return fs::canonical(installed, error);
  }
  return TIVALO_BUILD_TREE_SCHEMAS;
}

std::filesystem::path bundled_schema(const std::wstring& document_class) {
  return bundled_schema_dir() / "maindoc" / (L"UBL-" + document_class + L"-2.0.xsd");
}

}  // namespace tivalo::cli
