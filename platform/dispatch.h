#pragma once
// The argument and exception records of IDispatch::Invoke, with the dispatch constants.
#include "platform/variant.h"

typedef struct tagDISPPARAMS {
  VARIANTARG* rgvarg;  // arguments in reverse order
  DISPID* rgdispidNamedArgs;
  UINT cArgs;
  UINT cNamedArgs;
} DISPPARAMS;

typedef struct tagEXCEPINFO {
  WORD wCode;
  WORD wReserved;
  BSTR bstrSource;
  BSTR bstrDescription;
  BSTR bstrHelpFile;
  DWORD dwHelpContext;
  PVOID pvReserved;
  HRESULT(STDMETHODCALLTYPE* pfnDeferredFillIn)(struct tagEXCEPINFO*);
  SCODE scode;
} EXCEPINFO, *LPEXCEPINFO;

#define DISPATCH_METHOD 0x1
#define DISPATCH_PROPERTYGET 0x2
#define DISPATCH_PROPERTYPUT 0x4
#define DISPATCH_PROPERTYPUTREF 0x8

#define DISPID_UNKNOWN (-1)
#define DISPID_VALUE (0)
#define DISPID_PROPERTYPUT (-3)
#define DISPID_NEWENUM (-4)
#define DISPID_EVALUATE (-5)
#define DISPID_CONSTRUCTOR (-6)
#define DISPID_DESTRUCTOR (-7)
#define DISPID_COLLECT (-8)
#define MEMBERID_NIL DISPID_UNKNOWN

#define LOCALE_NEUTRAL 0x0000
#define LOCALE_INVARIANT 0x007f
#define LOCALE_USER_DEFAULT 0x0400
#define LOCALE_SYSTEM_DEFAULT 0x0800
