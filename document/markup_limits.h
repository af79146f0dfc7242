// Limits on the shape of a document. No UBL document comes near them, but past them the parsers'
// costs grow faster than the document (attributes of one element are compared pairwise, nested
// content is copied recursively), so a document beyond them is refused before it is parsed.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include <xercesc/util/XercesDefs.hpp>

XERCES_CPP_NAMESPACE_BEGIN
class XMLTranscoder;
XERCES_CPP_NAMESPACE_END

namespace Morvek::Tivalo {

// Releases a transcoder of the parser's. Out of line, so that the tool's own check, which is
// built without the parser, never names the transcoder's type.
struct TranscoderRelease {
  void operator()(xercesc::XMLTranscoder* transcoder) const;
};
using Transcoder = std::unique_ptr<xercesc::XMLTranscoder, TranscoderRelease>;

inline constexpr std::size_t max_element_depth = 1000;
inline constexpr std::size_t max_attributes_per_element = 100;

enum class MarkupExcess { none, depth, attributes };

// The message for a document refused for `excess`.
std::wstring excess_message(MarkupExcess excess);

// Whether the XML parser reads these bytes (the beginning of a document) as UTF-8: no byte order
// mark but UTF-8's, ASCII markup, and no encoding declared but UTF-8.
bool read_as_utf8(std::string_view head);

// Looks at the markup of a document's bytes without parsing it: start and end tags, comments,
// CDATA sections and processing instructions, in every encoding the parser reads. UTF-8, the
// encodings whose markup characters are ASCII bytes, UTF-16 and UTF-32 are looked at unit by unit;
// any other (EBCDIC, UTF-7, ...) is decoded first with the parser's own transcoder, so what is
// counted is what the parser will see. Stops at a declaration ("<!DOCTYPE"): the parser refuses
// those. Fed piece by piece as a document is read, it looks at every unit once and refuses a
// flood before the rest has arrived.
class MarkupScan {
 public:
  // With `utf8` the bytes are UTF-8 whatever encoding their declaration names.
  explicit MarkupScan(bool utf8 = false);
  ~MarkupScan();
  MarkupScan(const MarkupScan&) = delete;
  MarkupScan& operator=(const MarkupScan&) = delete;

  // Where the scan stands, carried from one piece to the next.
  struct State {
    enum class Mode : unsigned char {
      text, open, bang, bang_dash, cdata_open, comment, cdata, instruction, end_tag, start_tag, done
    };
    Mode mode = Mode::text;
    unsigned char matched = 0;  // of "CDATA[" after "<!["
    char32_t quote = 0, previous = 0, before_previous = 0;
    std::size_t depth = 0;       // elements open
    std::size_t attributes = 0;  // of the start tag being looked at
  };

  // `document` is everything read so far that the caller has not dropped (each call the same or
  // a longer text); `complete` once it reaches the end of the document.
  MarkupExcess more(std::string_view document, bool complete = false);

  // How many bytes from the beginning of what the caller holds the scan has passed: all of them
  // once it has stopped at a declaration or met an encoding the parser cannot read.
  std::size_t passed(std::size_t available) const;

  // The caller is to drop up to `bytes` (no more than `passed`) from the front of what it hands
  // to `more`: returns how many to drop, whole code units only.
  std::size_t forget(std::size_t bytes);

 private:
  enum class Encoding { unknown, byte, utf16le, utf16be, utf32le, utf32be, transcoded, other };
  bool detect(std::string_view document, bool complete);
  MarkupExcess transcode(std::string_view document);
  std::size_t unit_width() const;

  Encoding encoding_ = Encoding::unknown;
  Transcoder transcoder_;
  std::size_t fed_ = 0;  // bytes looked at, from the front of what the caller holds
  State state_;
};

MarkupExcess markup_excess(std::string_view document, bool utf8 = false);

// The same for a caller's text, before it is converted to bytes.
MarkupExcess markup_excess(std::wstring_view text);

}  // namespace Morvek::Tivalo
