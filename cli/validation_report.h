// What validate found in each file, and how it is printed: one line per finding, or JSON.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace tivalo::cli {

struct Finding {
  std::string source;    // "schema", "rules", or "document" (not XML, or not UBL)
  std::string severity;  // "error", "warning", "info"
  long line = 0;         // 0 when unknown
  long column = 0;
  std::string location;  // rules: the location path an assertion names
  std::string rule;      // rules: the assertion's id
  std::string message;
};

struct FileReport {
  std::string name;
  std::vector<Finding> findings;
  // A check that could not run: about the document (source empty), or about the schema or the
  // stylesheet ("schema", "rules"), which is the same for every file and said once.
  struct {
    std::string source;
    std::string message;
  } failure;
  std::string note;  // "UBL 2.2 document, read as UBL 2.1"

  bool has_errors() const;
};

struct Output {
  bool json = false;
  bool quiet = false;
};

class ReportPrinter {
 public:
  ReportPrinter(Output output, std::string schema, std::string rules)
      : output_(output), schema_(std::move(schema)), rules_(std::move(rules)) {}
  void print(const FileReport& report);
  // Closes the output; the exit status for everything printed.
  int finish();

 private:
  void print_text(const FileReport& report);
  void print_json(const FileReport& report);
  void flushed();  // notes a failed write

  Output output_;
  std::string schema_, rules_;
  std::set<std::string> failures_said_;
  int status_ = 0;
  bool any_printed_ = false;
  int write_error_ = 0;  // errno of the first write that failed
};

// Text as a JSON string literal, control characters escaped, bytes that are not UTF-8 as
// \udc80 to \udcff.
std::string json_string(const std::string& utf8);

}  // namespace tivalo::cli
