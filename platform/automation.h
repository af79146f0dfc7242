#pragma once
// The one header the rest of the code includes: the automation runtime (see runtime.h) and what
// this project adds to it on every system.
#include "platform/runtime.h"
#include "platform/iid_of.h"
#include "platform/com_ptr.h"
#include "platform/owned_bstr.h"
#include "platform/guid_text.h"
#include "platform/report_invalid_parameter.h"
