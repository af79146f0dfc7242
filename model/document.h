// What every document class shares: its binding (root type, root functions, namespace), its
// content as the document operations see it, and the ten document members, written once.
#pragma once

#include "model/object.h"

#include <xercesc/dom/DOMDocument.hpp>
#include <xsd/cxx/tree/elements.hxx>
#include <xsd/cxx/xml/dom/auto-ptr.hxx>
#include <xsd/cxx/xml/dom/serialization-header.hxx>

#include <iosfwd>
#include <memory>
#include <string>

namespace Morvek::Tivalo {

namespace tree = xsd::cxx::tree;
using NamespaceMap = xsd::cxx::xml::dom::namespace_infomap<wchar_t>;
using ParseProperties = tree::properties<wchar_t>;
using DomDocumentPtr = xsd::cxx::xml::dom::unique_ptr<xercesc::DOMDocument>;

// One per document class, generated: the root functions of its binding type and its identity. A
// library without a binding (UBL 2.1) leaves the four functions null: its documents are read and
// written by the streaming reader and writer alone.
struct DocumentBinding {
  const wchar_t* name;           // "Invoice"
  const wchar_t* namespace_uri;  // "urn:oasis:names:specification:ubl:schema:xsd:Invoice-2"
  const CLSID* clsid;
  const IID* iid;
  std::unique_ptr<tree::type> (*parse_stream)(std::istream&, tree::flags, const ParseProperties&);
  std::unique_ptr<tree::type> (*parse_dom)(const xercesc::DOMDocument&, tree::flags,
                                           const ParseProperties&);
  void (*serialize_stream)(std::ostream&, const tree::type&, const NamespaceMap&,
                           const std::wstring& encoding, tree::flags);
  DomDocumentPtr (*serialize_dom)(const tree::type&, const NamespaceMap&, tree::flags);
  // UBL 2.0's written root declares its eight prefixes whether the document uses them or not;
  // a later version's declares the three its elements use (cac, cbc, ext).
  bool declares_ubl20_prefixes = true;
};

class XmlWriter;

// A document object as the document operations see it.
class DocumentContent {
 public:
  virtual const DocumentBinding& binding() const = 0;
  // The load step: makes a parsed document of the class's root type the object's whole content.
  // Only classes with a binding have one.
  virtual void load_document(const tree::type& document);
  // The store step: a new binding document filled from the object graph; classes without a
  // binding have none.
  virtual std::unique_ptr<tree::type> store_document() const;
  // The whole document as text, straight from the object graph: the same bytes as the store step
  // and the binding's serializer make.
  virtual void write_document(XmlWriter& writer) const = 0;

 protected:
  ~DocumentContent() = default;
};

// The document operations, one code path for all 31 document classes.
namespace Documents {
HRESULT Write(const DocumentContent& document, BSTR file);
HRESULT Read(DocumentContent& document, BSTR file);
HRESULT PutXML(DocumentContent& document, BSTR xml);
HRESULT GetXML(const DocumentContent& document, BSTR* xml);
HRESULT GetSchemaValidationErrors(const DocumentBinding& kind, BSTR file, BSTR schemaFile,
                                  BSTR* errors);
HRESULT GetSchemaValidationErrorsFromXML(const DocumentBinding& kind, BSTR xml, BSTR schemaFile,
                                         BSTR* errors);
HRESULT GetValidationErrorsFromXML(const DocumentBinding& kind, BSTR xmldata, BSTR schemaFile,
                                   BSTR xsldata, BSTR* errors);
HRESULT GetValidationErrors(const DocumentBinding& kind, BSTR file, BSTR schemaFile, BSTR xslFile,
                            BSTR* errors);
HRESULT GetValueValidationErrors(const DocumentBinding& kind, BSTR file, BSTR xslFile,
                                 BSTR* errors);
HRESULT GetValueValidationErrorsFromXML(const DocumentBinding& kind, BSTR xmldata, BSTR xsldata,
                                        BSTR* errors);
}  // namespace Documents

// The load and store steps of a document class, for its generated load_document/store_document.
template <class Impl>
void load_document_of(Impl& document, const tree::type& parsed) {
  document.load_from(dynamic_cast<const typename Impl::binding_type&>(parsed));
}

template <class Impl>
std::unique_ptr<tree::type> stored_document_of(const Impl& document) {
  auto stored = std::make_unique<typename Impl::binding_type>();
  document.store_to(*stored);
  return stored;
}

// The ten document members of every document interface. Impl provides `static const
// DocumentBinding document_binding` and the load and store steps.
template <class Impl, class Interface>
class DocumentObject : public Automation<Impl, Interface>, public DocumentContent {
 public:
  const DocumentBinding& binding() const final { return Impl::document_binding; }

  HRESULT STDMETHODCALLTYPE Write(BSTR file) final { return Documents::Write(*this, file); }
  HRESULT STDMETHODCALLTYPE Read(BSTR file) final { return Documents::Read(*this, file); }
  HRESULT STDMETHODCALLTYPE put_XML(BSTR xml) final { return Documents::PutXML(*this, xml); }
  HRESULT STDMETHODCALLTYPE get_XML(BSTR* xml) final { return Documents::GetXML(*this, xml); }
  HRESULT STDMETHODCALLTYPE GetSchemaValidationErrors(BSTR file, BSTR schemaFile,
                                                      BSTR* errors) final {
    return Documents::GetSchemaValidationErrors(binding(), file, schemaFile, errors);
  }
  HRESULT STDMETHODCALLTYPE GetSchemaValidationErrorsFromXML(BSTR xml, BSTR schemaFile,
                                                             BSTR* errors) final {
    return Documents::GetSchemaValidationErrorsFromXML(binding(), xml, schemaFile, errors);
  }
  HRESULT STDMETHODCALLTYPE GetValidationErrorsFromXML(BSTR xmldata, BSTR schemaFile,
                                                       BSTR xsldata, BSTR* errors) final {
    return Documents::GetValidationErrorsFromXML(binding(), xmldata, schemaFile, xsldata, errors);
  }
  HRESULT STDMETHODCALLTYPE GetValidationErrors(BSTR file, BSTR schemaFile, BSTR xslFile,
                                                BSTR* errors) final {
    return Documents::GetValidationErrors(binding(), file, schemaFile, xslFile, errors);
  }
  HRESULT STDMETHODCALLTYPE GetValueValidationErrors(BSTR file, BSTR xslFile,
                                                     BSTR* errors) final {
    return Documents::GetValueValidationErrors(binding(), file, xslFile, errors);
  }
  HRESULT STDMETHODCALLTYPE GetValueValidationErrorsFromXML(BSTR xmldata, BSTR xsldata,
                                                            BSTR* errors) final {
    return Documents::GetValueValidationErrorsFromXML(binding(), xmldata, xsldata, errors);
  }
};

}  // namespace Morvek::Tivalo
