// Content that no class describes and that a document must not lose, kept where no binding holds
// it: an extension's one element of another namespace (a signature, a national extension), copied
// into a small DOM document of its own and written back node by node as it was read.
#pragma once

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>

#include <memory>

namespace Morvek::Tivalo {

class CarriedDom {
 public:
  // Keeps a copy of the element that `holder` (the extension's content element) contains. An
  // empty holder keeps nothing; a second element would be lost, so it fails.
  void keep(const xercesc::DOMElement& holder);

  const xercesc::DOMElement* element() const {
    return document_ ? document_->getDocumentElement() : nullptr;
  }

 private:
  struct Release {
    void operator()(xercesc::DOMDocument* document) const { document->release(); }
  };
  std::unique_ptr<xercesc::DOMDocument, Release> document_;
};

}  // namespace Morvek::Tivalo
