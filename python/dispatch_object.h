// tivalo.Dispatch: one automation object seen the way a script host sees it. Attribute get and
// set are property get and put by name (case-insensitive); a method name gives a bound callable
// (tivalo.Method) with the member's signature and definition; a repeated element's name gives
// the list as a sequence (tivalo.List). The names are resolved once per interface and cached.
#pragma once

#include "platform/automation.h"

#include <pybind11/pybind11.h>

namespace tivalo::python {

namespace py = pybind11;

// Adds Dispatch, Method and List to the module; called once at import.
void add_dispatch_types(py::module_& module);

// A new tivalo.Dispatch holding its own reference on `object`.
py::object wrap(IDispatch* object);

// The object of a tivalo.Dispatch (borrowed), or null for any other value.
IDispatch* dispatch_of(PyObject* value);

}  // namespace tivalo::python
