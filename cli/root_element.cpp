#include "cli/root_element.h"

#include <array>

namespace tivalo::cli {
namespace {

constexpr int end_of_text = -1;

// Characters of the text, whatever the width of its code units; what lies beyond ASCII is only
// ever part of a name or text here and comes back as UTF-8 bytes.
class Characters {
 public:
  explicit Characters(std::istream& in) : in_(in) { detect(); }

  int get() {
    if (!pending_.empty()) {
      const int c = static_cast<unsigned char>(pending_.front());
      pending_.erase(0, 1);
      return c;
    }
    unsigned long code = 0;
    for (int i = 0; i < width_; ++i) {
      const int byte = next_byte();
      if (byte == EOF) return end_of_text;
      code = big_endian_ ? (code << 8) | static_cast<unsigned>(byte)
                         : code | (static_cast<unsigned long>(byte) << (8 * i));
    }
    if (code < 0x80 || width_ == 1) return static_cast<int>(code);
    pending_ = utf8(code);
    return get();
  }

  int peek() {
    if (!pending_.empty()) return static_cast<unsigned char>(pending_.front());
    const int c = get();
    if (c != end_of_text) pending_.insert(pending_.begin(), static_cast<char>(c));
    return c;
  }

 private:
  void detect() {
    std::array<int, 4> head{};
    int count = 0;
    for (; count < 4; ++count) {
      head[count] = in_.get();
      if (head[count] == EOF) break;
    }
    const auto is = [&](std::array<int, 4> pattern, int length) {
      for (int i = 0; i < length; ++i)
        if (i >= count || head[i] != pattern[i]) return false;
      return true;
    };
    int skip = 0;
    if (is({0xEF, 0xBB, 0xBF, 0}, 3)) { skip = 3; }
    else if (is({0xFF, 0xFE, 0, 0}, 4)) { width_ = 4; skip = 4; }
    else if (is({0, 0, 0xFE, 0xFF}, 4)) { width_ = 4; big_endian_ = true; skip = 4; }
    else if (is({0xFF, 0xFE, 0, 0}, 2)) { width_ = 2; skip = 2; }
    else if (is({0xFE, 0xFF, 0, 0}, 2)) { width_ = 2; big_endian_ = true; skip = 2; }
    else if (is({'<', 0, 0, 0}, 4)) { width_ = 4; }
    else if (is({0, 0, 0, '<'}, 4)) { width_ = 4; big_endian_ = true; }
    else if (is({'<', 0, 0, 0}, 2) && count == 4 && head[3] == 0) { width_ = 2; }
    else if (is({0, '<', 0, 0}, 2) && count == 4 && head[2] == 0) { width_ = 2; big_endian_ = true; }
    // What the detection read and did not skip is text: it goes through the decoder first.
    for (int i = skip; i < count; ++i) detected_ += static_cast<char>(head[i]);
  }

  int next_byte() {
    if (detected_.empty()) return in_.get();
    const int byte = static_cast<unsigned char>(detected_.front());
    detected_.erase(0, 1);
    return byte;
  }

  static std::string utf8(unsigned long code) {
    std::string bytes;
    if (code < 0x800) {
      bytes += static_cast<char>(0xC0 | (code >> 6));
    } else if (code < 0x10000) {
      bytes += static_cast<char>(0xE0 | (code >> 12));
      bytes += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    } else {
      bytes += static_cast<char>(0xF0 | ((code >> 18) & 0x07));
      bytes += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
      bytes += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    }
    bytes += static_cast<char>(0x80 | (code & 0x3F));
    return bytes;
  }

  std::istream& in_;
  int width_ = 1;
  bool big_endian_ = false;
  std::string pending_;   // UTF-8 bytes of a character not yet handed out
  std::string detected_;  // bytes read while detecting the encoding
};

bool is_space(int c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

bool skip_past(Characters& in, const std::string& end) {
  std::string last;
  for (int c; (c = in.get()) != end_of_text;) {
    last += static_cast<char>(c);
    if (last.size() > end.size()) last.erase(0, 1);
    if (last == end) return true;
  }
  return false;
}

// A document type declaration may carry an internal subset in brackets, with '>' inside it.
bool skip_doctype(Characters& in) {
  int depth = 0;
  for (int c; (c = in.get()) != end_of_text;) {
    if (c == '[') ++depth;
    if (c == ']') --depth;
    if (c == '>' && depth <= 0) return true;
  }
  return false;
}

bool is_name_char(int c) {
  return c != end_of_text && !is_space(c) && c != '/' && c != '>' && c != '<' && c != '=';
}

std::string local_name(Characters& in) {
  std::string name;
  while (is_name_char(in.peek())) name += static_cast<char>(in.get());
  const size_t colon = name.rfind(':');
  return colon == std::string::npos ? name : name.substr(colon + 1);
}

// The text of the first UBLVersionID element near the top of the document.
std::string ubl_version(Characters& in) {
  constexpr long look_at_most = 1 << 20;
  for (long seen = 0; seen < look_at_most; ++seen) {
    const int c = in.get();
    if (c == end_of_text) break;
    if (c != '<' || !is_name_char(in.peek())) continue;
    if (local_name(in) != "UBLVersionID") continue;
    if (!skip_past(in, ">")) break;
    std::string text;
    for (int t; (t = in.get()) != end_of_text && t != '<' && text.size() < 64;) text += static_cast<char>(t);
    const size_t first = text.find_first_not_of(" \t\r\n");
    const size_t last = text.find_last_not_of(" \t\r\n");
    return first == std::string::npos ? "" : text.substr(first, last - first + 1);
  }
  return {};
}

}  // namespace

DocumentHead read_document_head(std::istream& in) {
  Characters text(in);
  DocumentHead head;
  for (int c; (c = text.get()) != end_of_text;) {
    if (is_space(c)) continue;
    if (c != '<') return head;
    const int next = text.peek();
    if (next == '?') {
      if (!skip_past(text, "?>")) return head;
    } else if (next == '!') {
      text.get();
      if (text.peek() == '-') {
        if (!skip_past(text, "-->")) return head;
      } else if (!skip_doctype(text)) {
        return head;
      }
    } else {
      head.root = local_name(text);
      if (!head.root.empty()) head.ubl_version = ubl_version(text);
      return head;
    }
  }
  return head;
}

std::string root_element_name(std::istream& in) { return read_document_head(in).root; }

}  // namespace tivalo::cli
