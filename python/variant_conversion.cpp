#include "python/variant_conversion.h"

#include "python/dispatch_object.h"
#include "python/wide_text.h"

#include <datetime.h>

#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

namespace tivalo::python {
namespace {

// The datetime C interface is bound per translation unit.
void import_datetime() {
  if (!PyDateTimeAPI) {
    PyDateTime_IMPORT;
    if (!PyDateTimeAPI) throw py::error_already_set();
  }
}

// Seconds are the finest unit a DATE carries here; microseconds are dropped.
DATE to_date(WORD year, WORD month, WORD day, WORD hour, WORD minute, WORD second) {
  SYSTEMTIME fields{year, month, 0, day, hour, minute, second, 0};
  DATE result = 0;
  // The join reads years 1 to 99 as 1901 to 1999; year 0 only comes with a time of day alone.
  bool in_range = year == 0 || year >= 100;
  if (!in_range || !SystemTimeToVariantTime(&fields, &result)) {
    throw py::value_error("date outside the DATE range (years 100 to 9999)");
  }
  return result;
}

DATE date_of(py::handle value) {
  PyObject* v = value.ptr();
  if (PyDateTime_Check(v)) {
    return to_date(PyDateTime_GET_YEAR(v), PyDateTime_GET_MONTH(v), PyDateTime_GET_DAY(v),
                   PyDateTime_DATE_GET_HOUR(v), PyDateTime_DATE_GET_MINUTE(v),
                   PyDateTime_DATE_GET_SECOND(v));
  }
  if (PyDate_Check(v)) {
    return to_date(PyDateTime_GET_YEAR(v), PyDateTime_GET_MONTH(v), PyDateTime_GET_DAY(v), 0, 0, 0);
  }
  // Year, month and day all zero give a time of day alone.
  return to_date(0, 0, 0, PyDateTime_TIME_GET_HOUR(v), PyDateTime_TIME_GET_MINUTE(v),
                 PyDateTime_TIME_GET_SECOND(v));
}

py::object datetime_of(DATE date) {
  SYSTEMTIME fields{};
  if (!VariantTimeToSystemTime(date, &fields)) {
    throw py::value_error("DATE " + std::to_string(date) + " is outside the calendar range");
  }
  PyObject* result = PyDateTime_FromDateAndTime(fields.wYear, fields.wMonth, fields.wDay,
                                                fields.wHour, fields.wMinute, fields.wSecond, 0);
  if (!result) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(result);
}

void put_bytes(py::handle value, VARIANT* out) {
  Py_buffer view;
  if (PyObject_GetBuffer(value.ptr(), &view, PyBUF_SIMPLE) != 0) throw py::error_already_set();
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, ULONG(view.len));
  void* data = nullptr;
  if (array && SUCCEEDED(SafeArrayAccessData(array, &data))) {
    if (view.len) std::memcpy(data, view.buf, size_t(view.len));
    SafeArrayUnaccessData(array);
  }
  PyBuffer_Release(&view);
  if (!array) throw std::bad_alloc();
  V_VT(out) = VT_ARRAY | VT_UI1;
  V_ARRAY(out) = array;
}

py::bytes bytes_of(SAFEARRAY* array) {
  LONG lower = 0, upper = -1;
  if (!array || SafeArrayGetDim(array) != 1) return py::bytes();
  SafeArrayGetLBound(array, 1, &lower);
  SafeArrayGetUBound(array, 1, &upper);
  void* data = nullptr;
  if (upper < lower || FAILED(SafeArrayAccessData(array, &data))) return py::bytes();
  py::bytes result(static_cast<const char*>(data), size_t(upper - lower) + 1);
  SafeArrayUnaccessData(array);
  return result;
}

py::object object_of(IUnknown* object) {
  if (!object) return py::none();
  tivalo::ComPtr<IDispatch> dispatch;
  if (FAILED(object->QueryInterface(IID_IDispatch, dispatch.put_void())) || !dispatch) {
    throw py::type_error("the object returned has no IDispatch");
  }
  return wrap(dispatch.get());
}

bool is_bytes_like(py::handle value) {
  return PyBytes_Check(value.ptr()) || PyByteArray_Check(value.ptr()) ||
         PyMemoryView_Check(value.ptr());
}

}  // namespace

void to_variant(py::handle value, VARTYPE declared, VARIANT* out) {
  import_datetime();
  PyObject* v = value.ptr();
  if (value.is_none()) {
    if (declared == VT_BSTR) {
      V_VT(out) = VT_BSTR;
      V_BSTR(out) = nullptr;
    } else if (declared == VT_DISPATCH) {
      V_VT(out) = VT_DISPATCH;
      V_DISPATCH(out) = nullptr;
    }
  } else if (IDispatch* object = dispatch_of(v)) {
    object->AddRef();
    V_VT(out) = VT_DISPATCH;
    V_DISPATCH(out) = object;
  } else if (PyBool_Check(v)) {  // before int: bool is an int in Python
    V_VT(out) = VT_BOOL;
    V_BOOL(out) = v == Py_True ? VARIANT_TRUE : VARIANT_FALSE;
  } else if (PyLong_Check(v) && declared == VT_R8) {
    double number = PyLong_AsDouble(v);
    if (number == -1.0 && PyErr_Occurred()) throw py::error_already_set();
    V_VT(out) = VT_R8;
    V_R8(out) = number;
  } else if (PyLong_Check(v)) {
    int overflow = 0;
    long long number = PyLong_AsLongLongAndOverflow(v, &overflow);
    if (number == -1 && PyErr_Occurred()) throw py::error_already_set();
    if (overflow || number < std::numeric_limits<LONG>::min() ||
        number > std::numeric_limits<LONG>::max()) {
      PyErr_SetString(PyExc_OverflowError, "int does not fit in a 32-bit I4");
      throw py::error_already_set();
    }
    V_VT(out) = VT_I4;
    V_I4(out) = LONG(number);
  } else if (PyFloat_Check(v)) {
    V_VT(out) = VT_R8;
    V_R8(out) = PyFloat_AS_DOUBLE(v);
  } else if (PyUnicode_Check(v)) {
    Py_ssize_t length = 0;
    wchar_t* text = PyUnicode_AsWideCharString(v, &length);
    if (!text) throw py::error_already_set();
    BSTR copy = SysAllocStringLen(text, UINT(length));
    PyMem_Free(text);
    if (!copy) throw std::bad_alloc();
    V_VT(out) = VT_BSTR;
    V_BSTR(out) = copy;
  } else if (PyDate_Check(v) || PyTime_Check(v)) {
    V_DATE(out) = date_of(value);
    V_VT(out) = VT_DATE;
  } else if (is_bytes_like(value)) {
    put_bytes(value, out);
  } else {
    throw py::type_error(std::string("a ") + Py_TYPE(v)->tp_name +
                         " has no automation form (str, int, float, bool, datetime, bytes, "
                         "tivalo.Dispatch or None)");
  }
}

py::object from_variant(const VARIANT& value) {
  import_datetime();
  if (V_VT(&value) & VT_BYREF) {
    OwnedVariant target;
    HRESULT hr = VariantCopyInd(target.get(), &value);
    if (FAILED(hr)) throw py::type_error("a reference VARIANT that cannot be read");
    return from_variant(*target);
  }
  switch (V_VT(&value)) {
    case VT_EMPTY:
    case VT_NULL:
      return py::none();
    case VT_BSTR:
      if (!V_BSTR(&value)) return py::none();
      return to_python(V_BSTR(&value), SysStringLen(V_BSTR(&value)));
    case VT_BOOL:
      return py::bool_(V_BOOL(&value) != VARIANT_FALSE);
    case VT_I1: return py::int_(value.cVal);
    case VT_UI1: return py::int_(V_UI1(&value));
    case VT_I2: return py::int_(V_I2(&value));
    case VT_UI2: return py::int_(V_UI2(&value));
    case VT_I4: return py::int_(V_I4(&value));
    case VT_UI4: return py::int_(V_UI4(&value));
    case VT_INT: return py::int_(V_INT(&value));
    case VT_UINT: return py::int_(V_UINT(&value));
    case VT_I8: return py::int_(V_I8(&value));
    case VT_UI8: return py::int_(V_UI8(&value));
    case VT_ERROR: return py::int_(uint32_t(V_ERROR(&value)));
    case VT_R4: return py::float_(V_R4(&value));
    case VT_R8: return py::float_(V_R8(&value));
    case VT_DATE: return datetime_of(V_DATE(&value));
    case VT_DISPATCH:
      return V_DISPATCH(&value) ? wrap(V_DISPATCH(&value)) : py::none();
    case VT_UNKNOWN: return object_of(V_UNKNOWN(&value));
    case VT_ARRAY | VT_UI1: return bytes_of(V_ARRAY(&value));
    default: {
      char text[64];
      std::snprintf(text, sizeof text, "VARIANT type 0x%04X has no Python form", V_VT(&value));
      throw py::type_error(text);
    }
  }
}

}  // namespace tivalo::python
