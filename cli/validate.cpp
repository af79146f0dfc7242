// tivalo validate: the schema check through the component, and the rule stylesheet after it when
// one is given. Files are checked in parallel and reported in the order of the arguments.
#include "cli/bundled_schemas.h"
#include "cli/command.h"
#include "cli/document.h"
#include "cli/schema_findings.h"
#include "cli/text.h"
#include "cli/validation_report.h"

#include "document/rule_check.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>
#include <regex>
#include <thread>

namespace tivalo::cli {
namespace Rules = Morvek::Tivalo::Rules;
namespace {

// Schemas and stylesheets are handed over as absolute paths, so that what they import
// resolves the same wherever the tool runs. The path stays in the bytes the shell passed.
std::wstring absolute_path(const std::string& argument) {
  return from_utf8(std::filesystem::absolute(std::filesystem::path(argument)).string());
}

struct Settings {
  const std::string* schema = nullptr;
  const std::string* rules = nullptr;
  std::string rules_path;  // the stylesheet as the file system names it
};

// ":5:3 error: message" for the document, "file:///x.xsd:3:4 error: ..." inside the schema.
const std::regex& located_problem() {
  static const std::regex pattern(R"(^(.*):(\d+):(\d+) (error|warning): (.*)$)");
  return pattern;
}

void add_schema_findings(const std::string& text, FileReport& report) {
  std::vector<std::string> in_schema;
  for (const std::string& line : lines_of(text)) {
    std::smatch parts;
    Finding finding{"schema", "error", 0, 0, {}, {}, {}};
    if (std::regex_match(line, parts, located_problem())) {
      if (!parts[1].str().empty()) {
        in_schema.push_back(parts[1].str() + ":" + parts[2].str() + ":" + parts[3].str() + ": " +
                            parts[5].str());
        continue;
      }
      finding.line = std::stol(parts[2].str());
      finding.column = std::stol(parts[3].str());
      finding.severity = parts[4].str();
      finding.message = parts[5].str();
    } else {
      finding.message = line;
    }
    report.findings.push_back(std::move(finding));
  }
  // A schema that does not load is the tool's failure, the same for every file: said once.
  if (!in_schema.empty()) {
    std::string reasons;
    for (const std::string& reason : in_schema) reasons += (reasons.empty() ? "" : "; ") + reason;
    report.findings.clear();
    report.failure = {"schema", "cannot use the schema: " + reasons};
  }
}

std::string severity_of(const Rules::Finding& finding) {
  std::string flag = finding.flag.empty() ? finding.role : finding.flag;
  std::transform(flag.begin(), flag.end(), flag.begin(), [](unsigned char c) { return std::tolower(c); });
  if (flag == "fatal" || flag == "error") return "error";
  if (flag == "warning" || flag == "warn") return "warning";
  if (flag == "info" || flag == "information" || flag == "notice") return "info";
  return finding.kind == Rules::Finding::Kind::successful_report ? "warning" : "error";
}

std::string reason_of(const std::vector<Rules::Diagnostic>& said) {
  std::string reason;
  for (const Rules::Diagnostic& diagnostic : said) {
    if (diagnostic.level != Rules::Diagnostic::Level::error) continue;
    std::string text = diagnostic.text;
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    if (!diagnostic.where.empty()) text = diagnostic.where + ": " + text;
    reason += (reason.empty() ? "" : "; ") + text;
  }
  return reason.empty() ? "the stylesheet processor gave no reason" : reason;
}

void add_rule_findings(const DocumentInput& input, const Settings& settings, FileReport& report) {
  const Rules::Report rules = Rules::check(input.bytes(), settings.rules_path);
  switch (rules.outcome) {
    case Rules::Report::Outcome::stylesheet_not_loaded:
      report.failure = {"rules", "cannot load the stylesheet: " + reason_of(rules.problems)};
      return;
    case Rules::Report::Outcome::stylesheet_failed:
      report.failure = {"rules", "the stylesheet failed while running: " + reason_of(rules.problems)};
      return;
    case Rules::Report::Outcome::document_refused:
      report.findings.push_back({"rules", "error", 0, 0, {}, {}, rules.refusal});
      return;
    case Rules::Report::Outcome::checked:
      break;
  }
  for (const Rules::Finding& said : rules.findings) {
    Finding finding{"rules", "error", said.line, 0, said.location, said.id, said.text};
    if (said.kind != Rules::Finding::Kind::message) finding.severity = severity_of(said);
    report.findings.push_back(std::move(finding));
  }
}

std::wstring schema_findings(const DocumentInput& input, const Document& document,
                             const Settings& settings) {
  const std::wstring schema = settings.schema ? absolute_path(*settings.schema)
                                              : bundled_schema(document.class_name).wstring();
  return input.from_stdin()
             ? document.object.call(L"GetSchemaValidationErrorsFromXML", text_arguments(input.xml(), schema)).text()
             : document.object.call(L"GetSchemaValidationErrors", text_arguments(input.path(), schema)).text();
}

FileReport check_one(const std::string& argument, const Settings& settings) {
  FileReport report;
  report.name = document_name(argument);
  try {
    const DocumentInput input = open_document(argument);
    const Document document = Document::for_input(input);
    const std::wstring schema_text = add_worded_schema_findings(input, document, settings.schema, report)
                                         ? std::wstring() : schema_findings(input, document, settings);
    if (!schema_text.empty() && schema_text.rfind(L"File \"", 0) == 0 &&
        schema_text.find(L'\n') == std::wstring::npos) {
      report.failure = {"", message_for_terminal(schema_text)};
      return report;
    }
    add_schema_findings(message_for_terminal(schema_text), report);
    if (!report.failure.message.empty()) return report;
    if (report.findings.empty() && settings.rules) add_rule_findings(input, settings, report);
    if (report.has_errors()) report.note = input.version_note();
  } catch (const InputError& error) {
    report.failure = {"", error.what()};
  } catch (const ComponentError& error) {
    report.failure = {"", message_for_terminal(error.message())};
  }
  return report;
}

// Checks the files on `jobs` threads; hands each report to `deliver` in argument order.
template <class Deliver>
void check_all(const std::vector<std::string>& files, const Settings& settings, unsigned jobs,
               Deliver deliver) {
  const size_t count = files.size();
  jobs = std::max(1u, std::min<unsigned>(jobs, static_cast<unsigned>(count)));
  if (jobs == 1) {
    for (const std::string& file : files) deliver(check_one(file, settings));
    return;
  }
  // The first file alone: its schema and stylesheet are then compiled once and kept by the
  // component for the files that follow, instead of once per thread that asks at the same time.
  deliver(check_one(files[0], settings));
  std::vector<FileReport> reports(count);
  std::vector<bool> done(count, false);
  std::mutex mutex;
  std::condition_variable finished;
  std::atomic<size_t> next{1};
  std::vector<std::thread> workers;
  for (unsigned j = 0; j < jobs; ++j) {
    workers.emplace_back([&] {
      CoInitialize(nullptr);  // each thread makes its own document objects
      for (size_t i; (i = next++) < count;) {
        FileReport report = check_one(files[i], settings);
        std::lock_guard<std::mutex> lock(mutex);
        reports[i] = std::move(report);
        done[i] = true;
        finished.notify_all();
      }
      CoUninitialize();
    });
  }
  for (size_t i = 1; i < count; ++i) {
    std::unique_lock<std::mutex> lock(mutex);
    finished.wait(lock, [&] { return done[i]; });
    FileReport report = std::move(reports[i]);
    lock.unlock();
    deliver(std::move(report));
  }
  for (std::thread& worker : workers) worker.join();
}

unsigned jobs_of(const Arguments& arguments) {
  const std::string* jobs = arguments.option("--jobs");
  if (!jobs) return std::max(1u, std::thread::hardware_concurrency());
  if (jobs->empty() || jobs->size() > 4 || !std::all_of(jobs->begin(), jobs->end(), ::isdigit) ||
      std::stoi(*jobs) < 1)
    throw UsageError("option '--jobs' needs a number from 1 (got '" + *jobs + "')");
  return static_cast<unsigned>(std::stoi(*jobs));
}

// What must hold before any file is checked; each is reported once. Returns a failure status or
// exit_clean.
int check_settings(const Settings& settings, const Output& output) {
  if (settings.schema) {
    std::error_code ignored;
    if (std::filesystem::is_directory(*settings.schema, ignored)) {
      print_error(*settings.schema, "is a directory");
      return exit_failure;
    }
    if (!std::ifstream(*settings.schema)) {
      print_error("Schema file \"" + *settings.schema + "\" not found.");
      return exit_failure;
    }
  }
  if (settings.rules) {
    std::error_code ignored;
    if (std::filesystem::is_directory(*settings.rules, ignored)) {
      print_error(*settings.rules, "is a directory");
      return exit_failure;
    }
    if (!std::ifstream(settings.rules_path)) {
      print_error(*settings.rules, std::string("cannot open the stylesheet: ") + std::strerror(errno));
      return exit_failure;
    }
    const Rules::StylesheetLoad load = Rules::load_stylesheet(settings.rules_path);
    if (!load.loaded) {
      print_error(*settings.rules, "cannot load the stylesheet: " + reason_of(load.said));
      return exit_failure;
    }
    if (!output.quiet) {
      for (const Rules::Diagnostic& warning : load.said) {
        std::string text = warning.text;
        while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
        print_error(*settings.rules, "warning: " + (warning.where.empty() ? "" : warning.where + ": ") + text);
      }
    }
  }
  return exit_clean;
}

}  // namespace

int run_validate(const Arguments& arguments) {
  if (std::count(arguments.operands.begin(), arguments.operands.end(), "-") > 1)
    throw UsageError("standard input ('-') can be read only once");
  Output output;
  output.quiet = arguments.option("--quiet") != nullptr;
  if (const std::string* format = arguments.option("--format")) {
    if (*format != "text" && *format != "json")
      throw UsageError("option '--format' takes 'text' or 'json' (got '" + *format + "')");
    output.json = *format == "json";
  }
  const unsigned jobs = jobs_of(arguments);
  Settings settings{arguments.option("--schema"), arguments.option("--rules"), {}};
  if (settings.rules) settings.rules_path = std::filesystem::absolute(*settings.rules).string();

  if (const int status = check_settings(settings, output); status != exit_clean) return status;

  ReportPrinter printer(output, settings.schema ? *settings.schema : "",
                        settings.rules ? *settings.rules : "");
  check_all(arguments.operands, settings, jobs, [&](FileReport report) { printer.print(report); });
  return printer.finish();
}

}  // namespace tivalo::cli
