// Type information answered from the catalogue: what ITypeInfo gives of a type library on
// Windows, for the dispatch interface of class k.
#pragma once

#include "platform/automation.h"

namespace Morvek::Tivalo {

// A new ITypeInfo over the dispatch interface of class k (E_INVALIDARG for an unknown k).
// Object types refer to their class by HREFTYPE k, which GetRefTypeInfo resolves.
HRESULT create_type_info(int k, ITypeInfo** out);

}  // namespace Morvek::Tivalo
