// tivalo.Dispatch: one automation object seen the way a script host sees it. Attribute get and
// set are property get and put by name (case-insensitive, through GetIDsOfNames); a method name
// gives a bound callable; the type information says which is which.
#pragma once

#include "platform/automation.h"
#include "python/type_members.h"

#include <pybind11/pybind11.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tivalo::python {

namespace py = pybind11;

class DispatchObject {
 public:
  explicit DispatchObject(tivalo::ComPtr<IDispatch> object);

  // Creates a class by program identifier ("TivaloCOM.Invoice", "TivaloCOM.Invoice.1") or by
  // class identifier in braces. Raises ComError when there is no such class.
  static DispatchObject create(const std::wstring& class_name);

  IDispatch* get() const { return object_.get(); }

  // A property without arguments is got at once; a method (or a property that takes
  // arguments) comes back as a callable. AttributeError for a name the object does not know.
  py::object get_attribute(const std::wstring& name);
  void set_attribute(const std::wstring& name, py::handle value);

  // Two wrappers are the same object when their IUnknown identities are equal.
  std::uintptr_t identity() const;
  std::vector<std::wstring> member_names();
  std::wstring interface_name();

 private:
  DISPID id_of(const std::wstring& name);
  const TypeMembers* members();
  const Member* member(DISPID id);
  py::object bound_callable(DISPID id, const Member& member, WORD flags);

  tivalo::ComPtr<IDispatch> object_;
  std::shared_ptr<const TypeMembers> members_;  // read on first use
  bool members_read_ = false;
};

}  // namespace tivalo::python
