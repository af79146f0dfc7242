// What late binding needs to know of an interface, read once from its type information: for
// each DISPID whether it is a method or a property, what it takes and what its put takes; the
// list members that form a sequence; and a cache from attribute names, as Python spells them,
// to what they reach.
#pragma once

#include "platform/automation.h"

#include <Python.h>

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace tivalo::python {

struct Parameter {
  std::wstring name;
  // The declared type: VT_DISPATCH stands for any interface pointer, VT_VARIANT for anything.
  VARTYPE type = VT_VARIANT;
};

struct Member {
  std::wstring name;
  DISPID id = DISPID_UNKNOWN;
  bool is_method = false;
  bool has_get = false;
  bool has_put = false;
  // The inputs of the method or the property get; the [out, retval] result is not among them.
  std::vector<Parameter> parameters;
  VARTYPE put_type = VT_VARIANT;
};

// A repeated element E: getE, addE, removeE, its clear member and ECount, five DISPIDs in a row.
struct ListMembers {
  std::wstring element;
  DISPID get = DISPID_UNKNOWN, add = DISPID_UNKNOWN, remove = DISPID_UNKNOWN,
         clear = DISPID_UNKNOWN, count = DISPID_UNKNOWN;
  VARTYPE item_type = VT_DISPATCH;
};

// What an attribute name reaches.
struct Slot {
  enum Kind { unknown, property, method, sequence } kind = unknown;
  const Member* member = nullptr;    // property and method
  const ListMembers* list = nullptr; // sequence
};

// The members of one interface, shared by every object that has it and kept for the life of
// the process. Only used with the interpreter lock held.
class TypeMembers {
 public:
  // Null when the object offers no type information. Objects of one implementation share one
  // virtual table and therefore one interface: the table's address finds the members without a
  // call into the object.
  static const TypeMembers* of(IDispatch* object);

  const Member* find(DISPID id) const;
  // The slot of an attribute name (a Python str), matched without regard to case. Null with a
  // Python error set when the name cannot be read or the cache cannot grow.
  const Slot* slot(PyObject* name) const;

  const std::wstring& interface_name() const { return interface_name_; }
  // The Python class of objects with this interface (a subclass of tivalo.Dispatch named after
  // the interface), made on first use by `make`; a borrowed reference, null on failure.
  PyTypeObject* python_type(PyObject* (*make)(const std::wstring& name)) const;
  // Member names in the interface's order, each once, then the list elements.
  const std::vector<std::wstring>& names() const { return names_; }

 private:
  explicit TypeMembers(ITypeInfo* info);
  void add(ITypeInfo* info, const FUNCDESC& function);
  void find_lists();
  Slot resolve(const std::wstring& name) const;

  std::wstring interface_name_;
  std::map<DISPID, Member> members_;
  std::vector<std::wstring> names_;
  std::unordered_map<std::wstring, const Member*> by_lower_name_;
  std::unordered_map<std::wstring, ListMembers> lists_by_lower_name_;
  // Name as spelt -> index into slots_ (a Python int); filled on first use of each spelling.
  mutable PyObject* slot_index_ = nullptr;
  mutable std::vector<std::unique_ptr<Slot>> slots_;
  mutable PyObject* python_type_ = nullptr;
};

std::wstring lower(std::wstring text);

}  // namespace tivalo::python
