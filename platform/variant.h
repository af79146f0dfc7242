#pragma once
// VARIANT with the Windows layout and field names, and the Variant* functions.
#include "platform/bstr.h"
#include "platform/hresult.h"
#include "platform/safearray.h"
#include "platform/vartype.h"

struct IUnknown;
struct IDispatch;
struct IRecordInfo;

typedef union tagCY {
  __extension__ struct {
    ULONG Lo;
    LONG Hi;
  };
  LONGLONG int64;
} CY;

typedef struct tagDEC {
  USHORT wReserved;
  BYTE scale;
  BYTE sign;
  ULONG Hi32;
  ULONGLONG Lo64;
} DECIMAL;

typedef struct tagVARIANT VARIANT;
typedef VARIANT VARIANTARG;
typedef VARIANT* LPVARIANT;
typedef VARIANT* LPVARIANTARG;

struct tagVARIANT {
  union {
    __extension__ struct {
      VARTYPE vt;
      WORD wReserved1;
      WORD wReserved2;
      WORD wReserved3;
      union {
        LONGLONG llVal;
        LONG lVal;
        BYTE bVal;
        SHORT iVal;
        FLOAT fltVal;
        DOUBLE dblVal;
        VARIANT_BOOL boolVal;
        SCODE scode;
        CY cyVal;
        DATE date;
        BSTR bstrVal;
        IUnknown* punkVal;
        IDispatch* pdispVal;
        SAFEARRAY* parray;
        BYTE* pbVal;
        SHORT* piVal;
        LONG* plVal;
        LONGLONG* pllVal;
        FLOAT* pfltVal;
        DOUBLE* pdblVal;
        VARIANT_BOOL* pboolVal;
        SCODE* pscode;
        CY* pcyVal;
        DATE* pdate;
        BSTR* pbstrVal;
        IUnknown** ppunkVal;
        IDispatch** ppdispVal;
        SAFEARRAY** pparray;
        VARIANT* pvarVal;
        PVOID byref;
        CHAR cVal;
        USHORT uiVal;
        ULONG ulVal;
        ULONGLONG ullVal;
        INT intVal;
        UINT uintVal;
        DECIMAL* pdecVal;
        CHAR* pcVal;
        USHORT* puiVal;
        ULONG* pulVal;
        ULONGLONG* pullVal;
        INT* pintVal;
        UINT* puintVal;
        __extension__ struct {
          PVOID pvRecord;
          IRecordInfo* pRecInfo;
        } brecVal;
      };
    };
    DECIMAL decVal;
  };
};

#define V_VT(X) ((X)->vt)
#define V_UNION(X, Y) ((X)->Y)
#define V_ISBYREF(X) (V_VT(X) & VT_BYREF)
#define V_ISARRAY(X) (V_VT(X) & VT_ARRAY)
#define V_ISVECTOR(X) (V_VT(X) & VT_VECTOR)
#define V_NONE(X) V_I2(X)
#define V_UI1(X) V_UNION(X, bVal)
#define V_UI1REF(X) V_UNION(X, pbVal)
#define V_I1(X) V_UNION(X, cVal)
#define V_I2(X) V_UNION(X, iVal)
#define V_I2REF(X) V_UNION(X, piVal)
#define V_UI2(X) V_UNION(X, uiVal)
#define V_I4(X) V_UNION(X, lVal)
#define V_I4REF(X) V_UNION(X, plVal)
#define V_UI4(X) V_UNION(X, ulVal)
#define V_I8(X) V_UNION(X, llVal)
#define V_UI8(X) V_UNION(X, ullVal)
#define V_INT(X) V_UNION(X, intVal)
#define V_UINT(X) V_UNION(X, uintVal)
#define V_R4(X) V_UNION(X, fltVal)
#define V_R8(X) V_UNION(X, dblVal)
#define V_R8REF(X) V_UNION(X, pdblVal)
#define V_CY(X) V_UNION(X, cyVal)
#define V_DATE(X) V_UNION(X, date)
#define V_DATEREF(X) V_UNION(X, pdate)
#define V_BSTR(X) V_UNION(X, bstrVal)
#define V_BSTRREF(X) V_UNION(X, pbstrVal)
#define V_DISPATCH(X) V_UNION(X, pdispVal)
#define V_DISPATCHREF(X) V_UNION(X, ppdispVal)
#define V_ERROR(X) V_UNION(X, scode)
#define V_BOOL(X) V_UNION(X, boolVal)
#define V_BOOLREF(X) V_UNION(X, pboolVal)
#define V_UNKNOWN(X) V_UNION(X, punkVal)
#define V_UNKNOWNREF(X) V_UNION(X, ppunkVal)
#define V_VARIANTREF(X) V_UNION(X, pvarVal)
#define V_ARRAY(X) V_UNION(X, parray)
#define V_ARRAYREF(X) V_UNION(X, pparray)
#define V_BYREF(X) V_UNION(X, byref)
#define V_DECIMAL(X) ((X)->decVal)

// VariantChangeType flags.
#define VARIANT_NOVALUEPROP 0x01
#define VARIANT_ALPHABOOL 0x02
#define VARIANT_NOUSEROVERRIDE 0x04
#define VARIANT_LOCALBOOL 0x10

void VariantInit(VARIANTARG* variant);
// Frees what the variant owns (never what a VT_BYREF points at) and leaves it VT_EMPTY.
HRESULT VariantClear(VARIANTARG* variant);
// Clears `dest`, then copies: BSTRs and arrays are duplicated, interfaces AddRef'd, and a
// VT_BYREF variant is copied as the reference itself.
HRESULT VariantCopy(VARIANTARG* dest, const VARIANTARG* source);
// As VariantCopy, but a VT_BYREF source is copied as the value it refers to.
HRESULT VariantCopyInd(VARIANT* dest, const VARIANTARG* source);
// The coercions of script hosts. Reals become integers by rounding half to even; a value out of
// the target's range gives DISP_E_OVERFLOW, text that is not a value DISP_E_TYPEMISMATCH, and so
// does VT_NULL except to VT_NULL. An object converts through its DISPID_VALUE member unless
// VARIANT_NOVALUEPROP is given. Text is read and written in an invariant form whatever the
// locale: numbers with '.' as the decimal point and no grouping (reals with 15 significant
// digits, "1E+20" style exponents); dates as "YYYY-MM-DD",
// "YYYY-MM-DD HH:MM:SS" or "HH:MM:SS" (the last for a DATE whose day part is zero). A BOOL
// becomes "-1"/"0", or "True"/"False" with VARIANT_ALPHABOOL; text "True"/"False" in any case
// converts back. On failure `dest` is left as it was.
HRESULT VariantChangeType(VARIANTARG* dest, const VARIANTARG* source, USHORT flags, VARTYPE vt);
HRESULT VariantChangeTypeEx(VARIANTARG* dest, const VARIANTARG* source, LCID lcid, USHORT flags,
                            VARTYPE vt);
