// Wide text (BSTRs, member and parameter names) to and from Python str.
#pragma once

#include <pybind11/pybind11.h>

#include <string>

namespace tivalo::python {

namespace py = pybind11;

inline py::str to_python(const wchar_t* text, size_t length) {
  PyObject* result = PyUnicode_FromWideChar(text, Py_ssize_t(length));
  if (!result) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(result);
}

inline py::str to_python(const std::wstring& text) { return to_python(text.data(), text.size()); }

inline std::string to_utf8(const std::wstring& text) {
  return py::cast<std::string>(to_python(text));
}

}  // namespace tivalo::python
