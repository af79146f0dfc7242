#include "cli/ubl_version.h"

#include "cli/command.h"
#include "cli/surface.h"

namespace tivalo::cli {
namespace {

constexpr UblVersion ubl20{"2.0", L"TivaloCOM.", L"ubl-2.0", L"-2.0.xsd"};
constexpr UblVersion ubl21{"2.1", L"TivaloCOM21.", L"ubl-2.1", L"-2.1.xsd"};

}  // namespace

const UblVersion& ubl_version_named(const std::string& name) {
  for (const UblVersion* version : {&ubl20, &ubl21})
    if (version->name == name) return *version;
  throw UsageError("--ubl takes 2.0 or 2.1, not '" + name + "'");
}

const UblVersion& ubl_version_for(const std::string& declared, const std::string* chosen) {
  if (chosen) return ubl_version_named(*chosen);
  return declared == ubl20.name ? ubl20 : ubl21;
}

void use_catalogue_of(const UblVersion& version) {
  if (&version == &ubl21) TypeLibrary::use_ubl21_catalogue();
}

}  // namespace tivalo::cli
