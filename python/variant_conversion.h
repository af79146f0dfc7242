// Python values to and from VARIANTs:
//   str <-> BSTR (a null BSTR is None), float <-> R8, int <-> I4, bool <-> BOOL (True is -1),
//   datetime.datetime <-> DATE (datetime.date and datetime.time accepted on the way in),
//   bytes <-> array of UI1, tivalo.Dispatch <-> IDispatch.
#pragma once

#include "platform/automation.h"

#include <pybind11/pybind11.h>

namespace tivalo::python {

namespace py = pybind11;

// Fills `out` (initialised, empty) from `value`. The declared type of the parameter only
// settles what the value alone leaves open: None is a null BSTR for a BSTR, a null object for
// an interface, and an int is passed as R8 where an R8 is declared. Raises TypeError for a value
// with no automation form, OverflowError for an int outside I4 and ValueError for a date
// outside the DATE range (years 100 to 9999).
void to_variant(py::handle value, VARTYPE declared, VARIANT* out);

// The Python value of `value` (a VT_BYREF variant is read through). Raises TypeError for a
// VARTYPE without a Python form.
py::object from_variant(const VARIANT& value);

// A VARIANT that clears itself.
class OwnedVariant {
 public:
  OwnedVariant() { VariantInit(&value_); }
  ~OwnedVariant() { VariantClear(&value_); }
  OwnedVariant(const OwnedVariant&) = delete;
  OwnedVariant& operator=(const OwnedVariant&) = delete;

  VARIANT* get() { return &value_; }
  const VARIANT& operator*() const { return value_; }

 private:
  VARIANT value_;
};

}  // namespace tivalo::python
