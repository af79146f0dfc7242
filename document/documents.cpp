// The ten document members: where the bytes come from or go to. The work is in streams.h.
#include "document/error_report.h"
#include "document/markup_limits.h"
#include "document/streams.h"
#include "document/text.h"
#include "model/guard.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <system_error>
#include <thread>

namespace Morvek::Tivalo::Documents {
namespace {

namespace fs = std::filesystem;

// Every document operation runs its body here: whatever escapes it ends in the error report.
template <class Body>
HRESULT operation(const DocumentBinding& kind, Body&& body) noexcept {
  return guarded(std::forward<Body>(body), [&](const Failure& failure) {
    const bool said = !failure.message.empty();
    return report_error(kind, said ? failure.message : L"Tivalo: Out of memory.");
  });
}

std::wstring os_reason(int error) {
  const std::string text =
      error ? std::generic_category().message(error) : "the bytes were not all written";
  return widen_bytes(text);
}

HRESULT write_failed(const DocumentBinding& kind, int error) {
  return report_error(kind, L"Tivalo: Can't write file: " + os_reason(error) + L".");
}

// Writes the bytes and closes the stream; the error number of the first failure, or 0.
bool put_bytes(std::ofstream& out, const std::string& bytes, int& error) {
  errno = 0;
  out.write(bytes.data(), std::streamsize(bytes.size()));
  out.flush();
  if (out) out.close();
  if (out.fail()) {
    error = errno;
    return false;
  }
  return true;
}

// A name beside the target that no other writer picks: the target's own name, hidden, with a
// suffix unique to this call.
fs::path temporary_beside(const fs::path& target) {
  static std::atomic<unsigned> calls{0};
  const auto ticks = std::chrono::steady_clock::now().time_since_epoch().count();
  const size_t unique = std::hash<std::thread::id>()(std::this_thread::get_id()) ^
                        size_t(ticks) ^ (size_t(++calls) << 20);
  fs::path name = target.filename();
  name += ".tivalo-" + std::to_string(unique % 1000000007u) + ".tmp";
  return target.parent_path() / fs::path("." + name.string());
}

// A file is replaced whole or not at all: the bytes go to a temporary file beside it, which takes
// its place only once every byte was written and the file closed. Devices and pipes (a terminal,
// /dev/null) cannot be replaced and are written directly, with the same checks.
HRESULT write_file(const DocumentBinding& kind, const std::string& path, const std::string& bytes) {
  std::error_code ignored;
  fs::path target(path);
  if (!target.has_filename()) return report_error(kind, L"Tivalo: Can't open file for write.");
  if (fs::is_symlink(fs::symlink_status(target, ignored))) {
    const fs::path resolved = fs::canonical(target, ignored);
    if (!resolved.empty()) target = resolved;
  }
  const fs::file_status existing = fs::status(target, ignored);
  int error = 0;
  if (fs::exists(existing) && !fs::is_regular_file(existing)) {
    std::ofstream out(target, std::ios::out | std::ios::trunc);
    if (!out) return report_error(kind, L"Tivalo: Can't open file for write.");
    return put_bytes(out, bytes, error) ? S_OK : write_failed(kind, error);
  }

  const fs::path temporary = temporary_beside(target);
  std::ofstream out(temporary, std::ios::out | std::ios::trunc);
  if (!out) return report_error(kind, L"Tivalo: Can't open file for write.");
  if (!put_bytes(out, bytes, error)) {
    fs::remove(temporary, ignored);
    return write_failed(kind, error);
  }
  if (fs::exists(existing)) fs::permissions(temporary, existing.permissions(), ignored);
  std::error_code renamed;
  fs::rename(temporary, target, renamed);
  if (renamed) {
    fs::remove(temporary, ignored);
    return write_failed(kind, renamed.value());
  }
  return S_OK;
}

// Files are opened in text mode and shared with other readers and writers, as the platform does
// by default; only Windows' text mode turns line feeds into CR LF.
std::ifstream open_for_read(BSTR file) { return std::ifstream(file_path(text_of(file))); }

std::wstring file_not_found(BSTR file) { return L"File \"" + text_of(file) + L"\" not found."; }

// A check's result for the caller: an empty text is an absent string.
HRESULT result(const std::wstring& text, BSTR* errors) {
  if (!errors) return E_POINTER;
  *errors = text.empty() ? nullptr
                         : SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  return S_OK;
}

std::wstring schema_errors_of_file(const DocumentBinding& kind, BSTR file, BSTR schema_file) {
  std::ifstream in = open_for_read(file);
  if (!in) return file_not_found(file);
  return SchemaErrorsFromStream(kind, in, text_of(schema_file));
}

std::wstring schema_errors_of_text(const DocumentBinding& kind, BSTR xml, BSTR schema_file) {
  const AnsiBytes text = ansi_bytes(xml);
  if (!text.failure.empty()) return text.failure;
  std::istringstream in(text.bytes);
  return SchemaErrorsFromStream(kind, in, text_of(schema_file));
}

std::wstring value_errors_of_file(const DocumentBinding& kind, BSTR file, BSTR xsl_file) {
  std::ifstream in = open_for_read(file);
  if (!in) return file_not_found(file);
  return ValueErrorsFromStream(kind, in, text_of(xsl_file));
}

std::wstring value_errors_of_text(const DocumentBinding& kind, BSTR xml, BSTR xsl_file) {
  const AnsiBytes text = ansi_bytes(xml);
  if (!text.failure.empty()) return text.failure;
  std::istringstream in(text.bytes);
  return ValueErrorsFromStream(kind, in, text_of(xsl_file));
}

}  // namespace

// The whole document is serialized before the file is touched: content that cannot be written
// leaves an existing file as it was.
HRESULT Write(const DocumentContent& document, BSTR file) {
  return operation(document.binding(), [&] {
    const std::string path = file_path(text_of(file));
    std::string bytes;
    const HRESULT hr = WriteToString(document, bytes);
    if (FAILED(hr)) return hr;
    return write_file(document.binding(), path, bytes);
  });
}

HRESULT Read(DocumentContent& document, BSTR file) {
  return operation(document.binding(), [&] {
    std::ifstream in = open_for_read(file);
    if (!in) return report_error(document.binding(), L"Tivalo: Can't open file for read.");
    return ReadFromStream(document, in);
  });
}

HRESULT PutXML(DocumentContent& document, BSTR xml) {
  return operation(document.binding(), [&] {
    // A flood of markup is refused before the text is converted, which costs as much as the
    // text is long.
    const std::wstring_view whole(xml ? xml : L"", xml ? std::wcslen(xml) : 0);
    if (const MarkupExcess excess = markup_excess(whole); excess != MarkupExcess::none)
      return report_error(document.binding(), excess_message(excess));
    const AnsiBytes text = ansi_bytes(xml);
    if (!text.failure.empty()) return report_error(document.binding(), text.failure);
    return ReadFromBytes(document, text.bytes, text.utf8);
  });
}

HRESULT GetXML(const DocumentContent& document, BSTR* xml) {
  if (!xml) return E_POINTER;
  return operation(document.binding(), [&] {
    std::string bytes;
    const HRESULT hr = WriteToString(document, bytes);
    if (FAILED(hr)) return hr;
    // Read back in the thread's code page, not always as UTF-8: a put of this string restores
    // the very same bytes.
    *xml = ansi_string(bytes);
    return S_OK;
  });
}

HRESULT GetSchemaValidationErrors(const DocumentBinding& kind, BSTR file, BSTR schemaFile,
                                  BSTR* errors) {
  return operation(kind,
                   [&] { return result(schema_errors_of_file(kind, file, schemaFile), errors); });
}

HRESULT GetSchemaValidationErrorsFromXML(const DocumentBinding& kind, BSTR xml, BSTR schemaFile,
                                         BSTR* errors) {
  return operation(kind,
                   [&] { return result(schema_errors_of_text(kind, xml, schemaFile), errors); });
}

HRESULT GetValueValidationErrors(const DocumentBinding& kind, BSTR file, BSTR xslFile,
                                 BSTR* errors) {
  return operation(kind, [&] { return result(value_errors_of_file(kind, file, xslFile), errors); });
}

HRESULT GetValueValidationErrorsFromXML(const DocumentBinding& kind, BSTR xmldata, BSTR xsldata,
                                        BSTR* errors) {
  return operation(kind,
                   [&] { return result(value_errors_of_text(kind, xmldata, xsldata), errors); });
}

// The combined checks run the stylesheet only over a document that passed the schema check; the
// two texts are never joined.
HRESULT GetValidationErrors(const DocumentBinding& kind, BSTR file, BSTR schemaFile, BSTR xslFile,
                            BSTR* errors) {
  return operation(kind, [&] {
    std::wstring text = schema_errors_of_file(kind, file, schemaFile);
    if (text.empty()) text = value_errors_of_file(kind, file, xslFile);
    return result(text, errors);
  });
}

HRESULT GetValidationErrorsFromXML(const DocumentBinding& kind, BSTR xmldata, BSTR schemaFile,
                                   BSTR xsldata, BSTR* errors) {
  return operation(kind, [&] {
    std::wstring text = schema_errors_of_text(kind, xmldata, schemaFile);
    if (text.empty()) text = value_errors_of_text(kind, xmldata, xsldata);
    return result(text, errors);
  });
}

}  // namespace Morvek::Tivalo::Documents
