// Schema findings that say what is wrong, for the tivalo tool: a document checked against a schema
// by libxml2's streaming schema validator, each problem reworded in the document's own prefixes
// ("missing cbc:ID before cbc:CopyIndicator", "cbc:IssueDate: '2024-13-45' is not a valid
// DateType") at the line of the element it is about.
//
// The component's own validation members keep their texts; this is for clients that print every
// finding. Documents are untrusted: one with a document type declaration, beyond the markup limits
// or not well formed is not checked here (the outcome says so and the caller's other path words
// it). Schemas are trusted local files: they may carry an internal subset, but nothing is fetched
// from a network for them either.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Morvek::Tivalo::SchemaFindings {

struct Finding {
  long line = 0;  // 0 when unknown
  long column = 0;
  std::string message;  // UTF-8
};

struct Report {
  enum class Outcome {
    checked,            // `findings` hold every problem; none: the document is valid
    document_refused,   // not checked: not well formed, a DTD, beyond the markup limits
    schema_not_loaded,  // the schema cannot be used: `problem` says why
  };
  Outcome outcome = Outcome::checked;
  std::vector<Finding> findings;
  std::string problem;
};

// `schema_path` is the schema file as the file system names it. Its compiled form is kept for the
// life of the process (per path, while the file is unchanged), so a batch compiles it once; checks
// on several threads at once share it.
Report check(std::string_view document, const std::string& schema_path);

}  // namespace Morvek::Tivalo::SchemaFindings
