#pragma once
// Scalar types, calling-convention macros and status codes of the automation runtime,
// named as the Windows SDK names them so that the same sources build on both systems.
#include <cstddef>
#include <cstdint>

typedef int32_t LONG;
typedef uint32_t ULONG;
typedef int64_t LONGLONG;
typedef uint64_t ULONGLONG;
typedef uint32_t DWORD;
typedef uint16_t WORD;
typedef uint8_t BYTE;
typedef int16_t SHORT;
typedef uint16_t USHORT;
typedef int INT;
typedef unsigned int UINT;
typedef char CHAR;
typedef float FLOAT;
typedef double DOUBLE;
typedef int BOOL;  // the Win32 BOOL (int); the automation boolean is VARIANT_BOOL
typedef intptr_t INT_PTR;
typedef uintptr_t UINT_PTR;
typedef intptr_t LONG_PTR;
typedef uintptr_t ULONG_PTR;
typedef size_t SIZE_T;
typedef void* PVOID;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef BOOL* LPBOOL;

typedef wchar_t WCHAR;
typedef wchar_t OLECHAR;
typedef OLECHAR* LPOLESTR;
typedef const OLECHAR* LPCOLESTR;
typedef WCHAR* LPWSTR;
typedef const WCHAR* LPCWSTR;
typedef const WCHAR* LPCWCH;
typedef CHAR* LPSTR;
typedef const CHAR* LPCSTR;
typedef const CHAR* LPCCH;

typedef LONG HRESULT;
typedef LONG SCODE;
typedef DWORD LCID;
typedef LONG DISPID;
typedef DISPID MEMBERID;
typedef DWORD HREFTYPE;

typedef SHORT VARIANT_BOOL;
typedef double DATE;
typedef OLECHAR* BSTR;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif
#define VARIANT_TRUE ((VARIANT_BOOL)-1)
#define VARIANT_FALSE ((VARIANT_BOOL)0)

// Calling conventions do not exist on the Linux ABI; the macros keep Windows-style declarations valid.
#define STDMETHODCALLTYPE
#define STDAPICALLTYPE
#define WINAPI
#define CALLBACK
#define STDMETHODIMP HRESULT STDMETHODCALLTYPE
#define STDMETHODIMP_(type) type STDMETHODCALLTYPE
#define STDAPI extern "C" HRESULT STDAPICALLTYPE
#define STDAPI_(type) extern "C" type STDAPICALLTYPE
#define HUGEP
