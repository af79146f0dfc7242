// What late binding needs to know of an interface, read from its type information: for each
// DISPID whether it is a method or a property, what it takes and what its put takes.
#pragma once

#include "platform/automation.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace tivalo::python {

struct Parameter {
  std::wstring name;
  // The declared type: VT_DISPATCH stands for any interface pointer, VT_VARIANT for anything.
  VARTYPE type = VT_VARIANT;
};

struct Member {
  std::wstring name;
  bool is_method = false;
  bool has_get = false;
  bool has_put = false;
  // The inputs of the method or the property get; the [out, retval] result is not among them.
  std::vector<Parameter> parameters;
  VARTYPE put_type = VT_VARIANT;
};

// The members of one interface, shared by every object that has it.
class TypeMembers {
 public:
  // Null when the object offers no type information.
  static std::shared_ptr<const TypeMembers> of(IDispatch* object);

  const Member* find(DISPID id) const;
  const std::wstring& interface_name() const { return interface_name_; }
  // Member names in the interface's order, each once.
  const std::vector<std::wstring>& names() const { return names_; }

 private:
  explicit TypeMembers(ITypeInfo* info);
  void add(ITypeInfo* info, const FUNCDESC& function);

  std::wstring interface_name_;
  std::map<DISPID, Member> members_;
  std::vector<std::wstring> names_;
};

}  // namespace tivalo::python
