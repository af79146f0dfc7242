#include "document/error_report.h"

#include "model/guard.h"

namespace Morvek::Tivalo::Documents {

HRESULT report_error(const DocumentBinding& kind, const std::wstring& message) {
  LPOLESTR source = nullptr;
  if (FAILED(ProgIDFromCLSID(*kind.clsid, &source))) source = nullptr;
  set_error_information(message, source, kind.iid);
  CoTaskMemFree(source);
  return DISP_E_EXCEPTION;
}

}  // namespace Morvek::Tivalo::Documents
