#include "module/type_info.h"

#include "model/object.h"
#include "module/catalogue.h"

#include <atomic>
#include <new>
#include <string>

namespace Morvek::Tivalo {

namespace {

constexpr WORD dispatch_interface_flags = TYPEFLAG_FDUAL | TYPEFLAG_FNONEXTENSIBLE |
                                          TYPEFLAG_FOLEAUTOMATION | TYPEFLAG_FDISPATCHABLE;
constexpr WORD idispatch_slots = 7;
// The widest member: three [in] strings and the [out, retval] errors.
constexpr size_t max_params = 4;

BSTR bstr_of(const char* text) {
  if (!text) return nullptr;
  std::wstring wide(text, text + std::char_traits<char>::length(text));
  return SysAllocStringLen(wide.data(), UINT(wide.size()));
}

// A FUNCDESC with the storage its pointers point into, freed as one block.
struct FuncDescBlock {
  FUNCDESC desc;
  ELEMDESC params[max_params];
  TYPEDESC pointees[max_params + 1];
};

INVOKEKIND invoke_kind(TypeLibrary::MemberKind kind) {
  switch (kind) {
    case TypeLibrary::MemberKind::PropGet: return INVOKE_PROPERTYGET;
    case TypeLibrary::MemberKind::PropPut: return INVOKE_PROPERTYPUT;
    case TypeLibrary::MemberKind::Method: return INVOKE_FUNC;
  }
  return INVOKE_FUNC;
}

// An object is a pointer to its class's interface, referred to by HREFTYPE k.
void describe(const TypeLibrary::Param& param, TYPEDESC& desc, TYPEDESC& pointee) {
  using TypeLibrary::ParamType;
  switch (param.type) {
    case ParamType::Bstr: desc.vt = VT_BSTR; break;
    case ParamType::Date: desc.vt = VT_DATE; break;
    case ParamType::Double: desc.vt = VT_R8; break;
    case ParamType::Bool: desc.vt = VT_BOOL; break;
    case ParamType::Long: desc.vt = VT_I4; break;
    case ParamType::Variant: desc.vt = VT_VARIANT; break;
    case ParamType::Object:
      pointee.vt = VT_USERDEFINED;
      pointee.hreftype = HREFTYPE(param.object_class);
      desc.vt = VT_PTR;
      desc.lptdesc = &pointee;
      break;
  }
}

class TypeInfo final : public ITypeInfo {
 public:
  explicit TypeInfo(const TypeLibrary::Class& c) : class_(c) { Module::lock(); }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    if (IsEqualGUID(iid, IID_IUnknown) || IsEqualGUID(iid, IID_ITypeInfo)) {
      *out = static_cast<ITypeInfo*>(this);
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG count = --references_;
    if (count == 0) delete this;
    return count;
  }

  HRESULT STDMETHODCALLTYPE GetTypeAttr(TYPEATTR** out) override {
    if (!out) return E_INVALIDARG;
    auto* attr = new (std::nothrow) TYPEATTR{};
    if (!attr) return E_OUTOFMEMORY;
    attr->guid = class_.iid;
    attr->lcid = TypeLibrary::library.lcid;
    attr->memidConstructor = MEMBERID_NIL;
    attr->memidDestructor = MEMBERID_NIL;
    attr->typekind = TKIND_DISPATCH;
    attr->cFuncs = class_.member_count;
    attr->cImplTypes = 1;  // IDispatch
    attr->cbSizeVft = WORD(idispatch_slots * sizeof(void*));
    attr->cbAlignment = alignof(void*);
    attr->wTypeFlags = dispatch_interface_flags;
    *out = attr;
    return S_OK;
  }

  // Dispatch view of a dual member: the [out, retval] parameter becomes the function's type.
  HRESULT STDMETHODCALLTYPE GetFuncDesc(UINT index, FUNCDESC** out) override {
    if (!out) return E_INVALIDARG;
    *out = nullptr;
    if (index >= class_.member_count) return TYPE_E_ELEMENTNOTFOUND;
    const TypeLibrary::Member& m = class_.members[index];
    auto* block = new (std::nothrow) FuncDescBlock{};
    if (!block) return E_OUTOFMEMORY;
    FUNCDESC& desc = block->desc;
    desc.memid = m.dispid;
    desc.funckind = FUNC_DISPATCH;
    desc.invkind = invoke_kind(m.kind);
    desc.callconv = CC_STDCALL;
    desc.oVft = SHORT(m.slot * sizeof(void*));
    desc.elemdescFunc.tdesc.vt = VT_VOID;
    desc.lprgelemdescParam = block->params;
    for (size_t i = 0; i < m.param_count && i < max_params; ++i) {
      const TypeLibrary::Param& p = m.params[i];
      if (p.retval) {
        describe(p, desc.elemdescFunc.tdesc, block->pointees[max_params]);
        continue;
      }
      ELEMDESC& param = block->params[desc.cParams];
      describe(p, param.tdesc, block->pointees[desc.cParams]);
      param.paramdesc.wParamFlags = PARAMFLAG_FIN;
      ++desc.cParams;
    }
    *out = &block->desc;
    return S_OK;
  }

  // The member's name, then the names of its [in] parameters (a put's value has none).
  HRESULT STDMETHODCALLTYPE GetNames(MEMBERID id, BSTR* names, UINT max_names,
                                     UINT* count) override {
    if (!names || !count) return E_INVALIDARG;
    *count = 0;
    const TypeLibrary::Member* m = member(id);
    if (!m) return TYPE_E_ELEMENTNOTFOUND;
    if (max_names == 0) return S_OK;
    names[(*count)++] = bstr_of(m->name);
    for (size_t i = 0; i < m->param_count && *count < max_names; ++i) {
      const TypeLibrary::Param& p = m->params[i];
      if (!p.retval && p.name) names[(*count)++] = bstr_of(p.name);
    }
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetIDsOfNames(LPOLESTR* names, UINT count, MEMBERID* ids) override {
    return Dispatch::GetIDsOfNames(class_.k, IID_NULL, names, count, 0, ids);
  }

  HRESULT STDMETHODCALLTYPE Invoke(PVOID instance, MEMBERID id, WORD flags, DISPPARAMS* params,
                                   VARIANT* result, EXCEPINFO* exception,
                                   UINT* arg_error) override {
    if (!instance) return E_INVALIDARG;
    return Dispatch::Invoke(class_.k, static_cast<IDispatch*>(instance), id, IID_NULL, 0, flags,
                            params, result, exception, arg_error);
  }

  // MEMBERID_NIL describes the interface itself.
  HRESULT STDMETHODCALLTYPE GetDocumentation(MEMBERID id, BSTR* name, BSTR* doc,
                                             DWORD* help_context, BSTR* help_file) override {
    const char* name_text = nullptr;
    const char* doc_text = nullptr;
    if (id == MEMBERID_NIL) {
      name_text = class_.interface_name;
      doc_text = class_.interface_help;
    } else if (const TypeLibrary::Member* m = member(id)) {
      name_text = m->name;
    } else {
      return TYPE_E_ELEMENTNOTFOUND;
    }
    if (name) *name = bstr_of(name_text);
    if (doc) *doc = bstr_of(doc_text);
    if (help_context) *help_context = 0;
    if (help_file) *help_file = nullptr;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetRefTypeInfo(HREFTYPE type, ITypeInfo** out) override {
    if (!out) return E_INVALIDARG;
    return create_type_info(int(type), out);
  }

  void STDMETHODCALLTYPE ReleaseTypeAttr(TYPEATTR* attr) override { delete attr; }
  void STDMETHODCALLTYPE ReleaseFuncDesc(FUNCDESC* desc) override {
    delete reinterpret_cast<FuncDescBlock*>(desc);
  }
  void STDMETHODCALLTYPE ReleaseVarDesc(VARDESC*) override {}

  // Nothing else of a type library exists here.
  HRESULT STDMETHODCALLTYPE GetTypeComp(ITypeComp**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetVarDesc(UINT, VARDESC**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetRefTypeOfImplType(UINT, HREFTYPE*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetImplTypeFlags(UINT, INT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetDllEntry(MEMBERID, INVOKEKIND, BSTR*, BSTR*, WORD*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE AddressOfMember(MEMBERID, INVOKEKIND, PVOID*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID, PVOID*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetMops(MEMBERID, BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetContainingTypeLib(ITypeLib**, UINT*) override {
    return E_NOTIMPL;
  }

 private:
  ~TypeInfo() { Module::unlock(); }

  // The get (or the method) of a DISPID: the one with parameter names.
  const TypeLibrary::Member* member(MEMBERID id) const {
    const TypeLibrary::Member* found = nullptr;
    for (size_t i = 0; i < class_.member_count; ++i) {
      const TypeLibrary::Member& m = class_.members[i];
      if (m.dispid != id) continue;
      if (!found || found->kind == TypeLibrary::MemberKind::PropPut) found = &m;
    }
    return found;
  }

  const TypeLibrary::Class& class_;
  std::atomic<ULONG> references_{0};
};

}  // namespace

HRESULT create_type_info(int k, ITypeInfo** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (k < 0 || size_t(k) >= TypeLibrary::class_count()) return E_INVALIDARG;
  auto* info = new (std::nothrow) TypeInfo(TypeLibrary::classes()[k]);
  if (!info) return E_OUTOFMEMORY;
  return info->QueryInterface(IID_ITypeInfo, reinterpret_cast<void**>(out));
}

}  // namespace Morvek::Tivalo
