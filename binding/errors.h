#pragma once
// The text of a binding failure as users see it.

#include <string>

#include "binding/xml-schema.hxx"

namespace Morvek::UBL2 {

// The runtime's printed text of `e`, with one exception: an unexpected element whose expected
// name is known (a root function given the wrong document) reads
//   unexpected element '<found>' instead of '<expected>'
// where this runtime prints "expected element '<expected>' instead of '<found>'". Names print
// as namespace "#" local name, or the bare local name when the namespace is empty.
std::wstring error_text(const xml_schema::exception& e);

}  // namespace Morvek::UBL2
