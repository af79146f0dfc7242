#include "cli/validation_report.h"

#include "cli/command.h"
#include "cli/text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>

namespace tivalo::cli {
namespace {

// A message of several lines on one line.
std::string single_line(const std::string& text) {
  std::string line;
  for (const std::string& part : lines_of(text)) {
    const size_t first = part.find_first_not_of(" \t");
    if (first == std::string::npos) continue;
    line += (line.empty() ? "" : "; ") + part.substr(first);
  }
  return line;
}

std::string finding_line(const std::string& name, const Finding& finding) {
  std::string where = name;
  if (finding.line > 0) where += ":" + std::to_string(finding.line);
  if (finding.line > 0 && finding.column > 0) where += ":" + std::to_string(finding.column);
  std::string line = where + ": " + finding.severity + ": ";
  if (!finding.rule.empty()) line += "[" + finding.rule + "] ";
  line += single_line(finding.message);
  if (!finding.location.empty()) line += " (at " + finding.location + ")";
  return escape_controls(line);
}

// Length of the well-formed UTF-8 character at `at` (no overlong forms, surrogates or values
// beyond U+10FFFF); 0 when the byte there starts none.
size_t utf8_length(const std::string& text, size_t at) {
  const auto byte = [&](size_t i) { return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0u; };
  const unsigned lead = byte(0);
  const auto follows = [&](size_t i, unsigned low = 0x80, unsigned high = 0xBF) {
    return byte(i) >= low && byte(i) <= high;
  };
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return follows(1) ? 2 : 0;
  if (lead >= 0xE0 && lead <= 0xEF) {
    const unsigned low = lead == 0xE0 ? 0xA0 : 0x80, high = lead == 0xED ? 0x9F : 0xBF;
    return follows(1, low, high) && follows(2) ? 3 : 0;
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    const unsigned low = lead == 0xF0 ? 0x90 : 0x80, high = lead == 0xF4 ? 0x8F : 0xBF;
    return follows(1, low, high) && follows(2) && follows(3) ? 4 : 0;
  }
  return 0;
}

}  // namespace

bool FileReport::has_errors() const {
  return std::any_of(findings.begin(), findings.end(),
                     [](const Finding& finding) { return finding.severity == "error"; });
}

std::string json_string(const std::string& utf8) {
  static const char hex[] = "0123456789abcdef";
  std::string json = "\"";
  for (size_t at = 0; at < utf8.size();) {
    const char c = utf8[at];
    const auto byte = static_cast<unsigned char>(c);
    const size_t length = utf8_length(utf8, at);
    if (length == 0) {
      // A byte that is no UTF-8 (a Latin-1 file name) as U+DC80 to U+DCFF, the form in which
      // Python's file system functions and the component take it back as that byte.
      json += "\\udc";
      json += hex[byte >> 4];
      json += hex[byte & 0xF];
      ++at;
      continue;
    }
    if (c == '"' || c == '\\') {
      json += '\\';
      json += c;
    } else if (byte < 0x20 || byte == 0x7F) {
      json += "\\u00";
      json += hex[byte >> 4];
      json += hex[byte & 0xF];
    } else {
      json.append(utf8, at, length);
    }
    at += length;
  }
  return json + "\"";
}

void ReportPrinter::print(const FileReport& report) {
  const bool failed = !report.failure.message.empty();
  status_ = std::max<int>(status_, failed ? exit_failure : report.has_errors() ? exit_findings : exit_clean);
  if (failed) {
    const std::string& subject = report.failure.source == "schema" ? schema_
                                 : report.failure.source == "rules" ? rules_
                                                                    : report.name;
    const bool said_before =
        !report.failure.source.empty() && !failures_said_.insert(report.failure.message).second;
    if (!said_before && !output_.quiet) print_error(subject, report.failure.message);
  }
  if (output_.quiet || write_error_) return;
  if (output_.json) print_json(report);
  else if (!failed) print_text(report);
  flushed();
}

void ReportPrinter::flushed() {
  std::cout.flush();
  if (!std::cout && !write_error_) write_error_ = errno ? errno : EIO;
}

void ReportPrinter::print_text(const FileReport& report) {
  if (report.findings.empty()) {
    std::cout << escape_controls(report.name) << ": ok\n";
    return;
  }
  if (!report.note.empty()) std::cout << escape_controls(report.name + ": note: " + report.note) << '\n';
  for (const Finding& finding : report.findings) std::cout << finding_line(report.name, finding) << '\n';
}

void ReportPrinter::print_json(const FileReport& report) {
  std::cout << (any_printed_ ? ",\n  " : "[\n  ");
  any_printed_ = true;
  const bool failed = !report.failure.message.empty();
  std::cout << "{\"file\": " << json_string(report.name)
            << ", \"valid\": " << (failed || report.has_errors() ? "false" : "true");
  if (failed) std::cout << ", \"error\": " << json_string(single_line(report.failure.message));
  if (!report.note.empty()) std::cout << ", \"note\": " << json_string(report.note);
  std::cout << ", \"findings\": [";
  bool first = true;
  for (const Finding& finding : report.findings) {
    std::cout << (first ? "\n    " : ",\n    ");
    first = false;
    std::cout << "{\"source\": " << json_string(finding.source)
              << ", \"severity\": " << json_string(finding.severity);
    if (finding.line > 0) std::cout << ", \"line\": " << finding.line;
    if (finding.column > 0) std::cout << ", \"column\": " << finding.column;
    if (!finding.location.empty()) std::cout << ", \"location\": " << json_string(finding.location);
    if (!finding.rule.empty()) std::cout << ", \"rule\": " << json_string(finding.rule);
    std::cout << ", \"message\": " << json_string(single_line(finding.message)) << "}";
  }
  std::cout << (first ? "]}" : "\n  ]}");
}

int ReportPrinter::finish() {
  if (output_.json && !output_.quiet && !write_error_) std::cout << (any_printed_ ? "\n]\n" : "[]\n");
  if (!output_.quiet) flushed();
  if (write_error_) {
    // The report is what a pipeline acts on: one that did not arrive whole is the tool's failure.
    print_error("cannot write the report: " + std::string(std::strerror(write_error_)));
    return exit_failure;
  }
  return status_;
}

}  // namespace tivalo::cli
