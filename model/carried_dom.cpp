#include "model/carried_dom.h"

#include "model/xml_platform.h"

#include <xercesc/dom/DOMImplementation.hpp>
#include <xercesc/dom/DOMImplementationRegistry.hpp>
#include <xercesc/util/XMLUniDefs.hpp>

#include <stdexcept>

namespace Morvek::Tivalo {

void CarriedDom::keep(const xercesc::DOMElement& holder) {
  const xercesc::DOMElement* content = holder.getFirstElementChild();
  if (content && content->getNextElementSibling())
    throw std::runtime_error("extension content holds more than one element");
  if (!content) {
    document_.reset();
    return;
  }
  start_xml_platform();
  static const XMLCh core[] = {xercesc::chLatin_C, xercesc::chLatin_o, xercesc::chLatin_r,
                               xercesc::chLatin_e, xercesc::chNull};
  xercesc::DOMImplementation* dom = xercesc::DOMImplementationRegistry::getDOMImplementation(core);
  std::unique_ptr<xercesc::DOMDocument, Release> copy(dom->createDocument());
  copy->appendChild(copy->importNode(content, true));
  document_ = std::move(copy);
}

}  // namespace Morvek::Tivalo
