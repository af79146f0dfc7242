// Parsing a document into its binding type with the runtime's parser settings, for documents that
// may be hostile: a document with a document type declaration is refused before anything in it
// is declared, expanded or fetched; so is one beyond the nesting and attribute limits
// (markup_limits.h). Nothing is ever read but local files: schema hints in the document are
// ignored, and a schema or include named by a network URI resolves to nothing.
#pragma once

#include "binding/xml-schema.hxx"
#include "model/document.h"
#include "model/xml_platform.h"

#include <xercesc/dom/DOMLSResourceResolver.hpp>
#include <xercesc/framework/XMLGrammarPool.hpp>
#include <xsd/cxx/xml/elements.hxx>

#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>

namespace Morvek::Tivalo {

// XmlPlatformInUse keeps the XML parser platform up for a whole operation: binding documents that
// hold DOM content (extension content) must be made and destroyed while it is up.

inline constexpr wchar_t document_type_refused[] =
    L"Tivalo: The document has a document type declaration; documents with DTDs are not read.";

// Throws the runtime's exceptions: `parsing` with the parser's diagnostics, or the binding's own
// errors ("expected element ...", "invalid value ...") while the tree is built, and the
// binding's message_error for a refused document. Validates unless `flags` has
// dont_validate; `properties` carries the caller's schema location, whose grammars `grammars`
// (a locked pool) may hold already loaded.
std::unique_ptr<tree::type> parse_document(const DocumentBinding& kind, std::istream& in,
                                           tree::flags flags, const ParseProperties& properties,
                                           xercesc::XMLGrammarPool* grammars = nullptr);

// The same, for a document already in memory; with `utf8` its bytes are read as UTF-8 whatever
// encoding its declaration names.
std::unique_ptr<tree::type> parse_document(const DocumentBinding& kind, std::string_view bytes,
                                           tree::flags flags, const ParseProperties& properties,
                                           xercesc::XMLGrammarPool* grammars = nullptr,
                                           bool utf8 = false);

// A document's bytes, read whole.
std::string document_bytes(std::istream& in);

// The parser's rule for further resources, for anything else that loads schemas.
xercesc::DOMLSResourceResolver& local_resources_only();

}  // namespace Morvek::Tivalo
