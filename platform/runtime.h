#pragma once
// The automation runtime itself: the system's own on Windows, this directory's portable stand-in
// elsewhere. The only place that tells the two systems apart.
#ifdef _WIN32
// Only the system's core and COM headers: the full set declares names (DOMDocument, min, max)
// that clash with the XML libraries and the standard library.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
// objbase.h pulls in MSXML's declarations (DOMDocument and the like) through urlmon.h, which
// uses none of them; they would clash with Xerces-C's names.
#define __msxml_h__
#include <windows.h>
#include <objbase.h>
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
