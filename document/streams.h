// The four routines behind the ten document operations. Each is written once and parameterised by
// the document class's binding; the operations differ only in where the bytes come from.
#pragma once

#include "model/document.h"

#include <iosfwd>
#include <string>
#include <string_view>

namespace Morvek::Tivalo::Documents {

// Parses a document of the content's class from `in` without validation and makes it the whole
// content. A failure is reported as the error information and leaves the content as it was.
HRESULT ReadFromStream(DocumentContent& document, std::istream& in);
// The same for a document already in memory (the `XML` put's text). With `characters` the bytes
// are the UTF-8 of a caller's characters, read as such whatever encoding their declaration names.
HRESULT ReadFromBytes(DocumentContent& document, std::string_view bytes, bool characters = false);

// Which reader Read and `XML` put use on the calling thread. The component always uses
// `streaming`; the other two are for comparing the readers.
enum class ReadPath {
  streaming,        // the streaming reader; the binding reads what it refuses or declines
  binding_only,     // Xerces-C's DOM and the binding's tree
  streaming_alone,  // the streaming reader alone, with its own error texts, as for a class
                    // that has no binding
};
void set_read_path(ReadPath path);

// Whether the streaming reader reads the document alone: its class has no binding
// (`parse_stream` null), or the calling thread asked for `streaming_alone`.
bool reads_alone(const DocumentContent& document);

// Serializes the content as UTF-8 with the nine UBL namespace declarations on the root element.
HRESULT WriteToStream(const DocumentContent& document, std::ostream& out);
HRESULT WriteToString(const DocumentContent& document, std::string& text);

// The same through the store step, the binding's tree and the DOM serializer: the streaming
// writer's oracle. use_binding_writer(true) makes Write and XML take this path (tests compare both).
HRESULT WriteThroughBinding(const DocumentContent& document, std::ostream& out);
void use_binding_writer(bool use);

// Validates a document text of `kind` against the schema file given for the document's namespace.
// Empty when valid, else the problems as ":line:column error: message" lines.
std::wstring SchemaErrorsFromStream(const DocumentBinding& kind, std::istream& in,
                                    const std::wstring& schema_file);

// Applies the stylesheet file to a document text of `kind`. Empty when the stylesheet reported
// nothing, else the last message it reported.
std::wstring ValueErrorsFromStream(const DocumentBinding& kind, std::istream& in,
                                   const std::wstring& xsl_file);

}  // namespace Morvek::Tivalo::Documents
