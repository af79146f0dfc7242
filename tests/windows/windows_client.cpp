// An early-bound client of the registered component, as a Windows application uses it:
//   windows_client <path of TivaloCOM.dll>
// It reads a missing file through IInvoice and takes the description through ISupportErrorInfo
// and GetErrorInfo, counts the type library's coclasses and interfaces, and walks the type
// information an object hands out. Prints one line per finding and "client: done" at the end.
#include "tivalo/interfaces.h"

#include <cstdio>
#include <string>

namespace {

int failures = 0;

void expect(bool condition, const char* what) {
  std::printf("%s: %s\n", condition ? "ok" : "FAILED", what);
  if (!condition) ++failures;
}

std::string narrow(const wchar_t* text) {
  std::string out;
  for (; text && *text; ++text) out += *text < 128 ? char(*text) : '?';
  return out;
}

void early_bound_failure() {
  IInvoice* invoice = nullptr;
  HRESULT hr = CoCreateInstance(CLSID_Invoice, nullptr, CLSCTX_INPROC_SERVER, IID_IInvoice,
                                reinterpret_cast<void**>(&invoice));
  expect(SUCCEEDED(hr) && invoice, "CoCreateInstance(CLSID_Invoice) gives IInvoice");
  if (!invoice) return;

  BSTR missing = SysAllocString(L"C:\\no such directory\\invoice.xml");
  hr = invoice->Read(missing);
  SysFreeString(missing);
  expect(hr == DISP_E_EXCEPTION, "a failing Read returns DISP_E_EXCEPTION");

  ISupportErrorInfo* support = nullptr;
  hr = invoice->QueryInterface(IID_ISupportErrorInfo, reinterpret_cast<void**>(&support));
  expect(SUCCEEDED(hr) && support, "the object answers ISupportErrorInfo");
  if (support) {
    expect(support->InterfaceSupportsErrorInfo(IID_IInvoice) == S_OK, "IInvoice reports errors");
    expect(support->InterfaceSupportsErrorInfo(IID_IAddress) == S_FALSE, "IAddress is not its own");
    support->Release();
  }
  IErrorInfo* error = nullptr;
  expect(GetErrorInfo(0, &error) == S_OK && error, "GetErrorInfo gives the error information");
  if (error) {
    BSTR description = nullptr, source = nullptr;
    error->GetDescription(&description);
    error->GetSource(&source);
    std::printf("description: %s\n", narrow(description).c_str());
    std::printf("source: %s\n", narrow(source).c_str());
    expect(description && std::wstring(description) == L"Tivalo: Can't open file for read.",
           "the description is the component's message");
    expect(source && std::wstring(source) == L"TivaloCOM.Invoice.1", "the source is the ProgID");
    SysFreeString(description);
    SysFreeString(source);
    error->Release();
  }

  ITypeInfo* info = nullptr;
  expect(SUCCEEDED(invoice->GetTypeInfo(0, 0, &info)) && info, "GetTypeInfo gives type information");
  if (info) {
    ITypeLib* library = nullptr;
    UINT index = 0;
    expect(SUCCEEDED(info->GetContainingTypeLib(&library, &index)) && library,
           "GetContainingTypeLib");
    if (library) {
      TLIBATTR* attributes = nullptr;
      library->GetLibAttr(&attributes);
      expect(attributes && IsEqualGUID(attributes->guid, LIBID_TivaloCOMLib),
             "the containing library is TivaloCOMLib");
      if (attributes) library->ReleaseTLibAttr(attributes);
      library->Release();
    }
    HREFTYPE dual = 0;
    ITypeInfo* interface_part = nullptr;
    expect(SUCCEEDED(info->GetRefTypeOfImplType(UINT(-1), &dual)) &&
               SUCCEEDED(info->GetRefTypeInfo(dual, &interface_part)),
           "GetRefTypeOfImplType reaches the dual interface");
    if (interface_part) interface_part->Release();
    ITypeComp* comp = nullptr;
    expect(SUCCEEDED(info->GetTypeComp(&comp)) && comp, "GetTypeComp");
    if (comp) comp->Release();
    BSTR name = nullptr;
    info->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr);
    expect(name && std::wstring(name) == L"IInvoice", "the type information is IInvoice's");
    SysFreeString(name);
    info->Release();
  }
  invoice->Release();
}

void type_library(const wchar_t* dll) {
  ITypeLib* library = nullptr;
  HRESULT hr = LoadTypeLib(dll, &library);
  expect(SUCCEEDED(hr) && library, "LoadTypeLib loads the DLL's type library");
  if (!library) return;
  int coclasses = 0, interfaces = 0, others = 0;
  for (UINT i = 0; i < library->GetTypeInfoCount(); ++i) {
    TYPEKIND kind;
    library->GetTypeInfoType(i, &kind);
    if (kind == TKIND_COCLASS) ++coclasses;
    else if (kind == TKIND_DISPATCH || kind == TKIND_INTERFACE) ++interfaces;
    else ++others;
  }
  std::printf("type library: %d coclasses, %d interfaces, %d others\n", coclasses, interfaces,
              others);
  expect(coclasses == 154 && interfaces == 154 && others == 0, "154 coclasses and 154 interfaces");
  ITypeInfo* info = nullptr;
  if (SUCCEEDED(library->GetTypeInfoOfGuid(IID_IInvoice, &info)) && info) {
    TYPEATTR* attributes = nullptr;
    info->GetTypeAttr(&attributes);
    std::printf("IInvoice: %d functions\n", attributes ? attributes->cFuncs : -1);
    expect(attributes && attributes->cFuncs == 181 + 7, "IInvoice has its 181 members after IDispatch");
    if (attributes) info->ReleaseTypeAttr(attributes);
    info->Release();
  }
  library->Release();
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc < 2) {
    std::printf("usage: windows_client <TivaloCOM.dll>\n");
    return 2;
  }
  CoInitialize(nullptr);
  early_bound_failure();
  type_library(argv[1]);
  CoUninitialize();
  std::printf("client: done, %d failed\n", failures);
  return failures ? 1 : 0;
}
