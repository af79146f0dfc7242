// The binding of a document class: its identity and the root functions of its binding type.
// Included where the document's binding header is.
#pragma once

#include "model/document.h"

#include <istream>
#include <ostream>

// Doc is the document's name, which is also its binding namespace and root function.
#define TIVALO_DOCUMENT_BINDING(Doc)                                                             \
  ::Morvek::Tivalo::DocumentBinding {                                                           \
    L## #Doc, L"urn:oasis:names:specification:ubl:schema:xsd:" L## #Doc L"-2", &CLSID_##Doc,     \
        &IID_I##Doc,                                                                            \
        [](std::istream& in, ::Morvek::Tivalo::tree::flags f,                                   \
           const ::Morvek::Tivalo::ParseProperties& p) -> std::unique_ptr<::Morvek::Tivalo::tree::type> { \
          return ::Morvek::UBL2::Docs::Doc::Doc(in, f, p);                                      \
        },                                                                                      \
        [](const xercesc::DOMDocument& d, ::Morvek::Tivalo::tree::flags f,                      \
           const ::Morvek::Tivalo::ParseProperties& p) -> std::unique_ptr<::Morvek::Tivalo::tree::type> { \
          return ::Morvek::UBL2::Docs::Doc::Doc(d, f, p);                                       \
        },                                                                                      \
        [](std::ostream& out, const ::Morvek::Tivalo::tree::type& x,                            \
           const ::Morvek::Tivalo::NamespaceMap& m, const std::wstring& e,                      \
           ::Morvek::Tivalo::tree::flags f) {                                                   \
          ::Morvek::UBL2::Docs::Doc::Doc(                                                       \
              out, dynamic_cast<const ::Morvek::UBL2::Docs::Doc::Doc##Type&>(x), m, e, f);       \
        },                                                                                      \
        [](const ::Morvek::Tivalo::tree::type& x, const ::Morvek::Tivalo::NamespaceMap& m,      \
           ::Morvek::Tivalo::tree::flags f) {                                                   \
          return ::Morvek::UBL2::Docs::Doc::Doc(                                                \
              dynamic_cast<const ::Morvek::UBL2::Docs::Doc::Doc##Type&>(x), m, f);               \
        }                                                                                       \
  }
