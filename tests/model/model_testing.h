// A document object's content as the binding writes and reads it, without the document
// operations: the store and load steps alone.
#pragma once

#include "binding/namespaces.h"
#include "model/document.h"

#include <sstream>
#include <string>

namespace model_testing {

using namespace Morvek::Tivalo;

inline std::string stored_xml(const DocumentContent& content) {
  auto stored = content.store_document();
  std::ostringstream out;
  content.binding().serialize_stream(
      out, *stored, Morvek::UBL2::ubl_namespace_map(content.binding().namespace_uri), L"UTF-8", 0);
  return out.str();
}

inline void load_xml(DocumentContent& content, const std::string& xml) {
  std::istringstream in(xml);
  auto parsed = content.binding().parse_stream(in, tree::flags::dont_validate, ParseProperties());
  content.load_document(*parsed);
}

}  // namespace model_testing
