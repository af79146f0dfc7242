#include "model/document.h"

namespace Morvek::Tivalo {

// Only the binding's path calls these; a class without a binding never takes it.
void DocumentContent::load_document(const tree::type&) {
  throw ContentRefused(L"Tivalo: The document class has no binding to load from.");
}

std::unique_ptr<tree::type> DocumentContent::store_document() const {
  throw ContentRefused(L"Tivalo: The document class has no binding to store to.");
}

}  // namespace Morvek::Tivalo
