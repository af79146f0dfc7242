#pragma once
// Rich error information on a per-thread slot.
#include "platform/interfaces.h"

// A new error object answering both ICreateErrorInfo and IErrorInfo.
HRESULT CreateErrorInfo(ICreateErrorInfo** errorInfo);
// Replaces the calling thread's error object (null clears it). `reserved` must be 0.
HRESULT SetErrorInfo(ULONG reserved, IErrorInfo* errorInfo);
// Hands the thread's error object to the caller and empties the slot; S_FALSE and null when
// there is none.
HRESULT GetErrorInfo(ULONG reserved, IErrorInfo** errorInfo);
