#include "cli/command.h"

#include "cli/text.h"

#include <iostream>

namespace tivalo::cli {
namespace {

const Option* find_option(const Command& command, const std::string& word) {
  for (const Option& option : command.options) {
    if (word == option.name || (!option.short_name.empty() && word == option.short_name)) return &option;
  }
  return nullptr;
}

std::string one_line(const std::string& message) {
  std::string line;
  for (char c : message) {
    if (c == '\r') continue;
    line += c == '\n' ? std::string("; ") : std::string(1, c);
  }
  while (line.size() >= 2 && line.compare(line.size() - 2, 2, "; ") == 0) line.resize(line.size() - 2);
  return line;
}

}  // namespace

const std::string* Arguments::option(const std::string& name) const {
  auto found = options.find(name);
  return found == options.end() ? nullptr : &found->second;
}

Arguments parse_arguments(const Command& command, const std::vector<std::string>& words) {
  Arguments arguments;
  bool options_ended = false;
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (options_ended || word == "-" || word.empty() || word[0] != '-') {
      arguments.operands.push_back(word);
    } else if (word == "--") {
      options_ended = true;
    } else if (word == "--help" || word == "-h") {
      arguments.help = true;
    } else {
      const size_t equals = word.find('=');
      const std::string key = word.substr(0, equals);
      const Option* option = find_option(command, key);
      if (!option) throw UsageError("unknown option '" + key + "'");
      if (equals != std::string::npos) {
        arguments.options[option->name] = word.substr(equals + 1);
      } else if (i + 1 < words.size()) {
        arguments.options[option->name] = words[++i];
      } else {
        throw UsageError("option '" + key + "' needs a value");
      }
    }
  }
  if (arguments.help) return arguments;
  const int count = static_cast<int>(arguments.operands.size());
  if (count < command.min_operands) throw UsageError("missing operand");
  if (command.max_operands >= 0 && count > command.max_operands)
    throw UsageError("unexpected operand '" + arguments.operands[command.max_operands] + "'");
  return arguments;
}

void print_error(const std::string& source, const std::string& message) {
  std::cerr << "tivalo: " << located(source, one_line(message)) << std::endl;
}

void print_error(const std::string& message) {
  std::cerr << "tivalo: " << one_line(message) << std::endl;
}

}  // namespace tivalo::cli
