// invoke_member<&IX::method>: one late-bound call of one interface member. The method's own
// parameter types say how each VARIANT argument is converted and where the [out, retval] result
// goes; the catalogue's parameter type tells a DATE from a double, which C++ cannot.
#pragma once

#include "module/catalogue.h"

#include <cstddef>
#include <tuple>
#include <utility>

namespace Morvek::Tivalo::Dispatch {

// The [in] arguments of one call in declaration order, already taken out of DISPPARAMS' reverse
// order and out of any VT_BYREF, with each one's index in DISPPARAMS::rgvarg for error reports.
struct Arguments {
  const VARIANT* const* values;
  const UINT* positions;
  // Set when the member itself was called: its failures are the member's, not the arguments'.
  bool* member_called = nullptr;
};

using Thunk = HRESULT (*)(IDispatch* self, const TypeLibrary::Member& member,
                          const Arguments& arguments, VARIANT* result, UINT* bad_argument);

// The thunks of class k in slot order, parallel to the catalogue's members (generated).
struct ClassThunks {
  const Thunk* thunks;
  size_t count;
};
extern const ClassThunks class_thunks[];
extern const size_t class_thunks_count;

VARTYPE vartype_of(TypeLibrary::ParamType type);

// A BSTR, DATE, double, VARIANT_BOOL or LONG argument, coerced as script hosts expect.
template <class T>
class ValueArgument {
 public:
  static constexpr bool is_result = false;
  ValueArgument() { VariantInit(&converted_); }
  ~ValueArgument() { VariantClear(&converted_); }
  ValueArgument(const ValueArgument&) = delete;
  ValueArgument& operator=(const ValueArgument&) = delete;

  HRESULT take(const VARIANT& source, const TypeLibrary::Param& param) {
    // Windows declares the source without const.
    return VariantChangeType(&converted_, const_cast<VARIANT*>(&source), 0, vartype_of(param.type));
  }

  T pass() const {
    if constexpr (std::is_same_v<T, BSTR>) return converted_.bstrVal;
    if constexpr (std::is_same_v<T, double>) return converted_.dblVal;  // DATE shares it
    if constexpr (std::is_same_v<T, VARIANT_BOOL>) return converted_.boolVal;
    if constexpr (std::is_same_v<T, LONG>) return converted_.lVal;
  }

 private:
  VARIANT converted_;
};

// A VARIANT argument goes through as it came.
class VariantArgument {
 public:
  static constexpr bool is_result = false;
  HRESULT take(const VARIANT& source, const TypeLibrary::Param&) {
    value_ = source;
    return S_OK;
  }
  VARIANT pass() const { return value_; }

 private:
  VARIANT value_{};
};

// An object argument: whatever object comes must answer the member's interface. Empty and null
// pass a null object, which the member itself refuses.
template <class Interface>
class ObjectArgument {
 public:
  static constexpr bool is_result = false;
  ObjectArgument() = default;
  ~ObjectArgument() {
    if (object_) object_->Release();
  }
  ObjectArgument(const ObjectArgument&) = delete;
  ObjectArgument& operator=(const ObjectArgument&) = delete;

  HRESULT take(const VARIANT& source, const TypeLibrary::Param&) {
    IUnknown* given = nullptr;
    switch (source.vt) {
      case VT_EMPTY:
      case VT_NULL:
        return S_OK;
      case VT_DISPATCH:
        given = source.pdispVal;
        break;
      case VT_UNKNOWN:
        given = source.punkVal;
        break;
      default:
        return DISP_E_TYPEMISMATCH;
    }
    if (!given) return S_OK;
    void* object = nullptr;
    if (FAILED(given->QueryInterface(tivalo::iid_of<Interface>(), &object)))
      return DISP_E_TYPEMISMATCH;
    object_ = static_cast<Interface*>(object);
    return S_OK;
  }
  Interface* pass() const { return object_; }

 private:
  Interface* object_ = nullptr;
};

// The [out, retval] slot of a BSTR, DATE, double, VARIANT_BOOL or LONG, handed to the caller's
// result VARIANT on success (or freed when the caller wants none).
template <class T>
class ValueResult {
 public:
  static constexpr bool is_result = true;
  ValueResult() = default;
  ~ValueResult() {
    if constexpr (std::is_same_v<T, BSTR>) SysFreeString(value_);
  }
  ValueResult(const ValueResult&) = delete;
  ValueResult& operator=(const ValueResult&) = delete;

  T* pass() { return &value_; }

  void store(VARIANT* result, const TypeLibrary::Param& param) {
    if (!result) return;
    result->vt = vartype_of(param.type);
    if constexpr (std::is_same_v<T, BSTR>) result->bstrVal = std::exchange(value_, nullptr);
    if constexpr (std::is_same_v<T, double>) result->dblVal = value_;  // DATE shares it
    if constexpr (std::is_same_v<T, VARIANT_BOOL>) result->boolVal = value_;
    if constexpr (std::is_same_v<T, LONG>) result->lVal = value_;
  }

 private:
  T value_{};
};

class VariantResult {
 public:
  static constexpr bool is_result = true;
  VariantResult() { VariantInit(&value_); }
  ~VariantResult() { VariantClear(&value_); }
  VariantResult(const VariantResult&) = delete;
  VariantResult& operator=(const VariantResult&) = delete;

  VARIANT* pass() { return &value_; }
  void store(VARIANT* result, const TypeLibrary::Param&) {
    if (!result) return;
    *result = value_;
    VariantInit(&value_);
  }

 private:
  VARIANT value_;
};

template <class Interface>
class ObjectResult {
 public:
  static constexpr bool is_result = true;
  ObjectResult() = default;
  ~ObjectResult() {
    if (object_) object_->Release();
  }
  ObjectResult(const ObjectResult&) = delete;
  ObjectResult& operator=(const ObjectResult&) = delete;

  Interface** pass() { return &object_; }
  void store(VARIANT* result, const TypeLibrary::Param&) {
    if (!result) return;
    result->vt = VT_DISPATCH;
    result->pdispVal = std::exchange(object_, nullptr);
  }

 private:
  Interface* object_ = nullptr;
};

// Which holder carries a parameter of C++ type T. BSTR* is wchar_t**, so the full
// specialisations must win over the object ones, as they do.
template <class T>
struct HolderOf;
template <> struct HolderOf<BSTR> { using type = ValueArgument<BSTR>; };
template <> struct HolderOf<double> { using type = ValueArgument<double>; };
template <> struct HolderOf<VARIANT_BOOL> { using type = ValueArgument<VARIANT_BOOL>; };
template <> struct HolderOf<LONG> { using type = ValueArgument<LONG>; };
template <> struct HolderOf<VARIANT> { using type = VariantArgument; };
template <class I> struct HolderOf<I*> { using type = ObjectArgument<I>; };
template <> struct HolderOf<BSTR*> { using type = ValueResult<BSTR>; };
template <> struct HolderOf<double*> { using type = ValueResult<double>; };
template <> struct HolderOf<VARIANT_BOOL*> { using type = ValueResult<VARIANT_BOOL>; };
template <> struct HolderOf<LONG*> { using type = ValueResult<LONG>; };
template <> struct HolderOf<VARIANT*> { using type = VariantResult; };
template <class I> struct HolderOf<I**> { using type = ObjectResult<I>; };

// Converts the arguments in order, calls, and hands over the result. Parameter i of the method
// is parameter i of the catalogue member; the [out, retval] one, if any, is the last. One
// instantiation per distinct parameter list, shared by every member that has it.
template <class... Params, size_t... I>
HRESULT convert_and_call(HRESULT (*call)(IDispatch*, Params...), IDispatch* self,
                         const TypeLibrary::Member& member, const Arguments& arguments,
                         VARIANT* result, UINT* bad_argument, std::index_sequence<I...>) {
  std::tuple<typename HolderOf<Params>::type...> holders;
  HRESULT hr = S_OK;
  [[maybe_unused]] auto take = [&](auto& holder, size_t index) {
    if constexpr (!std::decay_t<decltype(holder)>::is_result) {
      if (FAILED(hr)) return;
      hr = holder.take(*arguments.values[index], member.params[index]);
      if (FAILED(hr) && bad_argument) *bad_argument = arguments.positions[index];
    }
  };
  (take(std::get<I>(holders), I), ...);
  if (FAILED(hr)) return hr;

  if (arguments.member_called) *arguments.member_called = true;
  hr = call(self, std::get<I>(holders).pass()...);
  if (FAILED(hr)) return hr;
  [[maybe_unused]] auto store = [&](auto& holder, size_t index) {
    if constexpr (std::decay_t<decltype(holder)>::is_result) {
      holder.store(result, member.params[index]);
    }
  };
  (store(std::get<I>(holders), I), ...);
  return hr;
}

// The per-member part: the call itself, on the interface the object was handed out as.
template <auto Method>
struct MemberCall;
template <class Interface, class... Params, HRESULT (Interface::*Method)(Params...)>
struct MemberCall<Method> {
  static HRESULT call(IDispatch* self, Params... params) {
    return (static_cast<Interface*>(self)->*Method)(params...);
  }
  static HRESULT invoke(IDispatch* self, const TypeLibrary::Member& member,
                        const Arguments& arguments, VARIANT* result, UINT* bad_argument) {
    return convert_and_call<Params...>(&call, self, member, arguments, result, bad_argument,
                                       std::index_sequence_for<Params...>());
  }
};

// The thunk of one interface member: invoke_member<&IAddress::get_ID>.
template <auto Method>
constexpr Thunk invoke_member = &MemberCall<Method>::invoke;

}  // namespace Morvek::Tivalo::Dispatch
