#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/automation.h"

namespace {

const wchar_t* or_unknown(const wchar_t* text) { return text ? text : L"(unknown)"; }

[[noreturn]] void report_and_abort(const wchar_t* expression, const wchar_t* function,
                                   const wchar_t* file, unsigned line) {
  std::fprintf(stderr, "Tivalo: invalid parameter: %ls in %ls (%ls:%u)\n", or_unknown(expression),
               or_unknown(function), or_unknown(file), line);
  std::abort();
}

}  // namespace


void tivalo_invalid_parameter(const wchar_t* expression, const wchar_t* function, const wchar_t* file,
                              unsigned line) {
  if (tivalo_invalid_parameter_handler handler = _get_invalid_parameter_handler())
    handler(expression, function, file, line, 0);
  else
    report_and_abort(expression, function, file, line);
}

namespace tivalo {
void report_invalid_parameter(const wchar_t* expression, const char* function, const wchar_t* file,
                              unsigned line) {
  const std::wstring wideFunction(function, function + std::char_traits<char>::length(function));
  tivalo_invalid_parameter(expression, wideFunction.c_str(), file, line);
}
}  // namespace tivalo
