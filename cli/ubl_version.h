// The UBL versions the tool reads, and which one serves a document: the library whose classes
// take it in and the bundled schemas it is checked against.
#pragma once

#include <string>
#include <string_view>

namespace tivalo::cli {

struct UblVersion {
  std::string_view name;            // "2.1", as UBLVersionID writes it
  std::wstring_view progid_prefix;  // "TivaloCOM21."
  std::wstring_view schema_folder;  // "ubl-2.1", below the bundled schema root
  std::wstring_view schema_suffix;  // "-2.1.xsd", of the main schemas' file names
};

// The version `--ubl` names. Throws UsageError for one the tool does not read.
const UblVersion& ubl_version_named(const std::string& name);

// The version a document is read as: `chosen` (the --ubl value) when given, else 2.0 for a
// document whose UBLVersionID says 2.0 and 2.1 for any other. 2.1 documents often carry no
// UBLVersionID, and a 2.0 document without one is also a 2.1 document.
const UblVersion& ubl_version_for(const std::string& declared, const std::string* chosen);

// Makes the catalogue commands and `show` describe the classes of `version`'s library.
void use_catalogue_of(const UblVersion& version);

}  // namespace tivalo::cli
