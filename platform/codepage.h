#pragma once
// Text conversion between wide strings (UTF-32 wchar_t) and bytes. CP_ACP is ISO-8859-1, a
// one-to-one mapping (byte b <-> wchar_t b). The thread's ANSI code page (CP_THREAD_ACP) is the
// code set of the locale in effect for the calling thread: UTF-8 when that is UTF-8, else
// ISO-8859-1 (the "C" locale of a program that never calls setlocale).
#include "platform/hresult.h"

#define CP_ACP 0
#define CP_OEMCP 1
#define CP_THREAD_ACP 3
#define CP_LATIN1 28591  // ISO-8859-1, the code page CP_ACP stands for
#define CP_UTF8 65001

#define MB_ERR_INVALID_CHARS 0x00000008
#define WC_ERR_INVALID_CHARS 0x00000080
#define WC_NO_BEST_FIT_CHARS 0x00000400

// The code page CP_ACP stands for.
UINT GetACP();

// Lengths follow Windows: -1 for a NUL-terminated source whose terminator is converted too; an
// output size of 0 asks for the size needed. 0 is returned on failure, with GetLastError set.
// In ISO-8859-1 a wide character above 0xFF becomes the default character ('?' unless given)
// and sets *usedDefaultChar; WC_ERR_INVALID_CHARS is refused there with ERROR_INVALID_FLAGS.
// In UTF-8 an invalid sequence or code point becomes U+FFFD, or fails with
// ERROR_NO_UNICODE_TRANSLATION under MB_/WC_ERR_INVALID_CHARS; a wide high surrogate followed
// by a low one (UTF-16 text held in wchar_t) is the one character they encode together.
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWCH wide, int wideLength, LPSTR bytes,
                        int bytesCapacity, LPCCH defaultChar, LPBOOL usedDefaultChar);
int MultiByteToWideChar(UINT codePage, DWORD flags, LPCCH bytes, int bytesLength, LPWSTR wide,
                        int wideCapacity);
