#include "cli/command.h"

#include "cli/text.h"

#include <algorithm>
#include <iostream>

namespace tivalo::cli {
namespace {

const Option* find_option(const Command& command, const std::string& word) {
  for (const Option& option : command.options) {
    if (word == option.name || (!option.short_name.empty() && word == option.short_name)) return &option;
  }
  return nullptr;
}

// The component's messages begin with "Tivalo: "; the tool's line already says who speaks.
std::string one_line(const std::string& message) {
  static const std::string component_prefix = "Tivalo: ";
  std::string line;
  for (char c : message) {
    if (c == '\r') continue;
    line += c == '\n' ? std::string("; ") : std::string(1, c);
  }
  while (line.size() >= 2 && line.compare(line.size() - 2, 2, "; ") == 0) line.resize(line.size() - 2);
  if (line.compare(0, component_prefix.size(), component_prefix) == 0) line.erase(0, component_prefix.size());
  return line;
}

size_t edit_distance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

std::string unknown_option(const Command& command, const std::string& key) {
  std::vector<std::string> names;
  for (const Option& option : command.options) names.push_back(option.name);
  const std::string close = closest_word(key, names);
  return "unknown option '" + key + "'" + (close.empty() ? "" : "; did you mean '" + close + "'?");
}

}  // namespace

std::string closest_word(const std::string& word, const std::vector<std::string>& known) {
  std::string best;
  size_t best_distance = word.size() < 5 ? 1 : 2;
  for (const std::string& candidate : known) {
    const size_t distance = edit_distance(word, candidate);
    if (distance <= best_distance && (best.empty() || distance < edit_distance(word, best)))
      best = candidate;
  }
  return best;
}

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
      if (!option) throw UsageError(unknown_option(command, key));
      if (!option->takes_value) {
        if (equals != std::string::npos) throw UsageError("option '" + key + "' takes no value");
        arguments.options[option->name] = "";
      } else if (equals != std::string::npos) {
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
  std::cerr << "tivalo: " << escape_controls(located(source, one_line(message))) << std::endl;
}

void print_error(const std::string& message) {
  std::cerr << "tivalo: " << escape_controls(one_line(message)) << std::endl;
}

}  // namespace tivalo::cli
