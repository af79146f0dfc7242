// How a document operation fails: the message becomes the thread's error information, with the
// document interface as its GUID and the class's program identifier as its source.
#pragma once

#include "model/document.h"

#include <string>

namespace Morvek::Tivalo::Documents {

// Sets the error information and returns DISP_E_EXCEPTION. The message is the whole description.
HRESULT report_error(const DocumentBinding& kind, const std::wstring& message);

}  // namespace Morvek::Tivalo::Documents
