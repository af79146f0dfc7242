// The Python module `tivalo`: TivaloCOM's classes, late-bound over IDispatch.
//
//   import tivalo
//   invoice = tivalo.Dispatch("TivaloCOM.Invoice")
//   invoice.ID.Value = "A1"
//   invoice.addInvoiceLine(tivalo.Dispatch("TivaloCOM.InvoiceLine"))
//   invoice.Write("invoice.xml")
#include "platform/automation.h"
#include "python/com_error.h"
#include "python/dispatch_object.h"
#include "python/wide_text.h"

#include <pybind11/pybind11.h>

namespace py = pybind11;
using tivalo::python::DispatchObject;

namespace {

// An out-of-range list index makes the accessor call the invalid-parameter handler. The default
// one ends the process; this one returns, so the call fails with DISP_E_BADINDEX and the script
// gets an IndexError.
void return_to_caller(const wchar_t*, const wchar_t*, const wchar_t*, unsigned, uintptr_t) {}

py::list python_names(const std::vector<std::wstring>& names) {
  py::list result;
  for (const std::wstring& name : names) result.append(tivalo::python::to_python(name));
  return result;
}

// Wrappers are equal when they wrap one object; anything else is left to the other operand.
py::object compare(const DispatchObject& self, py::handle other, bool equal) {
  if (!py::isinstance<DispatchObject>(other)) {
    return py::reinterpret_borrow<py::object>(Py_NotImplemented);
  }
  bool same = self.identity() == other.cast<const DispatchObject&>().identity();
  return py::bool_(same == equal);
}

}  // namespace

PYBIND11_MODULE(tivalo, module) {
  module.doc() =
      "TivaloCOM's UBL 2.0 object model, late-bound over IDispatch as a script host uses it.";
  _set_invalid_parameter_handler(&return_to_caller);
  tivalo::python::register_com_error(module);

  py::class_<DispatchObject>(module, "Dispatch",
                             "An automation object. Dispatch(name) creates one by program "
                             "identifier ('TivaloCOM.Invoice', 'TivaloCOM.Invoice.1') or by "
                             "class identifier ('{...}'). Attributes are its properties and "
                             "methods, by name without regard to case.")
      .def(py::init(&DispatchObject::create), py::arg("name"))
      .def("__getattr__", &DispatchObject::get_attribute)
      .def("__setattr__", &DispatchObject::set_attribute)
      .def("__dir__", [](DispatchObject& self) { return python_names(self.member_names()); })
      .def("__repr__",
           [](DispatchObject& self) {
             return "<tivalo.Dispatch " + tivalo::python::to_utf8(self.interface_name()) + ">";
           })
      .def("__eq__",
           [](const DispatchObject& self, py::handle other) { return compare(self, other, true); })
      .def("__ne__",
           [](const DispatchObject& self, py::handle other) { return compare(self, other, false); })
      .def("__hash__",
           [](const DispatchObject& self) { return py::hash(py::int_(self.identity())); });
}
