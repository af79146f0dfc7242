#include <cstdlib>

#include "platform/automation.h"

LPVOID CoTaskMemAlloc(SIZE_T size) { return std::malloc(size ? size : 1); }

LPVOID CoTaskMemRealloc(LPVOID memory, SIZE_T size) { return std::realloc(memory, size ? size : 1); }

void CoTaskMemFree(LPVOID memory) { std::free(memory); }

HRESULT CoInitialize(LPVOID) { return S_OK; }

HRESULT CoInitializeEx(LPVOID, DWORD) { return S_OK; }

void CoUninitialize() {}

namespace {
thread_local DWORD lastError = ERROR_SUCCESS;
}

DWORD GetLastError() { return lastError; }

void SetLastError(DWORD error) { lastError = error; }
