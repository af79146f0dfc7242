#include "document/rule_check.h"

#include "document/local_uri.h"
#include "document/stylesheet_cache.h"
#include "document/svrl_report.h"
#include "platform/allocated_size.h"

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/uri.h>
#include <libxml/xmlerror.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>
#include <libxslt/documents.h>
#include <libxslt/security.h>
#include <libxslt/transform.h>
#include <libxslt/xslt.h>
#include <libxslt/xsltInternals.h>
#include <libxslt/xsltutils.h>

#include <atomic>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>

namespace Morvek::Tivalo::Rules {

const char* const document_type_refusal =
    "Tivalo: The document has a document type declaration; documents with DTDs are not read.";

namespace {

std::string formatted(const char* format, va_list arguments) {
  va_list measuring;
  va_copy(measuring, arguments);
  const int size = std::vsnprintf(nullptr, 0, format, measuring);
  va_end(measuring);
  if (size <= 0) return {};
  std::string text(static_cast<size_t>(size) + 1, '\0');
  std::vsnprintf(&text[0], text.size(), format, arguments);
  text.resize(static_cast<size_t>(size));
  return text;
}

std::string without_line_end(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  return text;
}

// "runtime error: file x.xsl line 5 element value-of" -> "file x.xsl line 5 element value-of": the
// kind is decided by the outcome, not by the processor's heading.
std::string where_of(const std::string& heading) {
  std::string where = without_line_end(heading);
  for (const char* kind : {"compilation error", "runtime error", "error", "warning"}) {
    const size_t length = std::strlen(kind);
    if (where.compare(0, length, kind) == 0) {
      where.erase(0, length);
      if (where.compare(0, 2, ": ") == 0) where.erase(0, 2);
      break;
    }
  }
  return where.empty() ? "stylesheet" : where;
}

// Everything the libraries report during one check on this thread lands here.
struct CheckInProgress {
  enum class Phase { compile, parse, transform, locate } phase = Phase::compile;
  std::vector<Diagnostic> diagnostics;  // of the current phase
  std::vector<Delivery> deliveries;
  std::vector<std::string> messages;
  std::string pending_where;  // the processor announces where an error is before saying it
  bool message_open = false;  // a message without a line end is closed by a lone "\n"
  std::string generic_line;   // libxml2's unstructured errors arrive in pieces
  std::vector<std::string> stylesheet_files;  // every file compiled into the stylesheet
  std::string first_parse_error;
  int parse_error_line = 0, parse_error_column = 0;
  bool last_was_detail = false;  // the latest diagnostic came from libxml2's unstructured channel

  bool merged_with_detail(const std::string& summary);

  void processor_said(const std::string& text, bool from_transform_context) {
    if (phase == Phase::locate) return;
    if (!pending_where.empty() || !from_transform_context || phase != Phase::transform) {
      diagnostics.push_back({Diagnostic::Level::error, text, pending_where});
      deliveries.push_back({false, text});
      pending_where.clear();
      return;
    }
    messages.push_back(text);
    deliveries.push_back({true, text});
  }

  void library_error(const xmlError& error) {
    std::string text = error.message ? error.message : "";
    if (phase == Phase::parse) {
      if (first_parse_error.empty() && error.level >= XML_ERR_ERROR) {
        first_parse_error = without_line_end(text);
        parse_error_line = error.line;
        parse_error_column = error.int2;
      }
      return;
    }
    if (phase == Phase::locate) return;
    // The XPath engine says what went wrong in two reports, the detail first: one problem.
    if (error.domain == XML_FROM_XPATH && merged_with_detail(text)) return;
    std::string where;
    if (error.file && error.line) where = std::string("file ") + error.file + " line " + std::to_string(error.line);
    const bool is_error = error.level >= XML_ERR_ERROR;
    diagnostics.push_back({is_error ? Diagnostic::Level::error : Diagnostic::Level::warning, text, where});
    if (is_error && phase == Phase::transform) deliveries.push_back({false, text});
    last_was_detail = false;
  }
};

bool CheckInProgress::merged_with_detail(const std::string& summary) {
  if (diagnostics.empty() || !last_was_detail) return false;
  last_was_detail = false;
  Diagnostic& detail = diagnostics.back();
  detail.text = without_line_end(detail.text) + " (" + without_line_end(summary) + ")\n";
  if (!deliveries.empty() && !deliveries.back().is_message) deliveries.back().text = detail.text;
  return true;
}

thread_local CheckInProgress* current_check = nullptr;

// The processor's error function during a transformation: messages and runtime errors.
void transform_context_said(void*, const char* format, ...) {
  CheckInProgress* check = current_check;
  if (!check) return;
  va_list arguments;
  va_start(arguments, format);
  const std::string text = formatted(format, arguments);
  va_end(arguments);
  if (std::strcmp(format, "%s") != 0) {
    if (check->message_open && text == "\n") {
      check->message_open = false;
    } else {
      check->pending_where = where_of(text);
      check->message_open = false;
    }
    return;
  }
  check->processor_said(text, true);
  check->message_open = text.empty() || text.back() != '\n';
}

// libxslt's process-wide error function: routed to the check running on this thread, else to
// whatever was installed before.
xmlGenericErrorFunc previous_generic_error = nullptr;
void* previous_generic_error_context = nullptr;

void processor_error_channel(void* context, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string text = formatted(format, arguments);
  va_end(arguments);
  CheckInProgress* check = current_check;
  if (!check) {
    if (previous_generic_error) previous_generic_error(previous_generic_error_context, "%s", text.c_str());
    return;
  }
  (void)context;
  if (std::strcmp(format, "%s") != 0 && !text.empty() && text.back() == '\n' &&
      (text.rfind("compilation error", 0) == 0 || text.rfind("runtime error", 0) == 0 ||
       text.rfind("error", 0) == 0 || text.rfind("warning", 0) == 0)) {
    check->pending_where = where_of(text);
    return;
  }
  check->processor_said(text, false);
}

// libxml2's per-thread error functions during a check.
void library_structured_error(void*, xmlErrorPtr error) {
  if (current_check && error) current_check->library_error(*error);
}

void library_generic_error(void*, const char* format, ...) {
  CheckInProgress* check = current_check;
  if (!check) return;
  va_list arguments;
  va_start(arguments, format);
  check->generic_line += formatted(format, arguments);
  va_end(arguments);
  const size_t end = check->generic_line.rfind('\n');
  if (end == std::string::npos) return;
  xmlError error{};
  error.level = XML_ERR_ERROR;
  std::string text = check->generic_line.substr(0, end + 1);
  check->generic_line.erase(0, end + 1);
  error.message = &text[0];
  check->library_error(error);
  check->last_was_detail = true;
}

xmlExternalEntityLoader previous_entity_loader = nullptr;

xmlParserInputPtr local_entity_loader(const char* url, const char* id, xmlParserCtxtPtr context) {
  if (!current_check) return previous_entity_loader(url, id, context);
  if (is_remote(url)) {
    if (current_check->phase != CheckInProgress::Phase::locate)
      current_check->diagnostics.push_back(
          {Diagnostic::Level::error, std::string("Tivalo: Network access refused: ") + url, {}});
    return nullptr;
  }
  return xmlNoNetExternalEntityLoader(url, id, context);
}

xsltDocLoaderFunc previous_document_loader = nullptr;  // for everyone else in the process
xsltDocLoaderFunc libxslt_document_loader = nullptr;   // libxslt's own, for the checks

// The file path a stylesheet URI names, for the cache's record of what was compiled.
std::string file_of_uri(const xmlChar* uri) {
  std::string path;
  if (xmlURIPtr parsed = xmlParseURI(reinterpret_cast<const char*>(uri))) {
    if ((!parsed->scheme || strcasecmp(parsed->scheme, "file") == 0) && parsed->path)
      path = parsed->path;
    xmlFreeURI(parsed);
  }
  if (path.empty()) path = reinterpret_cast<const char*>(uri);
  return path;
}

xmlDocPtr local_document_loader(const xmlChar* uri, xmlDictPtr dict, int options, void* context,
                                xsltLoadType type) {
  CheckInProgress* check = current_check;
  if (!check) return previous_document_loader(uri, dict, options, context, type);
  if (is_remote(reinterpret_cast<const char*>(uri))) {
    check->diagnostics.push_back({Diagnostic::Level::error,
                                  std::string("Tivalo: Network access refused: ") +
                                      reinterpret_cast<const char*>(uri), {}});
    return nullptr;
  }
  if (type == XSLT_LOAD_STYLESHEET) check->stylesheet_files.push_back(file_of_uri(uri));
  return libxslt_document_loader(uri, dict, options | XML_PARSE_NONET, context, type);
}

// --- the budget -----------------------------------------------------------------------------

std::atomic<size_t> memory_budget{Budget{}.memory_bytes};
std::atomic<long long> time_budget_ms{Budget{}.time.count()};

// What the run on this thread has spent. libxml2 and libxslt allocate through the functions below
// for every thread; only a thread that runs a stylesheet counts.
struct Spending {
  enum class Over { nothing, memory, time };
  xsltTransformContextPtr context = nullptr;
  long long held = 0;  // bytes allocated during the run and not yet freed
  long long memory_limit = 0;
  std::chrono::milliseconds time_limit{0};
  std::chrono::steady_clock::time_point deadline;
  unsigned allocations = 0;
  Over over = Over::nothing;
  size_t diagnostics_before_stop = 0, deliveries_before_stop = 0;
  CheckInProgress* check = nullptr;

  // Stops the run at the engine's next step: the transformation's state, and an operation limit
  // already reached for the XPath expression being evaluated.
  void stop(Over why) {
    if (over != Over::nothing) return;
    over = why;
    diagnostics_before_stop = check->diagnostics.size();
    deliveries_before_stop = check->deliveries.size();
    context->state = XSLT_STATE_STOPPED;
    context->opLimit = 1;
    context->opCount = 1;
    if (context->xpathCtxt) {
      context->xpathCtxt->opLimit = 1;
      context->xpathCtxt->opCount = 1;
    }
  }

  // Counts a block; false when it would take the run far beyond its budget (a single request
  // of that size is refused rather than made).
  bool add(long long bytes) {
    held += bytes;
    if (held > memory_limit) stop(Over::memory);
    if (++allocations % 64 == 0 && std::chrono::steady_clock::now() > deadline) stop(Over::time);
    return held <= 2 * memory_limit;
  }
};

thread_local Spending* spending = nullptr;

void* counted_malloc(size_t size) {
  Spending* run = spending;
  if (!run) return std::malloc(size);
  const bool within = run->add(static_cast<long long>(size));
  run->held -= static_cast<long long>(size);  // what the block really holds is counted below
  if (!within) return nullptr;
  void* block = std::malloc(size);
  run->held += static_cast<long long>(allocated_size(block));
  return block;
}

void* counted_realloc(void* block, size_t size) {
  Spending* run = spending;
  if (!run) return std::realloc(block, size);
  const long long before = static_cast<long long>(allocated_size(block));
  const bool within = run->add(static_cast<long long>(size) - before);
  run->held -= static_cast<long long>(size) - before;
  if (!within) return nullptr;
  void* moved = std::realloc(block, size);
  if (moved) run->held += static_cast<long long>(allocated_size(moved)) - before;
  return moved;
}

void counted_free(void* block) {
  if (Spending* run = spending) run->held -= static_cast<long long>(allocated_size(block));
  std::free(block);
}

char* counted_strdup(const char* text) {
  if (!text) return nullptr;
  const size_t size = std::strlen(text) + 1;
  char* copy = static_cast<char*>(counted_malloc(size));
  if (copy) std::memcpy(copy, text, size);
  return copy;
}

// The budget's own words, replacing whatever the engine said as it stopped.
std::string over_budget(const Spending& spent) {
  if (spent.over == Spending::Over::memory)
    return "Tivalo: The stylesheet used more than its budget of " +
           std::to_string(spent.memory_limit >> 20) + " MiB of memory; the check was stopped.";
  const long long ms = spent.time_limit.count();
  return "Tivalo: The stylesheet ran longer than its budget of " +
         (ms % 1000 ? std::to_string(ms) + " ms" : std::to_string(ms / 1000) + " s") +
         "; the check was stopped.";
}

xsltSecurityPrefsPtr no_writing = nullptr;

// The libraries' process-wide hooks, installed once. Each routes to the check running on the
// calling thread and otherwise behaves as before, so other users of the libraries in the same
// process see no change.
void install_hooks_once() {
  static std::once_flag once;
  std::call_once(once, [] {
    xmlInitParser();
    xsltInit();
    previous_generic_error = xsltGenericError;
    previous_generic_error_context = xsltGenericErrorContext;
    xsltSetGenericErrorFunc(nullptr, processor_error_channel);
    previous_entity_loader = xmlGetExternalEntityLoader();
    xmlSetExternalEntityLoader(local_entity_loader);
    previous_document_loader = xsltDocDefaultLoader;
    xsltSetLoaderFunc(nullptr);  // puts libxslt's own loader in place, to be called by ours
    libxslt_document_loader = xsltDocDefaultLoader;
    xsltSetLoaderFunc(local_document_loader);
    no_writing = xsltNewSecurityPrefs();
    xsltSetSecurityPrefs(no_writing, XSLT_SECPREF_WRITE_FILE, xsltSecurityForbid);
    xsltSetSecurityPrefs(no_writing, XSLT_SECPREF_CREATE_DIRECTORY, xsltSecurityForbid);
    xsltSetSecurityPrefs(no_writing, XSLT_SECPREF_WRITE_NETWORK, xsltSecurityForbid);
    xsltSetSecurityPrefs(no_writing, XSLT_SECPREF_READ_NETWORK, xsltSecurityForbid);
    // The budget counts what a run allocates. Blocks made before are freed by the same free().
    xmlMemSetup(counted_free, counted_malloc, counted_realloc, counted_strdup);
  });
}

// libxml2's error functions are the thread's own: set for the check, put back afterwards.
class CheckOnThisThread {
 public:
  explicit CheckOnThisThread(CheckInProgress& check)
      : structured_(xmlStructuredError),
        structured_context_(xmlStructuredErrorContext),
        generic_(xmlGenericError),
        generic_context_(xmlGenericErrorContext),
        outer_(current_check) {
    current_check = &check;
    xmlSetStructuredErrorFunc(nullptr, library_structured_error);
    xmlSetGenericErrorFunc(nullptr, library_generic_error);
  }
  ~CheckOnThisThread() {
    xmlSetGenericErrorFunc(generic_context_, generic_);
    xmlSetStructuredErrorFunc(structured_context_, structured_);
    current_check = outer_;
  }
  CheckOnThisThread(const CheckOnThisThread&) = delete;
  CheckOnThisThread& operator=(const CheckOnThisThread&) = delete;

 private:
  xmlStructuredErrorFunc structured_;
  void* structured_context_;
  xmlGenericErrorFunc generic_;
  void* generic_context_;
  CheckInProgress* outer_;
};

// --- the document -------------------------------------------------------------------------

struct DocumentFree {
  void operator()(xmlDocPtr document) const { xmlFreeDoc(document); }
};
using DocumentPtr = std::unique_ptr<xmlDoc, DocumentFree>;

// Called when the parser meets "<!DOCTYPE name ...", before it reads the internal subset.
void refuse_document_type(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
  auto parser = static_cast<xmlParserCtxtPtr>(context);
  parser->_private = const_cast<char*>(document_type_refusal);
  xmlStopParser(parser);
}

std::string not_well_formed(const CheckInProgress& check) {
  std::string text = "Tivalo: The document is not well-formed XML";
  if (!check.first_parse_error.empty())
    text += " (line " + std::to_string(check.parse_error_line) + ", column " +
            std::to_string(check.parse_error_column) + "): " + check.first_parse_error;
  return text + ".";
}

// No DTD, no entity from outside, no network: the parser reads the bytes given and nothing else.
DocumentPtr parse_document(std::string_view bytes, CheckInProgress& check, std::string& refusal) {
  check.phase = CheckInProgress::Phase::parse;
  xmlParserCtxtPtr parser = xmlNewParserCtxt();
  if (!parser) {
    refusal = "Tivalo: Out of memory.";
    return nullptr;
  }
  parser->sax->internalSubset = refuse_document_type;
  const int size = bytes.size() > static_cast<size_t>(INT32_MAX) ? -1 : static_cast<int>(bytes.size());
  DocumentPtr document;
  if (size >= 0)
    document.reset(xmlCtxtReadMemory(parser, bytes.data(), size, nullptr, nullptr, XML_PARSE_NONET));
  const bool refused_dtd = parser->_private == document_type_refusal;
  xmlFreeParserCtxt(parser);
  if (refused_dtd) {
    refusal = document_type_refusal;
    return nullptr;
  }
  if (!document) refusal = size < 0 ? "Tivalo: The document is too large." : not_well_formed(check);
  return document;
}

// --- the run --------------------------------------------------------------------------------

struct ContextFree {
  void operator()(xsltTransformContextPtr context) const { xsltFreeTransformContext(context); }
};

void run(const CompiledStylesheet& stylesheet, xmlDocPtr document, CheckInProgress& check,
         const CheckOptions& options, Report& report) {
  check.phase = CheckInProgress::Phase::transform;
  std::unique_ptr<xsltTransformContext, ContextFree> context(
      xsltNewTransformContext(stylesheet.get(), document));
  if (!context) {
    report.outcome = Report::Outcome::stylesheet_failed;
    report.problems.push_back({Diagnostic::Level::error, "Tivalo: Out of memory.", {}});
    return;
  }
  context->type = XSLT_OUTPUT_TEXT;
  xsltSetCtxtParseOptions(context.get(), context->parserOptions | XML_PARSE_NONET);
  xsltSetCtxtSecurityPrefs(no_writing, context.get());
  xsltSetTransformErrorFunc(context.get(), nullptr, transform_context_said);
  Spending spent;
  spent.context = context.get();
  spent.check = &check;
  spent.memory_limit = static_cast<long long>(memory_budget.load());
  spent.time_limit = std::chrono::milliseconds(time_budget_ms.load());
  spent.deadline = std::chrono::steady_clock::now() + spent.time_limit;
  spending = &spent;
  DocumentPtr output(
      xsltApplyStylesheetUser(stylesheet.get(), document, nullptr, nullptr, nullptr, context.get()));
  const bool stopped_by_message = context->state == XSLT_STATE_STOPPED && !check.messages.empty() &&
                                  !check.deliveries.empty() && check.deliveries.back().is_message &&
                                  spent.over == Spending::Over::nothing;
  context.reset();
  spending = nullptr;
  if (spent.over != Spending::Over::nothing) {
    output.reset();
    check.diagnostics.resize(spent.diagnostics_before_stop);
    check.deliveries.resize(spent.deliveries_before_stop);
    const std::string text = over_budget(spent);
    check.diagnostics.push_back({Diagnostic::Level::error, text, {}});
    check.deliveries.push_back({false, text});
  }

  for (std::string& text : check.messages) report.findings.push_back({Finding::Kind::message, std::move(text)});
  bool failed = false;
  for (Diagnostic& problem : check.diagnostics) {
    failed = failed || problem.level == Diagnostic::Level::error;
    report.problems.push_back(std::move(problem));
  }
  if (!output && !stopped_by_message) {
    if (!failed) {
      const std::string text = "Tivalo: The stylesheet stopped without saying why.";
      report.problems.push_back({Diagnostic::Level::error, text, {}});
      check.deliveries.push_back({false, text});
    }
    failed = true;
  }
  if (failed) report.outcome = Report::Outcome::stylesheet_failed;
  if (output && options.read_report_document) {
    check.phase = CheckInProgress::Phase::locate;
    read_svrl_report(output->children, document, report.findings);
  }
}

// The stylesheet, compiled now or kept from an earlier check.
Compilation compile(const std::string& stylesheet_path, CheckInProgress& check) {
  const Compiler compiler{[&](const std::string& path, std::vector<Diagnostic>& said,
                        std::vector<std::string>& files_read) -> xsltStylesheetPtr {
    check.phase = CheckInProgress::Phase::compile;
    xsltStylesheetPtr compiled =
        xsltParseStylesheetFile(reinterpret_cast<const xmlChar*>(path.c_str()));
    // A stylesheet that compiles may still have drawn remarks: those are warnings.
    if (compiled)
      for (Diagnostic& diagnostic : check.diagnostics) diagnostic.level = Diagnostic::Level::warning;
    said = std::move(check.diagnostics);
    files_read = std::move(check.stylesheet_files);
    check.diagnostics.clear();
    check.deliveries.clear();
    check.pending_where.clear();
    return compiled;
  }};
  return compiled_stylesheet(stylesheet_path, compiler);
}

}  // namespace

StylesheetLoad load_stylesheet(const std::string& stylesheet_path) {
  install_hooks_once();
  CheckInProgress check;
  CheckOnThisThread on_this_thread(check);
  Compilation compilation = compile(stylesheet_path, check);
  return {compilation.stylesheet != nullptr, std::move(compilation.said)};
}

Report check(std::string_view document_bytes, const std::string& stylesheet_path,
             const CheckOptions& options) {
  install_hooks_once();
  Report report;
  CheckInProgress check;
  CheckOnThisThread on_this_thread(check);

  const Compilation compilation = compile(stylesheet_path, check);
  for (const Diagnostic& said : compilation.said) {
    report.problems.push_back(said);
    report.deliveries.push_back({false, said.text});
  }
  if (!compilation.stylesheet) {
    report.outcome = Report::Outcome::stylesheet_not_loaded;
    return report;
  }

  DocumentPtr document = parse_document(document_bytes, check, report.refusal);
  if (!document) {
    report.outcome = Report::Outcome::document_refused;
    return report;
  }
  run(*compilation.stylesheet, document.get(), check, options, report);
  for (Delivery& delivery : check.deliveries) report.deliveries.push_back(std::move(delivery));
  return report;
}

void set_budget(const Budget& budget) {
  memory_budget = budget.memory_bytes;
  time_budget_ms = budget.time.count();
}

Budget budget() { return {memory_budget.load(), std::chrono::milliseconds(time_budget_ms.load())}; }

}  // namespace Morvek::Tivalo::Rules
