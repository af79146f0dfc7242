#include "binding/namespaces.h"
#include "document/error_report.h"
#include "document/local_parser.h"
#include "document/streams.h"
#include "document/text.h"

#include <istream>
#include <ostream>

namespace Morvek::Tivalo::Documents {

HRESULT ReadFromStream(DocumentContent& document, std::istream& in) {
  const DocumentBinding& kind = document.binding();
  XmlPlatformInUse xml;
  std::wstring error;
  try {
    // The parse comes first: a text that fails to parse leaves the content untouched.
    std::unique_ptr<tree::type> parsed =
        parse_document(kind, in, tree::flags::dont_validate, ParseProperties());
    document.load_document(*parsed);
  } catch (const xsd::cxx::exception& failure) {
    error = printed(failure);
  }
  return error.empty() ? S_OK : report_error(kind, error);
}

HRESULT WriteToStream(const DocumentContent& document, std::ostream& out) {
  const DocumentBinding& kind = document.binding();
  XmlPlatformInUse xml;
  const NamespaceMap namespaces = UBL2::ubl_namespace_map(kind.namespace_uri);
  const std::unique_ptr<tree::type> stored = document.store_document();
  std::wstring error;
  try {
    kind.serialize_stream(out, *stored, namespaces, L"UTF-8", tree::flags::dont_initialize);
  } catch (const xsd::cxx::exception& failure) {
    error = printed(failure);
  }
  return error.empty() ? S_OK : report_error(kind, error);
}

}  // namespace Morvek::Tivalo::Documents
