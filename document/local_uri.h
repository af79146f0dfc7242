// What the libxml2 users of the tool and the component may load: local files only.
#pragma once

#include <cctype>
#include <strings.h>

namespace Morvek::Tivalo {

// A URI that names something other than a local file: "http://", "ftp://", ... Leading
// whitespace does not hide a scheme. One-letter schemes are drive letters.
inline bool is_remote(const char* uri) {
  if (!uri) return false;
  while (*uri && std::isspace(static_cast<unsigned char>(*uri))) ++uri;
  const char* c = uri;
  if (!std::isalpha(static_cast<unsigned char>(*c))) return false;
  while (std::isalnum(static_cast<unsigned char>(*c)) || *c == '+' || *c == '-' || *c == '.') ++c;
  if (*c != ':' || c - uri < 2) return false;
  return !(c - uri == 4 && strncasecmp(uri, "file", 4) == 0);
}

}  // namespace Morvek::Tivalo
