#include "module/class_factory.h"

#include <atomic>
#include <new>

namespace Morvek::Tivalo {

namespace {

// Shared between threads, unlike the objects it makes: its reference count is atomic.
class ClassFactory final : public IClassFactory {
 public:
  explicit ClassFactory(InstanceCreator create) : create_(create) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    if (IsEqualGUID(iid, IID_IUnknown) || IsEqualGUID(iid, IID_IClassFactory)) {
      *out = static_cast<IClassFactory*>(this);
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }

  // The class map holds the first reference; any further one locks the module.
  ULONG STDMETHODCALLTYPE AddRef() override {
    ULONG count = ++references_;
    if (count == 2) Module::lock();
    return count;
  }

  ULONG STDMETHODCALLTYPE Release() override {
    ULONG count = --references_;
    if (count == 1) Module::unlock();
    if (count == 0) delete this;
    return count;
  }

  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    return create_(outer, iid, out);
  }

  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
    if (lock) {
      Module::lock();
    } else {
      Module::unlock();
    }
    return S_OK;
  }

 private:
  InstanceCreator create_;
  std::atomic<ULONG> references_{0};
};

}  // namespace

HRESULT create_class_factory(InstanceCreator create, REFIID iid, void** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (!create) return E_UNEXPECTED;
  auto* factory = new (std::nothrow) ClassFactory(create);
  if (!factory) return E_OUTOFMEMORY;
  HRESULT hr = factory->QueryInterface(iid, out);
  if (FAILED(hr)) delete factory;
  return hr;
}

}  // namespace Morvek::Tivalo
