// The ten document members: where the bytes come from or go to. The work is in streams.h.
#include "document/error_report.h"
#include "document/file_replace.h"
#include "document/markup_limits.h"
#include "document/streams.h"
#include "document/text.h"
#include "model/guard.h"

#include <cerrno>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

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

// A file that cannot be created (a missing directory) gets the plain refusal; anything else names
// the system's reason.
HRESULT write_file(const DocumentBinding& kind, const std::string& path, const std::string& bytes) {
  const Files::Replaced written = Files::replace_file(path, bytes);
  if (written.ok()) return S_OK;
  if (!written.opened && (written.error == ENOENT || written.error == ENOTDIR))
    return report_error(kind, L"Tivalo: Can't open file for write.");
  return report_error(kind, L"Tivalo: Can't write file: " +
                                widen_bytes(Files::reason(written.error)) + L".");
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
    // text is long. The streaming reader alone scans the converted text itself, to say where.
    const std::wstring_view whole(xml ? xml : L"", xml ? std::wcslen(xml) : 0);
    if (const MarkupExcess excess = reads_alone(document) ? MarkupExcess::none : markup_excess(whole);
        excess != MarkupExcess::none)
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
