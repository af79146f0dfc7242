// tivalo validate: the schema check through the component, and the rule stylesheet after it when
// one is given. Files are checked in parallel and reported in the order of the arguments; a
// folder stands for every *.xml file below it. Pipes and standard input are read once, into memory.
#include "cli/bundled_schemas.h"
#include "cli/command.h"
#include "cli/document.h"
#include "cli/schema_findings.h"
#include "cli/text.h"
#include "cli/validation_report.h"
#include "cli/xslt2_rules.h"

#include "document/rule_check.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
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
  bool no_schema = false;
  Xslt2Rules* xslt2 = nullptr;  // the processor of an XSLT 2.0 or 3.0 stylesheet
  const std::string* ubl = nullptr;  // --ubl: the library every document is read with
};

// "file:///..." for a document's path, so that what the stylesheet resolves against it works.
std::string file_uri(const std::string& argument) {
  static const char hex[] = "0123456789ABCDEF";
  std::string uri = "file://";
  for (unsigned char c : std::filesystem::absolute(std::filesystem::path(argument)).string()) {
    if (std::isalnum(c) || std::strchr("/-._~", c)) {
      uri += static_cast<char>(c);
    } else {
      uri += '%';
      uri += hex[c >> 4];
      uri += hex[c & 0xF];
    }
  }
  return uri;
}

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
    } else if (!reader_placed(line, finding.line, finding.column, finding.message)) {
      // The 2.1 library's check words a value Read refuses as its reader does, placed.
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

// `started`: the XSLT 2.0 check already handed to its processor.
void add_rule_findings(const DocumentInput& input, const Settings& settings, Xslt2Rules::Pending* started,
                       FileReport& report) {
  const Rules::Report rules = started ? settings.xslt2->finish(*started)
                                      : Rules::check(input.bytes(), settings.rules_path);
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

// The component reads a regular file itself (its parser takes any encoding from the bytes); what
// cannot be read twice, a pipe or standard input, it takes as the text read.
std::wstring schema_findings(const DocumentInput& input, const Document& document,
                             const Settings& settings) {
  const std::wstring schema = settings.schema ? absolute_path(*settings.schema)
                                              : bundled_schema(document.class_name, *input.read_as).wstring();
  return input.regular_file
             ? document.object.call(L"GetSchemaValidationErrors", text_arguments(input.path(), schema)).text()
             : document.object.call(L"GetSchemaValidationErrorsFromXML", text_arguments(input.xml(), schema)).text();
}

FileReport check_one(const std::string& argument, const Settings& settings) {
  FileReport report;
  report.name = document_name(argument);
  try {
    const DocumentInput input = open_document(argument, settings.ubl, true);
    // An XSLT 2.0 check runs in the processor while the schema check runs here; its answer is
    // dropped when the schema check finds anything.
    std::shared_ptr<Xslt2Rules::Pending> started;
    if (settings.xslt2)
      started = settings.xslt2->start(input.content, input.from_stdin() ? "" : file_uri(input.argument));
    if (!settings.no_schema) {
      const Document document = Document::for_input(input);
      const std::wstring schema_text =
          add_worded_schema_findings(input, document, settings.schema, report)
              ? std::wstring() : schema_findings(input, document, settings);
      if (!schema_text.empty() && schema_text.rfind(L"File \"", 0) == 0 &&
          schema_text.find(L'\n') == std::wstring::npos) {
        report.failure = {"", message_for_terminal(schema_text)};  // gone since it was read
        return report;
      }
      add_schema_findings(message_for_terminal(schema_text), report);
      if (!report.failure.message.empty()) return report;
    }
    if (report.findings.empty() && settings.rules) add_rule_findings(input, settings, started.get(), report);
    if (report.has_errors()) report.note = input.version_note();
  } catch (const NotADocument& error) {
    report.findings.push_back({"document", "error", 0, 0, {}, {}, error.what()});
  } catch (const InputError& error) {
    report.failure = {"", error.what()};
  } catch (const ComponentError& error) {
    report.failure = {"", message_for_terminal(error.message())};
  }
  return report;
}

bool is_xml_file(const std::filesystem::directory_entry& entry) {
  std::string extension = entry.path().extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(), [](unsigned char c) { return std::tolower(c); });
  std::error_code ignored;
  return extension == ".xml" && entry.is_regular_file(ignored);
}

// The documents the operands name: a folder stands for every *.xml file below it, sorted by path
// so that every run reports in the same order. A folder that cannot be read whole is the tool's
// failure (`status`), said at once: its documents are not all checked.
std::vector<std::string> documents_of(const std::vector<std::string>& operands, const Output& output,
                                      int& status) {
  namespace fs = std::filesystem;
  std::vector<std::string> documents;
  for (const std::string& operand : operands) {
    std::error_code error;
    if (operand == "-" || !fs::is_directory(operand, error)) {
      documents.push_back(operand);
      continue;
    }
    std::vector<std::string> found;
    fs::recursive_directory_iterator entry(operand, error), end;
    for (; !error && entry != end; entry.increment(error))
      if (is_xml_file(*entry)) found.push_back(entry->path().string());
    if (error) {
      if (!output.quiet) print_error(operand, "cannot read the folder: " + error.message());
      status = exit_failure;
    }
    std::sort(found.begin(), found.end());
    if (found.empty() && !output.quiet) print_error(operand, "holds no *.xml file");
    documents.insert(documents.end(), found.begin(), found.end());
  }
  return documents;
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
// exit_clean. Starts the processor of an XSLT 2.0 stylesheet into `xslt2`.
int check_settings(Settings& settings, const Output& output, unsigned jobs,
                   std::unique_ptr<Xslt2Rules>& xslt2) {
  auto fail = [&](const std::string& source, const std::string& message) {
    if (!output.quiet) source.empty() ? print_error(message) : print_error(source, message);
    return exit_failure;
  };
  if (settings.schema) {
    std::error_code ignored;
    if (std::filesystem::is_directory(*settings.schema, ignored)) return fail(*settings.schema, "is a directory");
    if (!std::ifstream(*settings.schema)) return fail("", "Schema file \"" + *settings.schema + "\" not found.");
  }
  if (settings.rules) {
    std::error_code ignored;
    if (std::filesystem::is_directory(*settings.rules, ignored)) return fail(*settings.rules, "is a directory");
    if (!std::ifstream(settings.rules_path))
      return fail(*settings.rules, std::string("cannot open the stylesheet: ") + std::strerror(errno));
    if (needs_xslt2(settings.rules_path)) {
      try {
        xslt2 = std::make_unique<Xslt2Rules>(settings.rules_path, jobs);
      } catch (const Xslt2Unavailable& error) {
        return fail(*settings.rules, error.what());
      }
      settings.xslt2 = xslt2.get();
      return exit_clean;
    }
    const Rules::StylesheetLoad load = Rules::load_stylesheet(settings.rules_path);
    if (!load.loaded) return fail(*settings.rules, "cannot load the stylesheet: " + reason_of(load.said));
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
  Settings settings{arguments.option("--schema"), arguments.option("--rules"), {},
                    arguments.option("--no-schema") != nullptr, nullptr, arguments.option("--ubl")};
  if (settings.ubl) ubl_version_named(*settings.ubl);  // a usage error before any file is read
  if (settings.no_schema && settings.schema)
    throw UsageError("options '--schema' and '--no-schema' exclude each other");
  if (settings.no_schema && !settings.rules)
    throw UsageError("option '--no-schema' needs '--rules': there would be nothing to check");
  if (settings.rules) settings.rules_path = std::filesystem::absolute(*settings.rules).string();

  std::unique_ptr<Xslt2Rules> xslt2;
  if (const int status = check_settings(settings, output, jobs, xslt2); status != exit_clean) return status;

  int status = exit_clean;
  const std::vector<std::string> documents = documents_of(arguments.operands, output, status);
  ReportPrinter printer(output, settings.schema ? *settings.schema : "",
                        settings.rules ? *settings.rules : "");
  if (!documents.empty())
    check_all(documents, settings, jobs, [&](FileReport report) { printer.print(report); });
  return std::max(printer.finish(), status);
}

}  // namespace tivalo::cli
