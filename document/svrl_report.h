// The assertions of an SVRL report (the output of a compiled Schematron rule set) as findings.
#pragma once

#include "document/rule_check.h"

#include <libxml/tree.h>

#include <vector>

namespace Morvek::Tivalo::Rules {

// Appends each svrl:failed-assert and svrl:successful-report at or below `first` and its siblings
// to `findings`, in document order, with the line in `source` of the one node its location names
// (XPath 1.0, or XPath 2.0's Q{uri}name and *:name forms); 0 when none or several. The caller
// keeps libxml2's error handlers quiet while it runs.
void read_svrl_report(const xmlNode* first, xmlDocPtr source, std::vector<Finding>& findings);

}  // namespace Morvek::Tivalo::Rules
