#pragma once
// One-dimensional SAFEARRAY. The element type is kept in front of the descriptor, as Windows does
// (FADF_HAVEVARTYPE), so SafeArrayGetVartype answers for every array made here.
#include "platform/hresult.h"
#include "platform/vartype.h"

typedef struct tagSAFEARRAYBOUND {
  ULONG cElements;
  LONG lLbound;
} SAFEARRAYBOUND, *LPSAFEARRAYBOUND;

typedef struct tagSAFEARRAY {
  USHORT cDims;
  USHORT fFeatures;
  ULONG cbElements;
  ULONG cLocks;
  PVOID pvData;
  SAFEARRAYBOUND rgsabound[1];
} SAFEARRAY, *LPSAFEARRAY;

#define FADF_AUTO 0x0001
#define FADF_STATIC 0x0002
#define FADF_EMBEDDED 0x0004
#define FADF_FIXEDSIZE 0x0010
#define FADF_RECORD 0x0020
#define FADF_HAVEIID 0x0040
#define FADF_HAVEVARTYPE 0x0080
#define FADF_BSTR 0x0100
#define FADF_UNKNOWN 0x0200
#define FADF_DISPATCH 0x0400
#define FADF_VARIANT 0x0800

// Element types: I1, UI1, I2, UI2, BOOL, I4, UI4, INT, UINT, R4, ERROR, R8, DATE, I8, UI8, CY,
// BSTR, DISPATCH, UNKNOWN, VARIANT. Only one dimension is supported; other requests give null.
SAFEARRAY* SafeArrayCreate(VARTYPE vt, UINT dims, SAFEARRAYBOUND* bounds);
SAFEARRAY* SafeArrayCreateVector(VARTYPE vt, LONG lowerBound, ULONG count);
HRESULT SafeArrayDestroy(SAFEARRAY* array);
HRESULT SafeArrayCopy(SAFEARRAY* array, SAFEARRAY** copy);
UINT SafeArrayGetDim(SAFEARRAY* array);
UINT SafeArrayGetElemsize(SAFEARRAY* array);
HRESULT SafeArrayGetLBound(SAFEARRAY* array, UINT dim, LONG* lowerBound);
HRESULT SafeArrayGetUBound(SAFEARRAY* array, UINT dim, LONG* upperBound);
HRESULT SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* vt);
HRESULT SafeArrayLock(SAFEARRAY* array);
HRESULT SafeArrayUnlock(SAFEARRAY* array);
HRESULT SafeArrayAccessData(SAFEARRAY* array, void HUGEP** data);
HRESULT SafeArrayUnaccessData(SAFEARRAY* array);
HRESULT SafeArrayPtrOfIndex(SAFEARRAY* array, LONG* indices, void HUGEP** element);
// Put copies the value in (a BSTR is duplicated, an interface AddRef'd, a VARIANT copied) and
// frees the value it replaces; Get hands out such a copy, which the caller owns.
HRESULT SafeArrayPutElement(SAFEARRAY* array, LONG* indices, void* value);
HRESULT SafeArrayGetElement(SAFEARRAY* array, LONG* indices, void* value);
