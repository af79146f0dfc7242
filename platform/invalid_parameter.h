#pragma once
// The process's invalid-parameter handler, replaceable as with the Windows CRT.
#include <cstdint>

typedef void (*tivalo_invalid_parameter_handler)(const wchar_t* expression, const wchar_t* function,
                                                 const wchar_t* file, unsigned line,
                                                 uintptr_t reserved);

// Installs `handler` and returns the previous one; null stands for the default handler.
tivalo_invalid_parameter_handler _set_invalid_parameter_handler(tivalo_invalid_parameter_handler handler);
tivalo_invalid_parameter_handler _get_invalid_parameter_handler();
