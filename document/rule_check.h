// The rule check: a caller's XSLT stylesheet applied to a document text, with everything the
// stylesheet said kept apart from what the stylesheet processor said about the stylesheet.
//
// Every check sets up its own processor state on the calling thread, so checks on different
// threads run at the same time. Documents with a document type declaration are refused before
// anything is expanded; nothing reaches the network; stylesheets may not write files.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Morvek::Tivalo::Rules {

// What the stylesheet reported about the document: an xsl:message, or an assertion of an SVRL
// report that the stylesheet wrote as its result.
struct Finding {
  enum class Kind { message, failed_assert, successful_report };
  Kind kind = Kind::message;
  std::string text;      // as the stylesheet wrote it (UTF-8)
  std::string location;  // SVRL: the location path of the node the assertion is about
  std::string id, flag, role, test;
  long line = 0;  // line of the located node in the document; 0 when unknown
};

// What the processor said about the stylesheet or its run.
struct Diagnostic {
  enum class Level { warning, error };
  Level level = Level::error;
  std::string text;  // the processor's message, line end included as delivered
  std::string where;  // "file rules.xsl line 5 element value-of", when the processor says
};

// One thing the processor's report channel received, in order: what the component's own members
// make their result from (the last one wins).
struct Delivery {
  bool is_message = false;
  std::string text;
};

struct Report {
  enum class Outcome {
    checked,                // the stylesheet ran: findings hold what it reported
    stylesheet_not_loaded,  // missing, unreadable, not XML or not XSLT: `problems` say why
    document_refused,       // not well-formed, or carries a DTD: `refusal` says why
    stylesheet_failed,      // the run stopped with an error: `problems` say why
  };
  Outcome outcome = Outcome::checked;
  std::vector<Finding> findings;     // messages, then the SVRL report's assertions
  std::vector<Diagnostic> problems;  // processor warnings and errors, never findings
  std::vector<Delivery> deliveries;
  std::string refusal;
};

struct CheckOptions {
  // Read the stylesheet's result document as an SVRL report. The component's own members only
  // look at messages.
  bool read_report_document = true;
};

// The document's bytes are handed over with their length, so any encoding the XML parser knows
// works. `stylesheet_path` is a file path in the file system's bytes.
Report check(std::string_view document, const std::string& stylesheet_path,
             const CheckOptions& options = {});

// Compiles the stylesheet (or finds it compiled) without running it: whether it can be used, and
// what the processor said about it (why not, or its warnings).
struct StylesheetLoad {
  bool loaded = false;
  std::vector<Diagnostic> said;
};
StylesheetLoad load_stylesheet(const std::string& stylesheet_path);

// The refusal text for a document that carries a document type declaration.
extern const char* const document_type_refusal;

// How many compiled stylesheets are kept; 0 turns the cache off (for tests).
void set_stylesheet_cache_capacity(size_t capacity);

// What one run of a stylesheet may spend: the memory it holds at once and the time it takes. A
// run that goes beyond either is stopped and fails with a message that names the budget.
struct Budget {
  size_t memory_bytes = size_t(1) << 30;
  std::chrono::milliseconds time{60000};
};
void set_budget(const Budget& budget);
Budget budget();

}  // namespace Morvek::Tivalo::Rules
