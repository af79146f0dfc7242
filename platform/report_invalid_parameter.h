#pragma once
// Reporting an invalid parameter through the process's handler. The default handler prints one
// line to stderr and aborts; a host may install one that returns, and then the caller fails the
// call itself (an out-of-range list index gives DISP_E_BADINDEX).

void tivalo_invalid_parameter(const wchar_t* expression, const wchar_t* function, const wchar_t* file,
                              unsigned line);

namespace tivalo {
// For TIVALO_INVALID_PARAMETER: the function name is only known as narrow text.
void report_invalid_parameter(const wchar_t* expression, const char* function, const wchar_t* file,
                              unsigned line);
}  // namespace tivalo

#define TIVALO_WIDE_TEXT_(text) L##text
#define TIVALO_WIDE_TEXT(text) TIVALO_WIDE_TEXT_(text)
#define TIVALO_INVALID_PARAMETER(expression)                                          \
  ::tivalo::report_invalid_parameter(TIVALO_WIDE_TEXT(#expression), __func__,         \
                                     TIVALO_WIDE_TEXT(__FILE__), unsigned(__LINE__))
