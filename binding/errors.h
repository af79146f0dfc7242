#pragma once
// The text of a binding failure as users see it.

#include <memory>
#include <string>
#include <typeinfo>

#include "binding/xml-schema.hxx"

namespace Morvek::UBL2 {

// The runtime's printed text of `e`, with one exception: an unexpected element whose expected
// name is known (a root function given the wrong document) reads
//   unexpected element '<found>' instead of '<expected>'
// where this runtime prints "expected element '<expected>' instead of '<found>'". Names print
// as namespace "#" local name, or the bare local name when the namespace is empty.
std::wstring error_text(const xml_schema::exception& e);

// The failure of an element whose xsi:type names a type that does not derive from the element's
// own type, naming both ("type '<found>' is not derived from '<expected>'"). The generated
// parsers throw it in place of the runtime's nameless one; `expected` is the element's own
// type, `found` the object the xsi:type made.
xml_schema::not_derived not_derived_types(const std::type_info& expected, const std::type_info& found);

template <class Expected>
xml_schema::not_derived not_derived_failure(const std::unique_ptr<Expected>&,
                                            const xml_schema::type& found) {
  return not_derived_types(typeid(Expected), typeid(found));
}

}  // namespace Morvek::UBL2
