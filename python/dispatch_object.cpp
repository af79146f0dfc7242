#include "python/dispatch_object.h"

#include "python/com_error.h"
#include "python/type_members.h"
#include "python/variant_conversion.h"
#include "python/wide_text.h"

#include <structmember.h>

#include <new>
#include <string>
#include <vector>

namespace tivalo::python {
namespace {

struct DispatchObject {
  PyObject_HEAD
  IDispatch* object;
  const TypeMembers* members;  // null when the object offers no type information
  PyObject* weak_references;
};

// A method (or a property that takes arguments) bound to its object.
struct MethodObject {
  PyObject_HEAD
  DispatchObject* self;
  const Member* member;
  WORD flags;
};

struct ListObject {
  PyObject_HEAD
  DispatchObject* self;
  const ListMembers* list;
};

PyTypeObject dispatch_type_object = {PyVarObject_HEAD_INIT(nullptr, 0)};
PyTypeObject method_type_object = {PyVarObject_HEAD_INIT(nullptr, 0)};
PyTypeObject list_type_object = {PyVarObject_HEAD_INIT(nullptr, 0)};

// Runs a slot body and turns the C++ exceptions of the helpers into the Python error they
// carry; `failed` is what the slot returns then.
template <class Result, class Body>
Result guarded(Result failed, Body&& body) {
  try {
    return body();
  } catch (py::error_already_set& error) {
    error.restore();
  } catch (py::builtin_exception& error) {
    error.set_error();
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const std::exception& error) {
    PyErr_SetString(PyExc_RuntimeError, error.what());
  }
  return failed;
}

// The arguments of one Invoke, kept last to first as DISPPARAMS wants them.
class Arguments {
 public:
  explicit Arguments(size_t count) : values_(count) {
    for (VARIANT& value : values_) VariantInit(&value);
  }
  ~Arguments() {
    for (VARIANT& value : values_) VariantClear(&value);
  }
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;

  // The argument at `position` in call order.
  VARIANT* at(size_t position) { return &values_[values_.size() - 1 - position]; }

  DISPPARAMS params() { return {values_.data(), nullptr, UINT(values_.size()), 0}; }
  // A property put passes its value as the one named argument DISPID_PROPERTYPUT.
  DISPPARAMS put_params() {
    static DISPID put_id = DISPID_PROPERTYPUT;
    return {values_.data(), &put_id, UINT(values_.size()), 1};
  }

 private:
  std::vector<VARIANT> values_;
};

// Invokes and converts the result; `file` names the file of a file operation in its error.
py::object invoke(IDispatch* object, DISPID id, WORD flags, DISPPARAMS params,
                  const std::wstring& member, py::handle file = py::handle()) {
  OwnedVariant result;
  EXCEPINFO exception{};
  UINT argument_error = 0;
  HRESULT hr = object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, result.get(),
                              &exception, &argument_error);
  if (FAILED(hr)) raise_invoke_failure(hr, member, exception, file);
  return from_variant(*result);
}

py::object get_property(DispatchObject* self, const Member& member) {
  Arguments none(0);
  return invoke(self->object, member.id, DISPATCH_PROPERTYGET, none.params(), member.name);
}

// Calls a function of the module's Python part (tivalo/__init__.py), which reads the stubs.
py::object module_helper(const char* name) {
  return py::module_::import("tivalo").attr(name);
}

std::wstring interface_name(const DispatchObject* self) {
  return self->members && !self->members->interface_name().empty()
             ? self->members->interface_name()
             : L"IDispatch";
}

[[noreturn]] void no_member(const DispatchObject* self, PyObject* name) {
  PyErr_Format(PyExc_AttributeError, "'%U' has no member '%U'",
               to_python(interface_name(self)).ptr(), name);
  throw py::error_already_set();
}

PyObject* new_list(DispatchObject* self, const ListMembers* list) {
  ListObject* view = PyObject_New(ListObject, &list_type_object);
  if (!view) return nullptr;
  Py_INCREF(self);
  view->self = self;
  view->list = list;
  return reinterpret_cast<PyObject*>(view);
}

PyObject* new_method(DispatchObject* self, const Member* member, WORD flags) {
  MethodObject* method = PyObject_New(MethodObject, &method_type_object);
  if (!method) return nullptr;
  Py_INCREF(self);
  method->self = self;
  method->member = member;
  method->flags = flags;
  return reinterpret_cast<PyObject*>(method);
}

// -- tivalo.Dispatch ---------------------------------------------------------------------------

// Objects without type information are reached the way a script host does: by GetIDsOfNames on
// every use, the member got as either kind.
DISPID id_without_type_info(DispatchObject* self, PyObject* name) {
  std::wstring text = py::cast<std::wstring>(py::handle(name));
  LPOLESTR names[] = {text.data()};
  DISPID id = DISPID_UNKNOWN;
  HRESULT hr = self->object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
  if (hr == DISP_E_UNKNOWNNAME || hr == DISP_E_MEMBERNOTFOUND) no_member(self, name);
  if (FAILED(hr)) raise_com_error(hr, text);
  return id;
}

PyObject* dispatch_get(PyObject* object, PyObject* name) {
  auto* self = reinterpret_cast<DispatchObject*>(object);
  // Python's own protocols (__len__, _repr_html_, ...) never reach the object.
  if (!PyUnicode_Check(name) || PyUnicode_GET_LENGTH(name) == 0 ||
      PyUnicode_READ_CHAR(name, 0) == '_') {
    return PyObject_GenericGetAttr(object, name);
  }
  return guarded<PyObject*>(nullptr, [&]() -> PyObject* {
    if (!self->members) {
      DISPID id = id_without_type_info(self, name);
      Arguments none(0);
      return invoke(self->object, id, DISPATCH_METHOD | DISPATCH_PROPERTYGET, none.params(),
                    py::cast<std::wstring>(py::handle(name)))
          .release()
          .ptr();
    }
    const Slot* slot = self->members->slot(name);
    if (!slot) throw py::error_already_set();
    switch (slot->kind) {
      case Slot::property:
        if (!slot->member->has_get) {
          PyErr_Format(PyExc_AttributeError, "'%U' is write-only",
                       to_python(slot->member->name).ptr());
          throw py::error_already_set();
        }
        return get_property(self, *slot->member).release().ptr();
      case Slot::method:
        return new_method(self, slot->member,
                          slot->member->is_method ? DISPATCH_METHOD : DISPATCH_PROPERTYGET);
      case Slot::sequence:
        return new_list(self, slot->list);
      case Slot::unknown:
        break;
    }
    no_member(self, name);
  });
}

int dispatch_set(PyObject* object, PyObject* name, PyObject* value) {
  auto* self = reinterpret_cast<DispatchObject*>(object);
  return guarded(-1, [&] {
    if (!PyUnicode_Check(name) || PyUnicode_GET_LENGTH(name) == 0 ||
        PyUnicode_READ_CHAR(name, 0) == '_') {
      PyErr_Format(PyExc_AttributeError, "'%U' cannot be set", py::str(name).ptr());
      throw py::error_already_set();
    }
    if (!value) {
      PyErr_Format(PyExc_AttributeError, "'%U' cannot be deleted", name);
      throw py::error_already_set();
    }
    const Member* member = nullptr;
    DISPID id = DISPID_UNKNOWN;
    if (self->members) {
      const Slot* slot = self->members->slot(name);
      if (!slot) throw py::error_already_set();
      if (slot->kind == Slot::unknown) no_member(self, name);
      member = slot->member;
      if (!member || !member->has_put) {
        PyErr_Format(PyExc_AttributeError, "'%U' cannot be set", name);
        throw py::error_already_set();
      }
      id = member->id;
    } else {
      id = id_without_type_info(self, name);
    }
    Arguments argument(1);
    to_variant(value, member ? member->put_type : VT_VARIANT, argument.at(0));
    invoke(self->object, id, DISPATCH_PROPERTYPUT, argument.put_params(),
           member ? member->name : py::cast<std::wstring>(py::handle(name)));
    return 0;
  });
}

std::uintptr_t identity(IDispatch* object) {
  tivalo::ComPtr<IUnknown> unknown;
  object->QueryInterface(IID_IUnknown, unknown.put_void());
  return reinterpret_cast<std::uintptr_t>(unknown.get());
}

PyObject* dispatch_new(PyTypeObject*, PyObject* args, PyObject* keywords) {
  static const char* keyword_names[] = {"name", nullptr};
  PyObject* name = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, keywords, "U:Dispatch",
                                   const_cast<char**>(keyword_names), &name)) {
    return nullptr;
  }
  return guarded<PyObject*>(nullptr, [&] {
    std::wstring class_name = py::cast<std::wstring>(py::handle(name));
    CLSID clsid{};
    HRESULT hr = !class_name.empty() && class_name[0] == L'{'
                     ? CLSIDFromString(class_name.c_str(), &clsid)
                     : CLSIDFromProgID(class_name.c_str(), &clsid);
    tivalo::ComPtr<IDispatch> created;
    if (SUCCEEDED(hr)) {
      hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch,
                            created.put_void());
    }
    if (FAILED(hr)) raise_com_error(hr, class_name);
    if (!created) raise_com_error(E_NOINTERFACE, class_name);
    return wrap(created.get()).release().ptr();
  });
}

void dispatch_dealloc(PyObject* object) {
  auto* self = reinterpret_cast<DispatchObject*>(object);
  if (self->weak_references) PyObject_ClearWeakRefs(object);
  if (self->object) self->object->Release();
  Py_TYPE(object)->tp_free(object);
}

PyObject* dispatch_repr(PyObject* object) {
  auto* self = reinterpret_cast<DispatchObject*>(object);
  return guarded<PyObject*>(nullptr, [&] {
    return PyUnicode_FromFormat("<tivalo.Dispatch %U>", to_python(interface_name(self)).ptr());
  });
}

// Wrappers are equal when they wrap one object; anything else is left to the other operand.
PyObject* dispatch_compare(PyObject* a, PyObject* b, int op) {
  IDispatch* other = dispatch_of(b);
  if (!other || (op != Py_EQ && op != Py_NE)) Py_RETURN_NOTIMPLEMENTED;
  bool same = identity(reinterpret_cast<DispatchObject*>(a)->object) == identity(other);
  return PyBool_FromLong(same == (op == Py_EQ));
}

Py_hash_t dispatch_hash(PyObject* object) {
  Py_hash_t hash = Py_hash_t(identity(reinterpret_cast<DispatchObject*>(object)->object) >> 4);
  return hash == -1 ? -2 : hash;
}

PyObject* dispatch_dir(PyObject* object, PyObject*) {
  auto* self = reinterpret_cast<DispatchObject*>(object);
  return guarded<PyObject*>(nullptr, [&] {
    py::list names;
    if (self->members) {
      for (const std::wstring& name : self->members->names()) names.append(to_python(name));
    }
    return names.release().ptr();
  });
}

PyMethodDef dispatch_methods[] = {
    {"__dir__", dispatch_dir, METH_NOARGS, "The member names of the object's interface."},
    {nullptr, nullptr, 0, nullptr}};

// -- tivalo.Method -----------------------------------------------------------------------------

bool same_ignoring_case(const std::wstring& a, const std::wstring& b) {
  return a.size() == b.size() && lower(a) == lower(b);
}

// Positional arguments as they stand, then keywords placed by the parameter names. Every
// parameter takes exactly one value.
std::vector<py::handle> arrange(const Member& member, PyObject* args, PyObject* keywords) {
  const std::string name = to_utf8(member.name);
  const size_t count = member.parameters.size();
  const size_t given = size_t(PyTuple_GET_SIZE(args));
  if (given > count) {
    throw py::type_error(name + "() takes " + std::to_string(count) + " argument" +
                         (count == 1 ? "" : "s") + " (" + std::to_string(given) + " given)");
  }
  std::vector<py::handle> arranged(count);
  for (size_t i = 0; i < given; ++i) arranged[i] = PyTuple_GET_ITEM(args, Py_ssize_t(i));
  if (keywords) {
    PyObject *key = nullptr, *value = nullptr;
    Py_ssize_t at = 0;
    while (PyDict_Next(keywords, &at, &key, &value)) {
      std::wstring keyword = py::cast<std::wstring>(py::handle(key));
      size_t position = 0;
      while (position < count && !same_ignoring_case(member.parameters[position].name, keyword)) {
        ++position;
      }
      if (position == count) {
        throw py::type_error(name + "() has no parameter '" + to_utf8(keyword) + "'");
      }
      if (arranged[position]) {
        throw py::type_error(name + "() got '" + to_utf8(keyword) + "' twice");
      }
      arranged[position] = value;
    }
  }
  for (size_t i = 0; i < count; ++i) {
    if (!arranged[i]) {
      throw py::type_error(name + "() missing argument '" + to_utf8(member.parameters[i].name) +
                           "'");
    }
  }
  return arranged;
}

// A path object stands for its text wherever a string goes.
py::object text_or_path(py::handle value, VARTYPE declared) {
  if (declared != VT_BSTR || PyUnicode_Check(value.ptr()) ||
      !PyObject_HasAttrString(value.ptr(), "__fspath__")) {
    return py::reinterpret_borrow<py::object>(value);
  }
  py::object path = py::reinterpret_steal<py::object>(PyOS_FSPath(value.ptr()));
  if (!path) throw py::error_already_set();
  if (PyBytes_Check(path.ptr())) {
    path = py::reinterpret_steal<py::object>(PyUnicode_DecodeFSDefault(PyBytes_AS_STRING(path.ptr())));
    if (!path) throw py::error_already_set();
  }
  return path;
}

PyObject* method_call(PyObject* object, PyObject* args, PyObject* keywords) {
  auto* method = reinterpret_cast<MethodObject*>(object);
  return guarded<PyObject*>(nullptr, [&] {
    const Member& member = *method->member;
    std::vector<py::handle> values = arrange(member, args, keywords);
    Arguments arguments(values.size());
    py::object file;
    for (size_t i = 0; i < values.size(); ++i) {
      const Parameter& parameter = member.parameters[i];
      py::object value = text_or_path(values[i], parameter.type);
      to_variant(value, parameter.type, arguments.at(i));
      if (same_ignoring_case(parameter.name, L"file")) file = value;
    }
    return invoke(method->self->object, member.id, method->flags, arguments.params(),
                  member.name, file)
        .release()
        .ptr();
  });
}

void method_dealloc(PyObject* object) {
  Py_DECREF(reinterpret_cast<MethodObject*>(object)->self);
  PyObject_Free(object);
}

// The member's signature and definition come from the stubs, read on first use.
PyObject* method_help(MethodObject* method, int part) {
  return guarded<PyObject*>(nullptr, [&] {
    py::object help = module_helper("_member_help")(to_python(interface_name(method->self)),
                                                    to_python(method->member->name));
    return py::object(help[py::int_(part)]).release().ptr();
  });
}

PyObject* method_signature(PyObject* object, void*) {
  return method_help(reinterpret_cast<MethodObject*>(object), 0);
}
PyObject* method_doc(PyObject* object, void*) {
  return method_help(reinterpret_cast<MethodObject*>(object), 1);
}
PyObject* method_name(PyObject* object, void*) {
  return guarded<PyObject*>(nullptr, [&] {
    return to_python(reinterpret_cast<MethodObject*>(object)->member->name).release().ptr();
  });
}
PyObject* method_qualified_name(PyObject* object, void*) {
  auto* method = reinterpret_cast<MethodObject*>(object);
  return guarded<PyObject*>(nullptr, [&] {
    return to_python(interface_name(method->self) + L"." + method->member->name).release().ptr();
  });
}
PyObject* method_self(PyObject* object, void*) {
  PyObject* self = reinterpret_cast<PyObject*>(reinterpret_cast<MethodObject*>(object)->self);
  Py_INCREF(self);
  return self;
}

// Bound already: a method descriptor to inspect and pydoc, which then show it as a routine.
PyObject* method_get(PyObject* object, PyObject*, PyObject*) {
  Py_INCREF(object);
  return object;
}

PyObject* method_repr(PyObject* object) {
  auto* method = reinterpret_cast<MethodObject*>(object);
  return guarded<PyObject*>(nullptr, [&] {
    return PyUnicode_FromFormat("<tivalo.Method %U of %U>",
                                to_python(method->member->name).ptr(),
                                to_python(interface_name(method->self)).ptr());
  });
}

PyGetSetDef method_properties[] = {
    {"__name__", method_name, nullptr, nullptr, nullptr},
    {"__qualname__", method_qualified_name, nullptr, nullptr, nullptr},
    {"__doc__", method_doc, nullptr, nullptr, nullptr},
    {"__signature__", method_signature, nullptr, nullptr, nullptr},
    {"__self__", method_self, nullptr, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

// -- tivalo.List -------------------------------------------------------------------------------

Py_ssize_t list_length(PyObject* object) {
  auto* view = reinterpret_cast<ListObject*>(object);
  return guarded<Py_ssize_t>(-1, [&] {
    Arguments none(0);
    py::object count = invoke(view->self->object, view->list->count, DISPATCH_PROPERTYGET,
                              none.params(), view->list->element + L"Count");
    return Py_ssize_t(count.cast<long>());
  });
}

// The index as the member takes it, after the bounds test that the member leaves to its caller.
bool in_range(PyObject* object, Py_ssize_t index) {
  Py_ssize_t length = list_length(object);
  if (length < 0) return false;
  if (index < 0 || index >= length) {
    PyErr_Format(PyExc_IndexError, "%U index out of range",
                 to_python(reinterpret_cast<ListObject*>(object)->list->element).ptr());
    return false;
  }
  return true;
}

// Calls the list's get or remove member with an index.
py::object call_at(ListObject* view, DISPID member, const wchar_t* verb, Py_ssize_t index) {
  Arguments argument(1);
  V_VT(argument.at(0)) = VT_I4;
  V_I4(argument.at(0)) = LONG(index);
  return invoke(view->self->object, member, DISPATCH_METHOD, argument.params(),
                verb + view->list->element);
}

PyObject* list_item(PyObject* object, Py_ssize_t index) {
  auto* view = reinterpret_cast<ListObject*>(object);
  if (!in_range(object, index)) return nullptr;
  return guarded<PyObject*>(nullptr, [&] {
    return call_at(view, view->list->get, L"get", index).release().ptr();
  });
}

int list_assign(PyObject* object, Py_ssize_t index, PyObject* value) {
  auto* view = reinterpret_cast<ListObject*>(object);
  if (value) {
    PyErr_SetString(PyExc_TypeError, "list items are replaced by removing and appending");
    return -1;
  }
  if (!in_range(object, index)) return -1;
  return guarded(-1, [&] {
    call_at(view, view->list->remove, L"remove", index);
    return 0;
  });
}

PyObject* list_append(PyObject* object, PyObject* item) {
  auto* view = reinterpret_cast<ListObject*>(object);
  return guarded<PyObject*>(nullptr, [&] {
    Arguments argument(1);
    to_variant(item, view->list->item_type, argument.at(0));
    invoke(view->self->object, view->list->add, DISPATCH_METHOD, argument.params(),
           L"add" + view->list->element);
    Py_RETURN_NONE;
  });
}

PyObject* list_clear(PyObject* object, PyObject*) {
  auto* view = reinterpret_cast<ListObject*>(object);
  return guarded<PyObject*>(nullptr, [&] {
    Arguments none(0);
    invoke(view->self->object, view->list->clear, DISPATCH_METHOD, none.params(),
           L"clear" + view->list->element);
    Py_RETURN_NONE;
  });
}

PyObject* list_repr(PyObject* object) {
  auto* view = reinterpret_cast<ListObject*>(object);
  Py_ssize_t length = list_length(object);
  if (length < 0) return nullptr;
  return guarded<PyObject*>(nullptr, [&] {
    return PyUnicode_FromFormat("<tivalo.List %U of %U, %zd items>",
                                to_python(view->list->element).ptr(),
                                to_python(interface_name(view->self)).ptr(), length);
  });
}

void list_dealloc(PyObject* object) {
  Py_DECREF(reinterpret_cast<ListObject*>(object)->self);
  PyObject_Free(object);
}

PyMethodDef list_methods[] = {
    {"append", list_append, METH_O, "Appends item at the end (the add member)."},
    {"clear", list_clear, METH_NOARGS, "Removes every item (the clear member)."},
    {nullptr, nullptr, 0, nullptr}};

PySequenceMethods list_sequence = {};

void ready(PyTypeObject& type, py::module_& module, const char* name) {
  if (PyType_Ready(&type) != 0) throw py::error_already_set();
  Py_INCREF(&type);
  module.add_object(name, py::handle(reinterpret_cast<PyObject*>(&type)));
}

// The class named after the interface, made by the package's Python part; null on failure.
PyObject* interface_type(const std::wstring& name) {
  return guarded<PyObject*>(nullptr, [&] {
    return module_helper("_interface_type")(to_python(name)).release().ptr();
  });
}

}  // namespace

py::object wrap(IDispatch* object) {
  const TypeMembers* members = TypeMembers::of(object);
  PyTypeObject* type = members ? members->python_type(interface_type) : &dispatch_type_object;
  if (!type) throw py::error_already_set();
  PyObject* created = type->tp_alloc(type, 0);
  if (!created) throw py::error_already_set();
  auto* self = reinterpret_cast<DispatchObject*>(created);
  object->AddRef();
  self->object = object;
  self->members = members;
  return py::reinterpret_steal<py::object>(created);
}

IDispatch* dispatch_of(PyObject* value) {
  return PyObject_TypeCheck(value, &dispatch_type_object)
             ? reinterpret_cast<DispatchObject*>(value)->object
             : nullptr;
}

void add_dispatch_types(py::module_& module) {
  PyTypeObject& dispatch = dispatch_type_object;
  dispatch.tp_name = "tivalo.Dispatch";
  dispatch.tp_basicsize = sizeof(DispatchObject);
  // Each interface has its subclass, so that help() and isinstance() know it.
  dispatch.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE;
  dispatch.tp_doc =
      "Dispatch(name)\n--\n\n"
      "An automation object, created by program identifier ('TivaloCOM.Invoice', "
      "'TivaloCOM.Invoice.1') or by class identifier ('{...}'). Attributes are its properties "
      "and methods, by name without regard to case; a list member's element name (InvoiceLine) "
      "gives the list as a sequence.";
  dispatch.tp_new = dispatch_new;
  dispatch.tp_dealloc = dispatch_dealloc;
  dispatch.tp_getattro = dispatch_get;
  dispatch.tp_setattro = dispatch_set;
  dispatch.tp_repr = dispatch_repr;
  dispatch.tp_richcompare = dispatch_compare;
  dispatch.tp_hash = dispatch_hash;
  dispatch.tp_methods = dispatch_methods;
  dispatch.tp_weaklistoffset = offsetof(DispatchObject, weak_references);
  ready(dispatch, module, "Dispatch");

  PyTypeObject& method = method_type_object;
  method.tp_name = "tivalo.Method";
  method.tp_basicsize = sizeof(MethodObject);
  method.tp_flags = Py_TPFLAGS_DEFAULT;
  method.tp_call = method_call;
  method.tp_dealloc = method_dealloc;
  method.tp_repr = method_repr;
  method.tp_getset = method_properties;
  method.tp_descr_get = method_get;
  ready(method, module, "Method");

  list_sequence.sq_length = list_length;
  list_sequence.sq_item = list_item;
  list_sequence.sq_ass_item = list_assign;
  PyTypeObject& list = list_type_object;
  list.tp_name = "tivalo.List";
  list.tp_basicsize = sizeof(ListObject);
  list.tp_flags = Py_TPFLAGS_DEFAULT;
#ifdef Py_TPFLAGS_SEQUENCE  // Python 3.10 on: match statements see a sequence
  list.tp_flags |= Py_TPFLAGS_SEQUENCE;
#endif
  list.tp_doc = "A list member as a sequence: len, iteration, indexing, del, append and clear "
                "over its get, add, remove, clear and Count members.";
  list.tp_as_sequence = &list_sequence;
  list.tp_methods = list_methods;
  list.tp_dealloc = list_dealloc;
  list.tp_repr = list_repr;
  ready(list, module, "List");
}

}  // namespace tivalo::python
