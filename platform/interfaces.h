#pragma once
// The platform interfaces as abstract structs with the Windows slot order. Like Windows, they have
// no virtual destructor: objects go away through Release.
#include "platform/dispatch.h"
#include "platform/guid.h"
#include "platform/typeinfo.h"

#define DECLSPEC_UUID(x)
#define DECLSPEC_NOVTABLE
#define MIDL_INTERFACE(x) struct DECLSPEC_UUID(x) DECLSPEC_NOVTABLE

struct ITypeInfo;
struct ITypeLib;  // referenced by pointer only
struct ITypeComp;  // referenced by pointer only

struct IUnknown {
  virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) = 0;
  virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
  virtual ULONG STDMETHODCALLTYPE Release() = 0;
};
typedef IUnknown* LPUNKNOWN;

struct IDispatch : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* pctinfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT iTInfo, LCID lcid, ITypeInfo** ppTInfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* rgszNames, UINT cNames,
                                                  LCID lcid, DISPID* rgDispId) = 0;
  virtual HRESULT STDMETHODCALLTYPE Invoke(DISPID dispIdMember, REFIID riid, LCID lcid, WORD wFlags,
                                           DISPPARAMS* pDispParams, VARIANT* pVarResult,
                                           EXCEPINFO* pExcepInfo, UINT* puArgErr) = 0;
};
typedef IDispatch* LPDISPATCH;

struct IClassFactory : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnkOuter, REFIID riid,
                                                   void** ppvObject) = 0;
  virtual HRESULT STDMETHODCALLTYPE LockServer(BOOL fLock) = 0;
};

struct IErrorInfo : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetGUID(GUID* pGUID) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetSource(BSTR* pBstrSource) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDescription(BSTR* pBstrDescription) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR* pBstrHelpFile) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD* pdwHelpContext) = 0;
};

struct ICreateErrorInfo : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE SetGUID(REFGUID rguid) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetSource(LPOLESTR szSource) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetDescription(LPOLESTR szDescription) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetHelpFile(LPOLESTR szHelpFile) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetHelpContext(DWORD dwHelpContext) = 0;
};

struct ISupportErrorInfo : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID riid) = 0;
};

struct ITypeInfo : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetTypeAttr(TYPEATTR** ppTypeAttr) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetTypeComp(ITypeComp** ppTComp) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFuncDesc(UINT index, FUNCDESC** ppFuncDesc) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetVarDesc(UINT index, VARDESC** ppVarDesc) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetNames(MEMBERID memid, BSTR* rgBstrNames, UINT cMaxNames,
                                             UINT* pcNames) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRefTypeOfImplType(UINT index, HREFTYPE* pRefType) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetImplTypeFlags(UINT index, INT* pImplTypeFlags) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetIDsOfNames(LPOLESTR* rgszNames, UINT cNames,
                                                  MEMBERID* pMemId) = 0;
  virtual HRESULT STDMETHODCALLTYPE Invoke(PVOID pvInstance, MEMBERID memid, WORD wFlags,
                                           DISPPARAMS* pDispParams, VARIANT* pVarResult,
                                           EXCEPINFO* pExcepInfo, UINT* puArgErr) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDocumentation(MEMBERID memid, BSTR* pBstrName,
                                                     BSTR* pBstrDocString, DWORD* pdwHelpContext,
                                                     BSTR* pBstrHelpFile) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDllEntry(MEMBERID memid, INVOKEKIND invKind,
                                                BSTR* pBstrDllName, BSTR* pBstrName,
                                                WORD* pwOrdinal) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRefTypeInfo(HREFTYPE hRefType, ITypeInfo** ppTInfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddressOfMember(MEMBERID memid, INVOKEKIND invKind,
                                                    PVOID* ppv) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnkOuter, REFIID riid,
                                                   PVOID* ppvObj) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetMops(MEMBERID memid, BSTR* pBstrMops) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetContainingTypeLib(ITypeLib** ppTLib, UINT* pIndex) = 0;
  virtual void STDMETHODCALLTYPE ReleaseTypeAttr(TYPEATTR* pTypeAttr) = 0;
  virtual void STDMETHODCALLTYPE ReleaseFuncDesc(FUNCDESC* pFuncDesc) = 0;
  virtual void STDMETHODCALLTYPE ReleaseVarDesc(VARDESC* pVarDesc) = 0;
};

extern const IID IID_IUnknown;
extern const IID IID_IDispatch;
extern const IID IID_IClassFactory;
extern const IID IID_IErrorInfo;
extern const IID IID_ICreateErrorInfo;
extern const IID IID_ISupportErrorInfo;
extern const IID IID_ITypeInfo;
extern const IID IID_ITypeLib;
extern const IID IID_ITypeComp;
