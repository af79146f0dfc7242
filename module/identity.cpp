// Compiled once per library: TIVALO_UBL21 selects the UBL 2.1 library's identity.
#include "module/identity.h"

namespace Morvek::Tivalo::Identity {

#ifdef TIVALO_UBL21
const wchar_t* const progid_prefix = L"TivaloCOM21.";
const wchar_t* const app_id = L"{08108071-BA75-4C72-84CE-4DBACCBF22CF}";
const int app_id_resource = 1001;
const int first_class_resource = 1003;
const char* const other_libraries[] = {nullptr};
#else
const wchar_t* const progid_prefix = L"TivaloCOM.";
const wchar_t* const app_id = L"{AEE0CF80-B399-48ac-B500-9F82BBC0F322}";
const int app_id_resource = 101;
const int first_class_resource = 103;
#ifdef TIVALO_UBL21_LIBRARY
const char* const other_libraries[] = {TIVALO_UBL21_LIBRARY, nullptr};
#else
const char* const other_libraries[] = {nullptr};
#endif
#endif

}  // namespace Morvek::Tivalo::Identity
