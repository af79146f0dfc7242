#include "document/error_report.h"

namespace Morvek::Tivalo::Documents {

HRESULT report_error(const DocumentBinding& kind, const std::wstring& message) {
  ICreateErrorInfo* error = nullptr;
  if (FAILED(CreateErrorInfo(&error)) || !error) return DISP_E_EXCEPTION;

  error->SetGUID(*kind.iid);
  LPOLESTR source = nullptr;
  if (SUCCEEDED(ProgIDFromCLSID(*kind.clsid, &source)) && source) {
    error->SetSource(source);
    CoTaskMemFree(source);
  }
  std::wstring description = message;
  error->SetDescription(description.data());

  IErrorInfo* info = nullptr;
  if (SUCCEEDED(error->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&info))) && info) {
    SetErrorInfo(0, info);
    info->Release();
  }
  error->Release();
  return DISP_E_EXCEPTION;
}

}  // namespace Morvek::Tivalo::Documents
