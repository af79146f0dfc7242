#include "document/grammar_cache.h"
#include "document/local_parser.h"
#include "document/stream_reader.h"
#include "document/streams.h"
#include "document/text.h"
#include "document/xml_library.h"

#include <libxml/uri.h>
#include <libxml/xmlmemory.h>

#include <fstream>

namespace Morvek::Tivalo::Documents {
namespace {

// The schema path as a URI in the form the XML parser resolves to that very file.
std::wstring schema_uri(const std::wstring& schema_file) {
  const std::string path = file_path(schema_file);
  std::lock_guard<std::mutex> xml_library(xml_library_lock());
  xmlChar* uri = xmlPathToURI(reinterpret_cast<const xmlChar*>(path.c_str()));
  if (!uri) return {};
  std::wstring wide = uri_for_parser(reinterpret_cast<const char*>(uri));
  xmlFree(uri);
  return wide;
}

}  // namespace

std::wstring SchemaErrorsFromStream(const DocumentBinding& kind, std::istream& in,
                                    const std::wstring& schema_file) {
  const std::wstring uri = std::ifstream(file_path(schema_file)) ? schema_uri(schema_file) : L"";
  if (uri.empty()) return L"Schema file \"" + schema_file + L"\" not found.";

  ParseProperties properties;
  properties.schema_location(kind.namespace_uri, uri);
  XmlPlatformInUse xml;
  const auto grammars =
      grammar_cache().grammars(file_path(schema_file), uri, kind.namespace_uri);
  try {
    if (kind.parse_dom) {
      // The binding's tree is built from the checked DOM: its readers refuse what Read refuses.
      parse_document(kind, in, tree::flags(), properties, grammars.get());
      return {};
    }
    // A class without a binding: once the schema finds nothing, the streaming reader reads the
    // document as Read does, so that the check refuses what Read refuses (a year beyond 9999),
    // in the reader's words.
    const std::string bytes = document_bytes(in);
    parse_document(kind, bytes, tree::flags(), properties, grammars.get(), false);
    std::wstring fault;
    if (stream_check(kind, bytes, fault) != StreamReadResult::read) return fault;
  } catch (const xsd::cxx::exception& failure) {
    return printed(failure);
  }
  return {};
}

}  // namespace Morvek::Tivalo::Documents
