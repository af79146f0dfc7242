// Xerces-C's text is UTF-16 on every platform, but its character type is not (char16_t with GCC on
// Linux, wchar_t with mingw-w64): literals are written as char16_t and handed over through these.
#pragma once

#include <xercesc/util/XercesDefs.hpp>

#include <string>

namespace Morvek::Tivalo {

static_assert(sizeof(XMLCh) == sizeof(char16_t), "Xerces-C text is UTF-16");

using XmlText = std::basic_string<XMLCh>;

inline const XMLCh* xml_chars(const char16_t* text) { return reinterpret_cast<const XMLCh*>(text); }
inline XmlText xml_text(const char16_t* text) { return XmlText(xml_chars(text)); }

}  // namespace Morvek::Tivalo
