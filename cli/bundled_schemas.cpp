#include "cli/bundled_schemas.h"

namespace tivalo::cli {
namespace {

// The UBL versions whose schemas are bundled: the version as UBLVersionID writes it, and the
// schema folder's name and file suffix.
struct BundledVersion {
  const char* version;
  const wchar_t* folder;
  const wchar_t* suffix;
};
constexpr BundledVersion bundled_versions[] = {
    {"2.0", L"ubl-2.0", L"-2.0.xsd"},
};

}  // namespace

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

std::filesystem::path bundled_schema(const std::wstring& document_class, const std::string& ubl_version) {
  const BundledVersion* chosen = &bundled_versions[0];
  for (const BundledVersion& bundled : bundled_versions)
    if (ubl_version == bundled.version) chosen = &bundled;
  return bundled_schema_root() / chosen->folder / L"xsd" / L"maindoc" /
         (L"UBL-" + document_class + chosen->suffix);
}

}  // namespace tivalo::cli
