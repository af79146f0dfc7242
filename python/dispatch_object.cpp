#include "python/dispatch_object.h"

#include "python/com_error.h"
#include "python/variant_conversion.h"
#include "python/wide_text.h"

#include <cwctype>

namespace tivalo::python {
namespace {

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
  size_t size() const { return values_.size(); }

  DISPPARAMS params() { return {values_.data(), nullptr, UINT(values_.size()), 0}; }
  // A property put passes its value as the one named argument DISPID_PROPERTYPUT.
  DISPPARAMS put_params() {
    static DISPID put_id = DISPID_PROPERTYPUT;
    return {values_.data(), &put_id, UINT(values_.size()), 1};
  }

 private:
  std::vector<VARIANT> values_;
};

py::object invoke(IDispatch* object, DISPID id, WORD flags, DISPPARAMS params,
                  const std::wstring& member) {
  OwnedVariant result;
  EXCEPINFO exception{};
  UINT argument_error = 0;
  HRESULT hr = object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, result.get(),
                              &exception, &argument_error);
  if (FAILED(hr)) raise_invoke_failure(hr, member, exception);
  return from_variant(*result);
}

bool same_ignoring_case(const std::wstring& a, const std::wstring& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::towlower(a[i]) != std::towlower(b[i])) return false;
  }
  return true;
}

// Python's own protocols (__len__, _repr_html_, ...) never reach the object.
bool is_python_name(const std::wstring& name) { return !name.empty() && name[0] == L'_'; }

// Positional arguments as they stand, then keywords placed by the parameter names.
std::vector<py::handle> arrange(const Member* member, const std::wstring& name, py::args args,
                                py::kwargs kwargs) {
  std::vector<py::handle> arranged(args.begin(), args.end());
  for (auto [key, value] : kwargs) {
    std::wstring keyword = py::cast<std::wstring>(key);
    size_t position = 0;
    const size_t count = member ? member->parameters.size() : 0;
    while (position < count && !same_ignoring_case(member->parameters[position].name, keyword)) {
      ++position;
    }
    if (position == count) {
      throw py::type_error(to_utf8(name) + "() has no parameter '" + to_utf8(keyword) + "'");
    }
    if (position >= arranged.size()) arranged.resize(position + 1);
    if (arranged[position]) {
      throw py::type_error(to_utf8(name) + "() got '" + to_utf8(keyword) + "' twice");
    }
    arranged[position] = value;
  }
  for (size_t i = 0; i < arranged.size(); ++i) {
    if (!arranged[i]) {
      throw py::type_error(to_utf8(name) + "() is missing its argument " + std::to_string(i + 1));
    }
  }
  return arranged;
}

}  // namespace

DispatchObject::DispatchObject(tivalo::ComPtr<IDispatch> object) : object_(std::move(object)) {}

DispatchObject DispatchObject::create(const std::wstring& class_name) {
  CLSID clsid{};
  HRESULT hr = class_name.size() > 0 && class_name[0] == L'{'
                   ? CLSIDFromString(class_name.c_str(), &clsid)
                   : CLSIDFromProgID(class_name.c_str(), &clsid);
  tivalo::ComPtr<IDispatch> object;
  if (SUCCEEDED(hr)) {
    hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch, object.put_void());
  }
  if (FAILED(hr)) raise_com_error(hr, class_name);
  if (!object) raise_com_error(E_NOINTERFACE, class_name);
  return DispatchObject(std::move(object));
}

DISPID DispatchObject::id_of(const std::wstring& name) {
  std::wstring copy = name;
  LPOLESTR names[] = {copy.data()};
  DISPID id = DISPID_UNKNOWN;
  HRESULT hr = object_->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
  if (hr == DISP_E_UNKNOWNNAME || hr == DISP_E_MEMBERNOTFOUND) {
    throw py::attribute_error("'" + to_utf8(interface_name()) + "' has no member '" +
                              to_utf8(name) + "'");
  }
  if (FAILED(hr)) raise_com_error(hr, name);
  return id;
}

const TypeMembers* DispatchObject::members() {
  if (!members_read_) {
    members_ = TypeMembers::of(object_.get());
    members_read_ = true;
  }
  return members_.get();
}

const Member* DispatchObject::member(DISPID id) {
  return members() ? members()->find(id) : nullptr;
}

py::object DispatchObject::bound_callable(DISPID id, const Member& member, WORD flags) {
  DispatchObject self = *this;
  auto call = [self, id, member, flags](py::args args, py::kwargs kwargs) {
    std::vector<py::handle> values = arrange(&member, member.name, args, kwargs);
    Arguments arguments(values.size());
    for (size_t i = 0; i < values.size(); ++i) {
      VARTYPE declared = i < member.parameters.size() ? member.parameters[i].type : VT_VARIANT;
      to_variant(values[i], declared, arguments.at(i));
    }
    return invoke(self.get(), id, flags, arguments.params(), member.name);
  };
  return py::cpp_function(std::move(call), py::name(to_utf8(member.name).c_str()));
}

py::object DispatchObject::get_attribute(const std::wstring& name) {
  if (is_python_name(name)) throw py::attribute_error(to_utf8(name));
  DISPID id = id_of(name);
  const Member* known = member(id);
  if (!known) {
    // Without type information the member is got the way a script host does: either kind.
    Arguments none(0);
    return invoke(object_.get(), id, DISPATCH_METHOD | DISPATCH_PROPERTYGET, none.params(), name);
  }
  if (known->is_method) return bound_callable(id, *known, DISPATCH_METHOD);
  if (!known->has_get) throw py::attribute_error("'" + to_utf8(known->name) + "' is write-only");
  if (!known->parameters.empty()) return bound_callable(id, *known, DISPATCH_PROPERTYGET);
  Arguments none(0);
  return invoke(object_.get(), id, DISPATCH_PROPERTYGET, none.params(), known->name);
}

void DispatchObject::set_attribute(const std::wstring& name, py::handle value) {
  if (is_python_name(name)) throw py::attribute_error(to_utf8(name));
  DISPID id = id_of(name);
  const Member* known = member(id);
  if (known && !known->has_put) {
    throw py::attribute_error("'" + to_utf8(known->name) + "' cannot be set");
  }
  Arguments argument(1);
  to_variant(value, known ? known->put_type : VT_VARIANT, argument.at(0));
  invoke(object_.get(), id, DISPATCH_PROPERTYPUT, argument.put_params(),
         known ? known->name : name);
}

std::uintptr_t DispatchObject::identity() const {
  tivalo::ComPtr<IUnknown> unknown;
  object_->QueryInterface(IID_IUnknown, unknown.put_void());
  return reinterpret_cast<std::uintptr_t>(unknown.get());
}

std::vector<std::wstring> DispatchObject::member_names() {
  return members() ? members()->names() : std::vector<std::wstring>();
}

std::wstring DispatchObject::interface_name() {
  return members() && !members()->interface_name().empty() ? members()->interface_name()
                                                           : L"IDispatch";
}

}  // namespace tivalo::python
