// What tells the component's libraries apart: the UBL 2.0 library (TivaloCOM) and the UBL 2.1
// library (TivaloCOM21) are built from the same module code, each with its own identity.
#pragma once

namespace Morvek::Tivalo::Identity {

extern const wchar_t* const progid_prefix;  // L"TivaloCOM.", before the class name
extern const wchar_t* const app_id;         // the application identity's GUID
extern const int app_id_resource;           // its registry script
extern const int first_class_resource;      // class k's registry script is this + k
// The libraries the runtime loads from beside this one when a class it does not know is asked
// for; null-terminated. Only the library that carries the runtime (UBL 2.0's) names any.
extern const char* const other_libraries[];

}  // namespace Morvek::Tivalo::Identity
