#pragma once
// BSTR: a wide string preceded by its length in bytes (32 bits), allocated by the Sys* functions.
// A null BSTR is a valid empty string everywhere.
#include "platform/types.h"

BSTR SysAllocString(const OLECHAR* text);
BSTR SysAllocStringLen(const OLECHAR* text, UINT length);
// `length` counts bytes; the bytes are copied as they are and followed by a wide terminator.
BSTR SysAllocStringByteLen(LPCSTR bytes, UINT length);
INT SysReAllocString(BSTR* target, const OLECHAR* text);
INT SysReAllocStringLen(BSTR* target, const OLECHAR* text, UINT length);
void SysFreeString(BSTR text);
UINT SysStringLen(BSTR text);
UINT SysStringByteLen(BSTR text);
