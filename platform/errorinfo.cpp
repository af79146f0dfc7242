#include <atomic>
#include <new>

#include "platform/automation.h"

namespace {

// The error object: written through ICreateErrorInfo, read through IErrorInfo.
class ErrorInfo final : public IErrorInfo, public ICreateErrorInfo {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (!object) return E_POINTER;
    if (IsEqualGUID(iid, IID_IUnknown) || IsEqualGUID(iid, IID_IErrorInfo)) {
      *object = static_cast<IErrorInfo*>(this);
    } else if (IsEqualGUID(iid, IID_ICreateErrorInfo)) {
      *object = static_cast<ICreateErrorInfo*>(this);
    } else {
      *object = nullptr;
      return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }

  HRESULT STDMETHODCALLTYPE GetGUID(GUID* guid) override {
    if (!guid) return E_INVALIDARG;
    *guid = guid_;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetSource(BSTR* text) override { return source_.copy_to(text); }
  HRESULT STDMETHODCALLTYPE GetDescription(BSTR* text) override { return description_.copy_to(text); }
  HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR* text) override { return helpFile_.copy_to(text); }
  HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD* context) override {
    if (!context) return E_INVALIDARG;
    *context = helpContext_;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE SetGUID(REFGUID guid) override {
    guid_ = guid;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetSource(LPOLESTR text) override { return store(source_, text); }
  HRESULT STDMETHODCALLTYPE SetDescription(LPOLESTR text) override { return store(description_, text); }
  HRESULT STDMETHODCALLTYPE SetHelpFile(LPOLESTR text) override { return store(helpFile_, text); }
  HRESULT STDMETHODCALLTYPE SetHelpContext(DWORD context) override {
    helpContext_ = context;
    return S_OK;
  }

 private:
  static HRESULT store(tivalo::Bstr& field, LPOLESTR text) {
    tivalo::Bstr value(text);
    if (text && !value.get()) return E_OUTOFMEMORY;
    field = std::move(value);
    return S_OK;
  }

  std::atomic<ULONG> references_{1};
  GUID guid_ = GUID_NULL;
  tivalo::Bstr source_, description_, helpFile_;
  DWORD helpContext_ = 0;
};

thread_local tivalo::ComPtr<IErrorInfo> threadErrorInfo;

}  // namespace

HRESULT CreateErrorInfo(ICreateErrorInfo** errorInfo) {
  if (!errorInfo) return E_INVALIDARG;
  *errorInfo = new (std::nothrow) ErrorInfo;
  return *errorInfo ? S_OK : E_OUTOFMEMORY;
}

HRESULT SetErrorInfo(ULONG, IErrorInfo* errorInfo) {
  threadErrorInfo = errorInfo;
  return S_OK;
}

HRESULT GetErrorInfo(ULONG, IErrorInfo** errorInfo) {
  if (!errorInfo) return E_INVALIDARG;
  *errorInfo = threadErrorInfo.detach();
  return *errorInfo ? S_OK : S_FALSE;
}
