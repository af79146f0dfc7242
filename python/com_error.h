// tivalo.ComError, and the Python exception a failed automation call becomes.
#pragma once

#include "platform/automation.h"

#include <pybind11/pybind11.h>

#include <string>

namespace tivalo::python {

namespace py = pybind11;

// Adds ComError to the module; called once at import.
void register_com_error(py::module_& module);

// Raises tivalo.ComError. A None description is replaced by the usual text of the HRESULT
// when there is one.
// `file`, when given, is the file of a file operation: the message names it and the error
// keeps it as `filename`.
[[noreturn]] void raise_com_error(HRESULT hr, const std::wstring& context,
                                  py::object source = py::none(),
                                  py::object description = py::none(),
                                  py::handle file = py::handle());

// Raises the exception for a failed Invoke of `member`: IndexError for an index out of range
// (DISP_E_BADINDEX), tivalo.ComError with the source and description of `exception` otherwise.
// Frees the strings of `exception`.
[[noreturn]] void raise_invoke_failure(HRESULT hr, const std::wstring& member,
                                       EXCEPINFO& exception, py::handle file = py::handle());

}  // namespace tivalo::python
