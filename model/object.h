// The automation object template: identity, reference counting, aggregation, the module lock
// and IDispatch for every one of the component's classes.
#pragma once

#include "model/guard.h"
#include "platform/automation.h"

#include <new>

namespace Morvek::Tivalo {

// The module lock: every live object and every LockServer(TRUE) holds one.
namespace Module {
LONG lock();
LONG unlock();
LONG lock_count();
// A new object of the class, from the module's own class object.
HRESULT create_instance(REFCLSID clsid, REFIID iid, void** out);
}  // namespace Module

// Late binding for object k of the catalogue, answered from the generated dispatch tables.
namespace Dispatch {
HRESULT GetTypeInfoCount(UINT* count);
HRESULT GetTypeInfo(int k, UINT index, LCID lcid, ITypeInfo** info);
HRESULT GetIDsOfNames(int k, REFIID riid, LPOLESTR* names, UINT count, LCID lcid, DISPID* ids);
HRESULT Invoke(int k, IDispatch* self, DISPID id, REFIID riid, LCID lcid, WORD flags,
               DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception, UINT* arg_error);
}  // namespace Dispatch

// Asking an object for this interface yields its implementation object, unreferenced. It is how
// the load and store steps reach a child's member record; foreign objects do not answer it.
extern const IID IID_TivaloImplementation;

// Instance creator of a class, as the class factories call it.
using InstanceCreator = HRESULT (*)(IUnknown* outer, REFIID iid, void** out);

// One row of the generated class table, in catalogue order.
struct ClassEntry {
  const CLSID* clsid;
  InstanceCreator create;
};
extern const ClassEntry class_table[];
extern const int class_table_size;

// The class behind each interface; the generated classes specialise it.
template <class Interface>
struct ClassOf;

template <class Interface>
const CLSID& clsid_of() {
  return ClassOf<Interface>::clsid();
}

// Creates a new object the way a client does, through the module's class objects.
template <class Interface>
HRESULT create_object(Interface** out) {
  return Module::create_instance(clsid_of<Interface>(), tivalo::iid_of<Interface>(),
                                 reinterpret_cast<void**>(out));
}

// The implementation object behind an interface pointer, or null for a foreign object.
template <class Impl>
Impl* implementation_of(IUnknown* object) {
  void* impl = nullptr;
  if (!object || FAILED(object->QueryInterface(IID_TivaloImplementation, &impl))) return nullptr;
  return static_cast<Impl*>(impl);
}

// Impl derives from Automation<Impl, Interface> and declares `static constexpr int catalogue_index`.
// Objects live in one apartment: the reference count is not atomic, the module lock is.
// Every object tells clients that its interface reports failures through error information.
template <class Impl, class Interface>
class Automation : public Interface, public ISupportErrorInfo {
 public:
  Automation(const Automation&) = delete;
  Automation& operator=(const Automation&) = delete;

  // The class factory's instance creator. With an outer object the new object is aggregated and
  // only its non-delegating IUnknown may be asked for.
  static HRESULT create(IUnknown* outer, REFIID iid, void** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (outer && !IsEqualGUID(iid, IID_IUnknown)) return CLASS_E_NOAGGREGATION;
    return guarded([&] {
      Impl* object = new Impl();
      object->outer_ = outer;
      object->inner_.AddRef();
      HRESULT hr = object->inner_.QueryInterface(iid, out);
      object->inner_.Release();
      return hr;
    });
  }

  // IUnknown: delegates to the controlling unknown when aggregated, except for the private
  // implementation query, which only the object itself can answer truthfully.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) final {
    if (outer_ && !IsEqualGUID(iid, IID_TivaloImplementation))
      return outer_->QueryInterface(iid, out);
    return inner_.QueryInterface(iid, out);
  }
  ULONG STDMETHODCALLTYPE AddRef() final { return outer_ ? outer_->AddRef() : inner_.AddRef(); }
  ULONG STDMETHODCALLTYPE Release() final { return outer_ ? outer_->Release() : inner_.Release(); }

  // IDispatch, from the catalogue.
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) final {
    return Dispatch::GetTypeInfoCount(count);
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID lcid, ITypeInfo** info) final {
    return guarded(
        [&] { return Dispatch::GetTypeInfo(Impl::catalogue_index, index, lcid, info); });
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid,
                                          DISPID* ids) final {
    return guarded([&] {
      return Dispatch::GetIDsOfNames(Impl::catalogue_index, riid, names, count, lcid, ids);
    });
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags,
                                   DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception,
                                   UINT* arg_error) final {
    return guarded([&] {
      return Dispatch::Invoke(Impl::catalogue_index, static_cast<Interface*>(this), id, riid,
                              lcid, flags, params, result, exception, arg_error);
    });
  }

  // ISupportErrorInfo
  HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID iid) final {
    return IsEqualGUID(iid, tivalo::iid_of<Interface>()) ? S_OK : S_FALSE;
  }

 protected:
  Automation() { Module::lock(); }
  virtual ~Automation() { Module::unlock(); }

 private:
  // The object's own, non-delegating IUnknown: the one an aggregating outer object holds.
  struct Inner final : IUnknown {
    explicit Inner(Automation* self) : self(self) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
      if (!out) return E_POINTER;
      if (IsEqualGUID(iid, IID_TivaloImplementation)) {
        *out = static_cast<Impl*>(self);
        return S_OK;
      }
      if (IsEqualGUID(iid, IID_IUnknown)) {
        *out = self->outer_ ? static_cast<IUnknown*>(this)
                            : static_cast<IUnknown*>(static_cast<Interface*>(self));
      } else if (IsEqualGUID(iid, IID_IDispatch) || IsEqualGUID(iid, tivalo::iid_of<Interface>())) {
        *out = static_cast<Interface*>(self);
      } else if (IsEqualGUID(iid, IID_ISupportErrorInfo)) {
        *out = static_cast<ISupportErrorInfo*>(self);
      } else {
        *out = nullptr;
        return E_NOINTERFACE;
      }
      static_cast<IUnknown*>(*out)->AddRef();
      return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++self->references_; }
    ULONG STDMETHODCALLTYPE Release() override {
      ULONG left = --self->references_;
      if (left == 0) delete self;
      return left;
    }
    Automation* self;
  };

  ULONG references_ = 0;
  IUnknown* outer_ = nullptr;
  Inner inner_{this};
};

}  // namespace Morvek::Tivalo
