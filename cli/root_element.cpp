#include "cli/root_element.h"

#include <cctype>

namespace tivalo::cli {
namespace {

bool skip_past(std::istream& in, const std::string& end) {
  std::string last;
  for (int c; (c = in.get()) != EOF;) {
    last += static_cast<char>(c);
    if (last.size() > end.size()) last.erase(0, 1);
    if (last == end) return true;
  }
  return false;
}

// A document type declaration may carry an internal subset in brackets, with '>' inside it.
bool skip_doctype(std::istream& in) {
  int depth = 0;
  for (int c; (c = in.get()) != EOF;) {
    if (c == '[') ++depth;
    if (c == ']') --depth;
    if (c == '>' && depth <= 0) return true;
  }
  return false;
}

bool is_name_char(int c) {
  return c != EOF && !std::isspace(c) && c != '/' && c != '>' && c != '<' && c != '=';
}

}  // namespace

std::string root_element_name(std::istream& in) {
  if (in.peek() == 0xEF) {
    char bom[3];
    if (!in.read(bom, 3) || bom[1] != '\xBB' || bom[2] != '\xBF') return {};
  }
  for (int c; (c = in.get()) != EOF;) {
    if (std::isspace(c)) continue;
    if (c != '<') return {};
    const int next = in.peek();
    if (next == '?') {
      if (!skip_past(in, "?>")) return {};
    } else if (next == '!') {
      in.get();
      if (in.peek() == '-') {
        if (!skip_past(in, "-->")) return {};
      } else if (!skip_doctype(in)) {
        return {};
      }
    } else {
      std::string name;
      while (is_name_char(in.peek())) name += static_cast<char>(in.get());
      const size_t colon = name.rfind(':');
      return colon == std::string::npos ? name : name.substr(colon + 1);
    }
  }
  return {};
}

}  // namespace tivalo::cli
