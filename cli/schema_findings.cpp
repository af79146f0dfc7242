#include "cli/schema_findings.h"

#include "cli/bundled_schemas.h"
#include "cli/text.h"
#include "document/schema_findings.h"

#include <filesystem>

namespace tivalo::cli {

bool add_worded_schema_findings(const DocumentInput& input, const Document& document,
                                const std::string* schema_argument, FileReport& report) {
  namespace Schema = Morvek::Tivalo::SchemaFindings;
  // The schema in the bytes the shell passed, absolute, so that what it includes resolves the
  // same wherever the tool runs.
  const std::string schema = schema_argument
                                 ? std::filesystem::absolute(std::filesystem::path(*schema_argument)).string()
                                 : bundled_schema(document.class_name, *input.read_as).string();
  const Schema::Report checked = Schema::check(input.bytes(), schema);
  if (checked.outcome != Schema::Report::Outcome::checked) return false;
  if (checked.findings.empty()) {
    // The component holds values to more than their schema types (a date's year from 100 to
    // 9999, a number a double can carry): a document whose values it cannot read is left to its
    // check, which says so. Reading costs a fraction of its check.
    try {
      document.load(input);
    } catch (const ComponentError&) {
      return false;
    }
    return true;
  }
  for (const Schema::Finding& said : checked.findings) {
    Finding finding;
    finding.source = "schema";
    finding.severity = "error";
    finding.line = said.line;
    finding.column = said.column;
    finding.message = said.message;
    report.findings.push_back(std::move(finding));
  }
  return true;
}

}  // namespace tivalo::cli
