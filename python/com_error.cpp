#include "python/com_error.h"

#include "python/wide_text.h"

#include <cstdio>

namespace tivalo::python {
namespace {

// Created at import and kept for the life of the interpreter.
PyObject* com_error_type = nullptr;

// The texts Windows gives these codes, so messages read the same on both systems.
const char* usual_description(HRESULT hr) {
  switch (hr) {
    case E_NOTIMPL: return "Not implemented";
    case E_NOINTERFACE: return "No such interface supported";
    case E_POINTER: return "Invalid pointer";
    case E_FAIL: return "Unspecified error";
    case E_UNEXPECTED: return "Catastrophic failure";
    case E_OUTOFMEMORY: return "Not enough memory resources are available";
    case E_INVALIDARG: return "The parameter is incorrect";
    case CLASS_E_CLASSNOTAVAILABLE: return "ClassFactory cannot supply requested class";
    case REGDB_E_CLASSNOTREG: return "Class not registered";
    case CO_E_CLASSSTRING: return "Invalid class string";
    case DISP_E_MEMBERNOTFOUND: return "Member not found";
    case DISP_E_PARAMNOTFOUND: return "Parameter not found";
    case DISP_E_TYPEMISMATCH: return "Type mismatch";
    case DISP_E_UNKNOWNNAME: return "Unknown name";
    case DISP_E_NONAMEDARGS: return "No named arguments";
    case DISP_E_BADVARTYPE: return "Bad variable type";
    case DISP_E_EXCEPTION: return "Exception occurred";
    case DISP_E_OVERFLOW: return "Out of present range";
    case DISP_E_BADINDEX: return "Invalid index";
    case DISP_E_BADPARAMCOUNT: return "Invalid number of parameters";
    case DISP_E_PARAMNOTOPTIONAL: return "Parameter not optional";
    default: return nullptr;
  }
}

py::object to_python_or_none(BSTR text) {
  if (!text) return py::none();
  return to_python(text, SysStringLen(text));
}

std::string hex(HRESULT hr) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", unsigned(hr));
  return text;
}

}  // namespace

void register_com_error(py::module_& module) {
  com_error_type = PyErr_NewExceptionWithDoc(
      "tivalo.ComError",
      "A failed automation call.\n\n"
      "hresult: the failure code as an unsigned 32-bit number (0x80020009 and the like)\n"
      "source: the program identifier of the reporting class, or None\n"
      "description: the message, or None\n"
      "filename: the file of a failed file operation (Read, Write), or None",
      PyExc_Exception, nullptr);
  if (!com_error_type) throw py::error_already_set();
  py::handle type(com_error_type);
  type.attr("hresult") = py::none();
  type.attr("source") = py::none();
  type.attr("description") = py::none();
  type.attr("filename") = py::none();
  module.add_object("ComError", type);
}

void raise_com_error(HRESULT hr, const std::wstring& context, py::object source,
                     py::object description, py::handle file) {
  if (description.is_none()) {
    if (const char* usual = usual_description(hr)) description = py::str(usual);
  }
  std::string message = to_utf8(context);
  if (file) message += "(" + py::cast<std::string>(py::repr(file)) + ")";
  message += ": ";
  if (!description.is_none()) message += py::cast<std::string>(py::str(description)) + " ";
  message += "(" + hex(hr) + ")";

  py::object error = py::reinterpret_borrow<py::object>(com_error_type)(message);
  error.attr("hresult") = py::int_(uint32_t(hr));
  error.attr("source") = source;
  error.attr("description") = description;
  error.attr("filename") = file ? py::reinterpret_borrow<py::object>(file) : py::none();
  PyErr_SetObject(com_error_type, error.ptr());
  throw py::error_already_set();
}

void raise_invoke_failure(HRESULT hr, const std::wstring& member, EXCEPINFO& exception,
                          py::handle file) {
  tivalo::Bstr source, description, help_file;
  if (hr == DISP_E_EXCEPTION) {
    if (exception.pfnDeferredFillIn) exception.pfnDeferredFillIn(&exception);
    // A member's own failure code travels in scode when Invoke wraps it.
    if (FAILED(exception.scode)) hr = exception.scode;
  }
  source = tivalo::Bstr::attach(exception.bstrSource);
  description = tivalo::Bstr::attach(exception.bstrDescription);
  help_file = tivalo::Bstr::attach(exception.bstrHelpFile);
  exception = EXCEPINFO{};

  if (hr == DISP_E_BADINDEX) throw py::index_error(to_utf8(member) + ": index out of range");
  raise_com_error(hr, member, to_python_or_none(source.get()),
                  to_python_or_none(description.get()), file);
}

}  // namespace tivalo::python
