// The tool's commands: their command lines, help texts and exit statuses.
#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace tivalo::cli {

enum ExitStatus : int {
  exit_clean = 0,
  exit_findings = 1,  // validate: a document has findings; convert/show: the component refused it
  exit_failure = 2,   // a usage error, or a file the tool cannot read
};

// A command line the tool cannot make sense of.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// An option takes one value ("--schema X", "--schema=X", "-o X") or none ("-q").
struct Option {
  std::string name;        // "--schema"
  std::string short_name;  // "-o", or empty
  bool takes_value = true;
};

struct Arguments {
  std::vector<std::string> operands;
  std::map<std::string, std::string> options;  // by long name; "" for an option without value
  bool help = false;

  // The value of an option, null when it was not given.
  const std::string* option(const std::string& name) const;
};

struct Command {
  std::string name;
  std::string usage;    // "validate FILE... [--schema XSD] [--rules XSL]"
  std::string summary;  // one line, for the tool's help
  std::string details;  // the rest of the command's help
  std::vector<Option> options;
  int (*run)(const Arguments&);
  // Operands the command takes; -1 for no upper limit.
  int min_operands;
  int max_operands;
};

// The known word closest to a mistyped one ("valdate" -> "validate"); empty when none is close.
std::string closest_word(const std::string& word, const std::vector<std::string>& known);

// Parses what follows the command's name. Throws UsageError.
Arguments parse_arguments(const Command& command, const std::vector<std::string>& words);

int run_validate(const Arguments& arguments);
int run_convert(const Arguments& arguments);
int run_show(const Arguments& arguments);
int run_classes(const Arguments& arguments);
int run_members(const Arguments& arguments);
int run_idl(const Arguments& arguments);

// One line on standard error: "tivalo: <source>: <message>", or "tivalo: <source>:1:5 error: ..."
// for a diagnostic located in the source, or without a source. A message of several lines is
// joined into one, and control characters are escaped.
void print_error(const std::string& source, const std::string& message);
void print_error(const std::string& message);

}  // namespace tivalo::cli
