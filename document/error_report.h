// How a document operation fails: the message becomes the thread's error information, with the
// document interface as its GUID and the class's program identifier as its source.
#pragma once

// The binding runtime's configuration (C++11, wide characters) comes before any of its headers.
#include "binding/xml-schema.hxx"
#include "model/document.h"

#include <string>

namespace Morvek::Tivalo::Documents {

// Sets the error information and returns DISP_E_EXCEPTION. The message is the whole description.
HRESULT report_error(const DocumentBinding& kind, const std::wstring& message);

}  // namespace Morvek::Tivalo::Documents
