// tivalo: validate, convert and inspect UBL 2.0 and 2.1 documents through the TivaloCOM object model.
#include "cli/command.h"

#include "platform/automation.h"

#include <cstdio>
#include <exception>
#include <iostream>

namespace tivalo::cli {
namespace {

const std::vector<Command>& commands() {
  static const std::vector<Command> table = {
      {"validate", "validate FILE|DIR... [--schema XSD | --no-schema] [--rules XSL] [--ubl 2.0|2.1] [--format json] [-q] [-j N]",
       "check documents against their UBL schema, and rules",
       "Each document is checked by the object of its class, found from the root element,\n"
       "in the UBL 2.0 library when its UBLVersionID says 2.0 and in the UBL 2.1 library\n"
       "otherwise (2.1 documents often carry none); --ubl chooses. Without --schema the\n"
       "bundled schema of that class and version is used. With --rules\n"
       "the rule stylesheet runs when the schema check finds nothing: each xsl:message is a\n"
       "finding, and so is each svrl:failed-assert and svrl:successful-report of an SVRL\n"
       "report that the stylesheet writes (compiled Schematron). An assertion's flag or role\n"
       "says its severity (fatal, error, warning, info); without one a failed assert is an\n"
       "error and a successful report a warning. XSLT 1.0 stylesheets run in the tool; XSLT\n"
       "2.0 and 3.0 ones on Saxon-HE, one Java process for the whole run (Debian packages\n"
       "default-jre-headless and libsaxonhe-java).\n"
       "\n"
       "A folder stands for every *.xml file below it, in sorted order. Prints 'FILE: ok' or\n"
       "one line per finding: 'FILE:LINE:COLUMN: error: MESSAGE' for the schema,\n"
       "'FILE[:LINE]: SEVERITY: [ID] MESSAGE (at LOCATION)' for rules. A file that is not XML\n"
       "or not a UBL document is a finding of that file. Several files are checked in\n"
       "parallel and reported in order.\n"
       "\n"
       "Exit status: 0 when every document is clean, 1 when any has errors, 2 for a usage\n"
       "error, a file that cannot be read, a schema or stylesheet that cannot be used or\n"
       "fails while running (reported once, naming it and the reason), or a report that\n"
       "cannot be written.\n"
       "\n"
       "  --schema XSD     the XML Schema to check against\n"
       "  --no-schema      no schema check: the rules alone (for fragments, rule tests)\n"
       "  --rules XSL      a rule stylesheet; the UBL 2.1 code-list check ships as\n"
       "                   schemas/ubl-2.1/UBL-DefaultDTQ-2.1.xsl\n"
       "  --ubl VERSION    read every document as UBL 2.0 or 2.1, whatever it says\n"
       "  --format FORMAT  'text' (the default) or 'json': one object per file with its\n"
       "                   findings (source, severity, line, column or location, rule, message)\n"
       "  -q, --quiet      print nothing; the exit status tells\n"
       "  -j, --jobs N     check N files at a time (default: the number of processors)",
       {{"--schema", ""}, {"--no-schema", "", false}, {"--rules", ""}, {"--ubl", ""}, {"--format", ""},
        {"--quiet", "-q", false}, {"--jobs", "-j"}},
       run_validate, 1, -1},
      {"convert", "convert FILE [-o OUT] [--ubl 2.0|2.1]", "read a document into the object model and write it",
       "Reads the document into an object of its class and writes it back: the namespace\n"
       "declarations, prefixes and layout of the component. Exit status: 0 when written,\n"
       "1 when the component refuses the document, 2 for a usage error or an unreadable file.\n"
       "\n"
       "  -o, --output OUT   write to OUT instead of standard output\n"
       "  --ubl VERSION      read as UBL 2.0 or 2.1 (default: 2.0 when UBLVersionID says so)",
       {{"--output", "-o"}, {"--ubl", ""}}, run_convert, 1, 1},
      {"show", "show FILE [--ubl 2.0|2.1]", "print the object graph of a document",
       "Reads the document and prints its object graph as an indented tree of the members\n"
       "that are set, with their values; data-type objects show their value and the\n"
       "attributes that are set in brackets.\n"
       "\n"
       "  --ubl VERSION   read as UBL 2.0 or 2.1 (default: 2.0 when UBLVersionID says so)",
       {{"--ubl", ""}}, run_show, 1, 1},
      {"classes", "classes [--ubl 2.0|2.1]", "list the classes of the component",
       "Lists the classes in catalogue order: k, name, kind and member count.\n"
       "\n"
       "  --ubl VERSION   the library of UBL 2.0 (the default) or of UBL 2.1",
       {{"--ubl", ""}}, run_classes, 0, 0},
      {"members", "members CLASS [--ubl 2.0|2.1]", "list the members of a class's interface",
       "Lists the members of I<CLASS> in slot order: DISPID, kind, virtual-table slot, and\n"
       "the member with its parameters' directions, types and names.\n"
       "\n"
       "  --ubl VERSION   the library of UBL 2.0 (the default) or of UBL 2.1",
       {{"--ubl", ""}}, run_members, 1, 1},
      {"idl", "idl [--ubl 2.0|2.1]", "print the type library as IDL",
       "Prints the source of the type library.\n"
       "\n"
       "  --ubl VERSION   the library of UBL 2.0 (the default) or of UBL 2.1",
       {{"--ubl", ""}}, run_idl, 0, 0},
  };
  return table;
}

const Command* find_command(const std::string& name) {
  for (const Command& command : commands()) {
    if (command.name == name) return &command;
  }
  return nullptr;
}

void print_tool_help(std::ostream& out) {
  out << "usage: tivalo COMMAND [ARGUMENTS]\n"
         "\n"
         "Validates, converts and inspects UBL 2.0 and 2.1 documents through the TivaloCOM object model.\n"
         "\n"
         "commands:\n";
  for (const Command& command : commands()) {
    char line[256];
    const char* usage_line_end = command.usage.size() > 46 ? "\n" : "";
    std::snprintf(line, sizeof line, "  %-46s%s %s%s\n", command.usage.c_str(), usage_line_end,
                  *usage_line_end ? std::string(48, ' ').c_str() : "", command.summary.c_str());
    out << line;
  }
  out << "\n"
         "options:\n"
         "  -h, --help                                     this help\n"
         "  --version                                      the tool's version\n"
         "\n"
         "FILE may be '-' for standard input. 'tivalo help COMMAND' or 'tivalo COMMAND --help'\n"
         "describes a command.\n";
}

void print_command_help(const Command& command) {
  std::cout << "usage: tivalo " << command.usage << "\n\n" << command.details << "\n";
  if (command.usage.find("FILE") != std::string::npos)
    std::cout << "\nFILE may be '-' for standard input.\n";
}

int unknown_command(const std::string& word) {
  std::vector<std::string> names{"help"};
  for (const Command& command : commands()) names.push_back(command.name);
  const std::string close = closest_word(word, names);
  print_error("unknown command '" + word + "'" +
              (close.empty() ? "" : "; did you mean '" + close + "'?") + " (see 'tivalo --help')");
  return exit_failure;
}

int run(const std::vector<std::string>& words) {
  if (words.empty()) {
    print_error("no command given (see 'tivalo --help')");
    return exit_failure;
  }
  if (words[0] == "--help" || words[0] == "-h" || words[0] == "help") {
    if (words.size() > 1 && words[0] == "help") {
      const Command* command = find_command(words[1]);
      if (!command) return unknown_command(words[1]);
      print_command_help(*command);
      return exit_clean;
    }
    print_tool_help(std::cout);
    return exit_clean;
  }
  if (words[0] == "--version") {
    std::cout << "tivalo " << TIVALO_VERSION << "\n";
    return exit_clean;
  }
  const Command* command = find_command(words[0]);
  if (!command) return unknown_command(words[0]);
  try {
    const Arguments arguments = parse_arguments(*command, {words.begin() + 1, words.end()});
    if (arguments.help) {
      print_command_help(*command);
      return exit_clean;
    }
    return command->run(arguments);
  } catch (const UsageError& error) {
    print_error(command->name, std::string(error.what()) + " (see 'tivalo " + command->name + " --help')");
    return exit_failure;
  }
}

}  // namespace
}  // namespace tivalo::cli

int main(int argc, char** argv) {
  CoInitialize(nullptr);
  int status;
  try {
    status = tivalo::cli::run({argv + 1, argv + argc});
  } catch (const std::exception& error) {
    tivalo::cli::print_error(error.what());
    status = tivalo::cli::exit_failure;
  }
  CoUninitialize();
  return status;
}
