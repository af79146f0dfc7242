#pragma once
// The braced text form of a GUID, "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}".
#include <string>

#include "platform/runtime.h"

namespace tivalo {
// Lower-case hex, the spelling of the registry scripts and the interface catalogue.
std::wstring to_wstring(const GUID& guid);
// Accepts the braced form with hex digits in either case; false for anything else.
bool parse_guid(const wchar_t* text, GUID& guid);
}  // namespace tivalo
