// The extension module tivalo._tivalo: TivaloCOM's classes, late-bound over IDispatch. The
// package tivalo (tivalo/__init__.py) re-exports it and adds help from the generated stubs.
//
//   import tivalo
//   invoice = tivalo.Dispatch("TivaloCOM.Invoice")
//   invoice.ID.Value = "A1"
//   invoice.InvoiceLine.append(tivalo.Dispatch("TivaloCOM.InvoiceLine"))
//   invoice.Write("invoice.xml")
#include "platform/automation.h"
#include "python/com_error.h"
#include "python/dispatch_object.h"

#include <pybind11/pybind11.h>

namespace {

// An out-of-range list index makes the accessor call the invalid-parameter handler. The default
// one ends the process; this one returns, so the call fails with DISP_E_BADINDEX and the script
// gets an IndexError.
void return_to_caller(const wchar_t*, const wchar_t*, const wchar_t*, unsigned, uintptr_t) {}

}  // namespace

PYBIND11_MODULE(_tivalo, module) {
  module.doc() =
      "TivaloCOM's UBL 2.0 object model, late-bound over IDispatch as a script host uses it.";
  module.attr("__version__") = TIVALO_VERSION;
  _set_invalid_parameter_handler(&return_to_caller);
  tivalo::python::register_com_error(module);
  tivalo::python::add_dispatch_types(module);
}
