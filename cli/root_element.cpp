#include "cli/root_element.h"

#include <array>
#include <cctype>

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
    if (ebcdic_) {
      const int byte = next_byte();
      return byte == EOF ? end_of_text : from_ebcdic(byte);
    }
    if (utf7_) return utf7_get();
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
    if (width_ != 1) return;
    ebcdic_ = is({0x4C, 0x6F, 0xA7, 0x94}, 4);
    if (!ebcdic_ && skip == 0) utf7_ = declares_utf7();
  }

  // The declaration of a document whose markup is ASCII bytes names the encoding of the rest.
  bool declares_utf7() {
    if (detected_.compare(0, 4, "<?xm") != 0) return false;
    while (detected_.size() < 1024 && detected_.find("?>") == std::string::npos) {
      const int byte = in_.get();
      if (byte == EOF) break;
      detected_ += static_cast<char>(byte);
    }
    const std::string declaration = detected_.substr(0, detected_.find("?>"));
    const size_t name = declaration.find("encoding");
    if (name == std::string::npos) return false;
    const size_t quote = declaration.find_first_of("\"'", name);
    if (quote == std::string::npos) return false;
    std::string encoding = declaration.substr(quote + 1, 5);
    for (char& c : encoding) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return encoding == "UTF-7" && declaration.size() > quote + 6 &&
           declaration[quote + 6] == declaration[quote];
  }

  // EBCDIC (code page 037; the characters of markup and names are the same in its variants).
  static int from_ebcdic(int byte) {
    static const std::array<int, 256> ascii = [] {
      std::array<int, 256> table{};
      const char printable[] =  // the EBCDIC bytes of ASCII 0x20 to 0x7E
          "\x40\x5A\x7F\x7B\x5B\x6C\x50\x7D\x4D\x5D\x5C\x4E\x6B\x60\x4B\x61\xF0\xF1\xF2\xF3"
          "\xF4\xF5\xF6\xF7\xF8\xF9\x7A\x5E\x4C\x7E\x6E\x6F\x7C\xC1\xC2\xC3\xC4\xC5\xC6\xC7"
          "\xC8\xC9\xD1\xD2\xD3\xD4\xD5\xD6\xD7\xD8\xD9\xE2\xE3\xE4\xE5\xE6\xE7\xE8\xE9\xBA"
          "\xE0\xBB\xB0\x6D\x79\x81\x82\x83\x84\x85\x86\x87\x88\x89\x91\x92\x93\x94\x95\x96"
          "\x97\x98\x99\xA2\xA3\xA4\xA5\xA6\xA7\xA8\xA9\xC0\x4F\xD0\xA1";
      table.fill('?');  // beyond ASCII: only ever part of a name or text here
      for (int c = 0x20; c < 0x7F; ++c) table[static_cast<unsigned char>(printable[c - 0x20])] = c;
      table[0x05] = '\t';
      table[0x0D] = '\r';
      table[0x15] = table[0x25] = '\n';
      return table;
    }();
    return ascii[static_cast<unsigned>(byte) & 0xFF];
  }

  static int base64_value(int c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    return c == '+' ? 62 : c == '/' ? 63 : -1;
  }

  // UTF-7: ASCII, with "+...-" runs of UTF-16 in base64 ("+ADw-" is '<') and "+-" for '+'.
  int utf7_get() {
    for (;;) {
      const int byte = next_byte();
      if (byte == EOF) return end_of_text;
      if (!in_base64_) {
        if (byte != '+') return byte;
        const int next = next_byte();
        if (next == '-') return '+';
        if (next != EOF) detected_.insert(detected_.begin(), static_cast<char>(next));
        in_base64_ = true;
        bits_ = bit_count_ = 0;
        continue;
      }
      const int value = base64_value(byte);
      if (value < 0) {
        in_base64_ = false;
        if (byte == '-') continue;
        return byte;
      }
      bits_ = (bits_ << 6 | static_cast<unsigned long>(value)) & 0xFFFFFF;
      bit_count_ += 6;
      if (bit_count_ < 16) continue;
      bit_count_ -= 16;
      unsigned long unit = (bits_ >> bit_count_) & 0xFFFF;
      if (unit >= 0xD800 && unit < 0xDC00) {
        high_surrogate_ = unit;
        continue;
      }
      if (high_surrogate_ && unit >= 0xDC00 && unit < 0xE000)
        unit = 0x10000 + ((high_surrogate_ - 0xD800) << 10) + (unit - 0xDC00);
      high_surrogate_ = 0;
      if (unit < 0x80) return static_cast<int>(unit);
      pending_ = utf8(unit);
      return get();
    }
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
  bool ebcdic_ = false;
  bool utf7_ = false;
  bool in_base64_ = false;
  unsigned long bits_ = 0;
  int bit_count_ = 0;
  unsigned long high_surrogate_ = 0;
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
