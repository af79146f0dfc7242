// tivalo: validate, convert and inspect UBL 2.0 documents through the TivaloCOM object model.
#include "cli/command.h"

#include "platform/automation.h"

#include <cstdio>
#include <exception>
#include <iostream>

namespace tivalo::cli {
namespace {

const std::vector<Command>& commands() {
  static const std::vector<Command> table = {
      {"validate", "validate FILE... [--schema XSD] [--rules XSL]",
       "check documents against their UBL 2.0 schema, and rules",
       "Each document is checked by the object of its class, found from the root element.\n"
       "Without --schema the bundled UBL 2.0 schema of that document is used. With --rules\n"
       "the rule stylesheet runs when the schema check finds nothing; what it reports with\n"
       "xsl:message is the finding.\n"
       "\n"
       "Prints 'FILE: ok' or one line per finding. Exit status: 0 when every document is\n"
       "clean, 1 when any has findings, 2 for a usage error or a document that cannot be\n"
       "read.\n"
       "\n"
       "  --schema XSD   the XML Schema to check against\n"
       "  --rules XSL    a rule stylesheet",
       {{"--schema", ""}, {"--rules", ""}}, run_validate, 1, -1},
      {"convert", "convert FILE [-o OUT]", "read a document into the object model and write it",
       "Reads the document into an object of its class and writes it back: the namespace\n"
       "declarations, prefixes and layout of the component. Exit status: 0 when written,\n"
       "1 when the component refuses the document, 2 for a usage error or an unreadable file.\n"
       "\n"
       "  -o, --output OUT   write to OUT instead of standard output",
       {{"--output", "-o"}}, run_convert, 1, 1},
      {"show", "show FILE", "print the object graph of a document",
       "Reads the document and prints its object graph as an indented tree of the members\n"
       "that are set, with their values; data-type objects show their value and the\n"
       "attributes that are set in brackets.",
       {}, run_show, 1, 1},
      {"classes", "classes", "list the classes of the component",
       "Lists the classes in catalogue order: k, name, kind and member count.", {}, run_classes, 0, 0},
      {"members", "members CLASS", "list the members of a class's interface",
       "Lists the members of I<CLASS> in slot order: DISPID, kind, virtual-table slot, and\n"
       "the member with its parameters' directions, types and names.",
       {}, run_members, 1, 1},
      {"idl", "idl", "print the type library as IDL", "Prints the source of the type library.", {},
       run_idl, 0, 0},
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
         "Validates, converts and inspects UBL 2.0 documents through the TivaloCOM object model.\n"
         "\n"
         "commands:\n";
  for (const Command& command : commands()) {
    char line[160];
    std::snprintf(line, sizeof line, "  %-46s %s\n", command.usage.c_str(), command.summary.c_str());
    out << line;
  }
  out << "\n"
         "FILE may be '-' for standard input. 'tivalo COMMAND --help' describes a command.\n";
}

void print_command_help(const Command& command) {
  std::cout << "usage: tivalo " << command.usage << "\n\n" << command.details << "\n";
  if (command.usage.find("FILE") != std::string::npos)
    std::cout << "\nFILE may be '-' for standard input.\n";
}

int run(const std::vector<std::string>& words) {
  if (words.empty()) {
    print_error("no command given (see 'tivalo --help')");
    return exit_failure;
  }
  if (words[0] == "--help" || words[0] == "-h" || words[0] == "help") {
    print_tool_help(std::cout);
    return exit_clean;
  }
  if (words[0] == "--version") {
    std::cout << "tivalo " << TIVALO_VERSION << "\n";
    return exit_clean;
  }
  const Command* command = find_command(words[0]);
  if (!command) {
    print_error("unknown command '" + words[0] + "' (see 'tivalo --help')");
    return exit_failure;
  }
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
