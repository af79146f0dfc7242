// tivalo validate: the schema check, and the rule stylesheet after it when one is given.
#include "cli/bundled_schemas.h"
#include "cli/command.h"
#include "cli/document.h"
#include "cli/text.h"

#include <algorithm>
#include <filesystem>
#include <iostream>

namespace tivalo::cli {
namespace {

bool starts_with(const std::wstring& text, const std::wstring& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

bool ends_with(const std::wstring& text, const std::wstring& suffix) {
  return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// The component answers a check it could not run with a fixed text instead of findings: a
// missing document or schema, or a stylesheet it cannot use. Those are the tool's failures.
bool check_did_not_run(const std::wstring& result) {
  return result == L"XSL file is not a stylesheet." ||
         ((starts_with(result, L"File \"") || starts_with(result, L"Schema file \"")) &&
          ends_with(result, L"\" not found.") && result.find(L'\n') == std::wstring::npos);
}

// Schemas and stylesheets are handed over as absolute paths, so that what they import
// resolves the same wherever the tool runs. The path stays in the bytes the shell passed.
std::wstring absolute_path(const std::string& argument) {
  return from_utf8(std::filesystem::absolute(std::filesystem::path(argument)).string());
}

struct Checks {
  const std::string* schema;
  const std::string* rules;
};

std::wstring findings_of(const DocumentInput& input, const Document& document, const Checks& checks) {
  const std::wstring schema =
      checks.schema ? absolute_path(*checks.schema) : bundled_schema(document.class_name).wstring();
  const LateBound& object = document.object;
  if (checks.rules) {
    const std::wstring rules = absolute_path(*checks.rules);
    return input.from_stdin()
               ? object.call(L"GetValidationErrorsFromXML", text_arguments(input.xml(), schema, rules)).text()
               : object.call(L"GetValidationErrors", text_arguments(input.path(), schema, rules)).text();
  }
  return input.from_stdin()
             ? object.call(L"GetSchemaValidationErrorsFromXML", text_arguments(input.xml(), schema)).text()
             : object.call(L"GetSchemaValidationErrors", text_arguments(input.path(), schema)).text();
}

int validate_one(const std::string& argument, const Checks& checks) {
  const std::string source = document_name(argument);
  try {
    const DocumentInput input = open_document(argument);
    const Document document = Document::for_input(input);
    const std::wstring findings = findings_of(input, document, checks);
    if (findings.empty()) {
      std::cout << source << ": ok\n";
      return exit_clean;
    }
    if (check_did_not_run(findings)) {
      print_error(source, message_for_terminal(findings));
      return exit_failure;
    }
    for (const std::string& line : lines_of(message_for_terminal(findings)))
      std::cout << located(source, line) << '\n';
    return exit_findings;
  } catch (const InputError& error) {
    print_error(source, error.what());
  } catch (const ComponentError& error) {
    print_error(source, message_for_terminal(error.message()));
  }
  return exit_failure;
}

}  // namespace

int run_validate(const Arguments& arguments) {
  if (std::count(arguments.operands.begin(), arguments.operands.end(), "-") > 1)
    throw UsageError("standard input ('-') can be read only once");
  const Checks checks{arguments.option("--schema"), arguments.option("--rules")};
  int status = exit_clean;
  for (const std::string& file : arguments.operands) {
    status = std::max(status, validate_one(file, checks));
    std::cout.flush();
  }
  return status;
}

}  // namespace tivalo::cli
