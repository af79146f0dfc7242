// validate's schema findings in the document's own words ("missing cbc:ID before
// cbc:CopyIndicator"), from libxml2's schema validator in the tool itself. The component's members
// keep their own texts; what this does not check (a document it refuses, a schema it cannot use)
// is left to the component, which words it as before.
#pragma once

#include "cli/document.h"
#include "cli/validation_report.h"

#include <string>

namespace tivalo::cli {

// Checks the document against `schema_argument` (as given on the command line), else the bundled
// schema of its class. True when it did: its findings are then in `report`, and the component's
// check is not needed. A document it finds valid is also read, since the component holds values
// to more than their schema types; false when the component refuses it.
bool add_worded_schema_findings(const DocumentInput& input, const Document& document,
                                const std::string* schema_argument, FileReport& report);

}  // namespace tivalo::cli
