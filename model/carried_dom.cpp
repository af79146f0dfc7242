#include "model/carried_dom.h"

#include "model/xml_platform.h"

#include <xercesc/dom/DOMImplementation.hpp>
#include <xercesc/dom/DOMImplementationRegistry.hpp>
#include <xercesc/util/XMLUniDefs.hpp>

#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/dom/DOMText.hpp>

#include <stdexcept>
#include <vector>

namespace Morvek::Tivalo {
namespace {

bool whitespace_only(const XMLCh* text) {
  for (; text && *text; ++text)
    if (*text != 0x20 && *text != 0x9 && *text != 0xA && *text != 0xD) return false;
  return true;
}

// Whitespace-only text beside elements (the layout of the document it came from) is dropped: the
// writer lays the content out as it lays out everything else, so that what it writes reads back
// to the same content. Text in an element without element children is data and stays.
void drop_layout(xercesc::DOMNode& root) {
  std::vector<xercesc::DOMNode*> pending{&root}, layout;
  while (!pending.empty()) {
    xercesc::DOMNode* node = pending.back();
    pending.pop_back();
    bool has_elements = false;
    for (xercesc::DOMNode* child = node->getFirstChild(); child; child = child->getNextSibling())
      has_elements |= child->getNodeType() == xercesc::DOMNode::ELEMENT_NODE;
    for (xercesc::DOMNode* child = node->getFirstChild(); child; child = child->getNextSibling()) {
      if (child->getNodeType() == xercesc::DOMNode::ELEMENT_NODE) pending.push_back(child);
      else if (has_elements && child->getNodeType() == xercesc::DOMNode::TEXT_NODE &&
               whitespace_only(child->getNodeValue()))
        layout.push_back(child);
    }
  }
  for (xercesc::DOMNode* node : layout) node->getParentNode()->removeChild(node)->release();
}

}  // namespace

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
  drop_layout(*copy->getDocumentElement());
  document_ = std::move(copy);
}

}  // namespace Morvek::Tivalo
