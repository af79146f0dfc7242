#include "model/guard.h"

#include <xercesc/dom/DOMException.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/XMLException.hpp>

#include <exception>
#include <new>

namespace Morvek::Tivalo {
namespace {

std::wstring wide(const char* text) {
  std::wstring out;
  for (const char* c = text ? text : ""; *c; ++c) out += wchar_t(static_cast<unsigned char>(*c));
  return out;
}

std::wstring wide(const XMLCh* text) {
  std::wstring out;
  for (const XMLCh* c = text; c && *c; ++c) out += wchar_t(*c);
  return out;
}

Failure unexpected(const std::wstring& what) {
  return {E_UNEXPECTED, L"Tivalo: Unexpected failure: " + what};
}

}  // namespace

Failure current_failure() noexcept {
  try {
    try {
      throw;
    } catch (const std::bad_alloc&) {
      return {E_OUTOFMEMORY, L"Tivalo: Out of memory."};
    } catch (const xercesc::OutOfMemoryException&) {
      return {E_OUTOFMEMORY, L"Tivalo: Out of memory."};
    } catch (const std::exception& failure) {
      return unexpected(wide(failure.what()));
    } catch (const xercesc::XMLException& failure) {
      return unexpected(wide(failure.getMessage()));
    } catch (const xercesc::DOMException& failure) {
      return unexpected(wide(failure.getMessage()));
    } catch (...) {
      return unexpected(L"an unknown exception.");
    }
  } catch (const std::bad_alloc&) {
    return {E_OUTOFMEMORY, {}};
  } catch (...) {
    return {};
  }
}

void set_error_information(const std::wstring& description, const wchar_t* source,
                           const GUID* guid) {
  ICreateErrorInfo* error = nullptr;
  if (FAILED(CreateErrorInfo(&error)) || !error) return;
  if (guid) error->SetGUID(*guid);
  std::wstring source_text = source ? source : L"";
  std::wstring description_text = description;
  if (source) error->SetSource(source_text.data());
  error->SetDescription(description_text.data());
  IErrorInfo* info = nullptr;
  if (SUCCEEDED(error->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&info))) && info) {
    SetErrorInfo(0, info);
    info->Release();
  }
  error->Release();
}

HRESULT report_unexpected(const Failure& failure) noexcept {
  if (failure.status == E_OUTOFMEMORY || failure.message.empty()) return failure.status;
  try {
    set_error_information(failure.message, L"TivaloCOM", nullptr);
  } catch (...) {
  }
  return failure.status;
}

}  // namespace Morvek::Tivalo
