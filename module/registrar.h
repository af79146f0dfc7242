// The registrar: runs registry scripts (the platform registrar's script language) against the
// registry to register or unregister.
//
//   HKCR
//   {
//       NoRemove CLSID                     NoRemove: unregistering keeps the key
//       {
//           ForceRemove {...} = s 'Text'   ForceRemove: registering replaces the key, and
//           {                              unregistering removes it with its whole subtree
//               val ThreadingModel = s 'Apartment'
//           }
//       }
//   }
//
// A key may carry a default value (`= s 'text'` or `= d 12`) and named values (`val Name = ...`).
// Names and values may be quoted with single quotes ('' is a quote). %NAME% is replaced by the
// value of the replacement NAME, matched without regard to case; %% is a percent sign.
#pragma once

#include "platform/automation.h"

#include <string>
#include <utility>
#include <vector>

namespace Morvek::Tivalo::Registrar {

using Replacements = std::vector<std::pair<std::wstring, std::wstring>>;

// With per_user set, the root "HKCR" is written under "HKCU\Software\Classes" instead.
HRESULT run_script(const std::wstring& script, const Replacements& replacements, bool do_register,
                   bool per_user);

// Runs the module's registry script resource `id` (101 for the application identity, 103 + k for
// class k). An unknown resource gives E_INVALIDARG.
HRESULT update_registry_from_resource(int id, bool do_register, const Replacements& replacements,
                                      bool per_user);

// The module's registry script resources, generated from the catalogue. nullptr when none.
const wchar_t* registry_script(int id);

// The registry path the scripts' "HKCR" stands for.
std::wstring classes_root(bool per_user);

}  // namespace Morvek::Tivalo::Registrar
