#pragma once
// The automation runtime itself: the system's own on Windows, this directory's portable stand-in
// elsewhere. The only place that tells the two systems apart.
#ifdef _WIN32
#include <windows.h>
#include <oleauto.h>
#include <stdlib.h>
typedef _invalid_parameter_handler tivalo_invalid_parameter_handler;
#else
#include "platform/types.h"
#include "platform/hresult.h"
#include "platform/vartype.h"
#include "platform/guid.h"
#include "platform/bstr.h"
#include "platform/safearray.h"
#include "platform/variant.h"
#include "platform/date.h"
#include "platform/dispatch.h"
#include "platform/typeinfo.h"
#include "platform/interfaces.h"
#include "platform/errorinfo.h"
#include "platform/com.h"
#include "platform/codepage.h"
#include "platform/invalid_parameter.h"
#endif
