#include "document/text.h"

#include "binding/errors.h"

namespace Morvek::Tivalo::Documents {

std::wstring text_of(BSTR text) { return text ? std::wstring(text) : std::wstring(); }

std::string file_path(const std::wstring& path) {
  if (path.empty()) return {};
  const int length = static_cast<int>(path.size());
  const int size = WideCharToMultiByte(CP_UTF8, 0, path.data(), length, nullptr, 0, nullptr, nullptr);
  std::string bytes(static_cast<size_t>(size > 0 ? size : 0), '\0');
  if (size > 0)
    WideCharToMultiByte(CP_UTF8, 0, path.data(), length, &bytes[0], size, nullptr, nullptr);
  return bytes;
}

std::string ansi_bytes(BSTR text) {
  constexpr size_t too_long = size_t(1) << 30;
  const std::wstring wide = text_of(text);
  const size_t characters = wide.size() + 1;  // with the terminator
  if (characters >= too_long) return {};
  std::string buffer(2 * characters, '\0');
  const int written =
      WideCharToMultiByte(CP_THREAD_ACP, 0, wide.c_str(), static_cast<int>(characters),
                          &buffer[0], static_cast<int>(buffer.size()), nullptr, nullptr);
  if (written <= 0) return {};
  buffer.resize(static_cast<size_t>(written) - 1);
  return buffer;
}

BSTR ansi_string(const std::string& bytes) {
  const int measured = MultiByteToWideChar(CP_THREAD_ACP, 0, bytes.c_str(), -1, nullptr, 0);
  if (measured <= 0) return nullptr;
  BSTR text = SysAllocStringLen(nullptr, static_cast<UINT>(measured - 1));
  if (!text) return nullptr;
  if (MultiByteToWideChar(CP_THREAD_ACP, 0, bytes.c_str(), -1, text, measured) != measured) {
    SysFreeString(text);
    return nullptr;
  }
  return text;
}

std::wstring widen_bytes(const std::string& bytes) {
  std::wstring wide;
  wide.reserve(bytes.size());
  for (char c : bytes) wide += static_cast<wchar_t>(static_cast<unsigned char>(c));
  return wide;
}

std::wstring printed(const xsd::cxx::exception& error) {
  if (auto* binding_error = dynamic_cast<const xml_schema::exception*>(&error))
    return UBL2::error_text(*binding_error);
  return widen_bytes(error.what());
}

}  // namespace Morvek::Tivalo::Documents
