// The one edge that no C++ exception crosses: every interface method, entry point and callback of
// the component runs its body through `guarded`, so a failure deep inside (out of memory, a fault
// of the binding or the XML parser) becomes a status code instead of ending the host.
#pragma once

#include "platform/automation.h"

#include <exception>
#include <string>
#include <utility>

namespace Morvek::Tivalo {

// A failure caught at the edge: the status it becomes and a message for the error information.
struct Failure {
  HRESULT status = E_UNEXPECTED;  // E_OUTOFMEMORY for exhausted memory, else E_UNEXPECTED
  std::wstring message;           // "Tivalo: ...", empty if even that could not be built
};

// Content that no document can hold or that a string cannot carry (a cycle in the object graph,
// a date outside the calendar, a text too long): the message is the whole description of the
// failed document operation.
class ContentRefused : public std::exception {
 public:
  explicit ContentRefused(std::wstring message) : message_(std::move(message)) {}
  const std::wstring& message() const { return message_; }
  const char* what() const noexcept override { return "content refused"; }

 private:
  std::wstring message_;
};

// The exception being handled, classified. Call it only inside a catch block.
Failure current_failure() noexcept;

// Installs a new error object as the thread's error information. `guid` may be null.
void set_error_information(const std::wstring& description, const wchar_t* source,
                           const GUID* guid);

// The answer of a plain member, entry point or callback: E_OUTOFMEMORY as it is, anything else
// E_UNEXPECTED with the message as the thread's error information.
HRESULT report_unexpected(const Failure& failure) noexcept;

// Runs `body` (returning an HRESULT); a failure that escapes it is handed to `report`.
template <class Body, class Report>
HRESULT guarded(Body&& body, Report&& report) noexcept {
  try {
    return body();
  } catch (...) {
    const Failure failure = current_failure();
    try {
      return report(failure);
    } catch (...) {
      return failure.status;
    }
  }
}

template <class Body>
HRESULT guarded(Body&& body) noexcept {
  return guarded(std::forward<Body>(body), report_unexpected);
}

}  // namespace Morvek::Tivalo
