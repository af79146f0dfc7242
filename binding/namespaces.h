#pragma once
// The XML namespaces of UBL 2.0 documents and the namespace map every document is written with.

#include <array>
#include <string>
#include <string_view>

#include "binding/xml-schema.hxx"

namespace Morvek::UBL2 {

namespace xmlns {
inline constexpr wchar_t cbc[] = L"urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2";
inline constexpr wchar_t cac[] = L"urn:oasis:names:specification:ubl:schema:xsd:CommonAggregateComponents-2";
inline constexpr wchar_t qdt[] = L"urn:oasis:names:specification:ubl:schema:xsd:QualifiedDatatypes-2";
inline constexpr wchar_t ccts[] = L"urn:oasis:names:specification:ubl:schema:xsd:CoreComponentParameters-2";
inline constexpr wchar_t stat[] = L"urn:oasis:names:specification:ubl:schema:xsd:DocumentStatusCode-1.0";
// Declared for "udt" on written documents. The unqualified data types themselves are registered
// under unqualified_types below; the two differ on purpose and stay as they are.
inline constexpr wchar_t udt[] = L"urn:un:unece:uncefact:data:draft:UnqualifiedDataTypesSchemaModule:2";
inline constexpr wchar_t ext[] = L"urn:oasis:names:specification:ubl:schema:xsd:CommonExtensionComponents-2";
inline constexpr wchar_t xsi[] = L"http://www.w3.org/2001/XMLSchema-instance";

inline constexpr wchar_t unqualified_types[] =
    L"urn:un:unece:uncefact:data:specification:UnqualifiedDataTypesSchemaModule:2";
// A document's namespace is this, its name and "-2".
inline constexpr wchar_t document_prefix[] = L"urn:oasis:names:specification:ubl:schema:xsd:";
}  // namespace xmlns

struct PrefixMapping {
  const wchar_t* prefix;
  const wchar_t* uri;
};

// The eight prefixes declared on every written document after its default namespace, in order:
// cbc, cac, qdt, ccts, stat, udt, ext, xsi.
const std::array<PrefixMapping, 8>& ubl_prefixes();

// The 31 document type names ("ApplicationResponse" ... "Waybill"), in alphabetical order. Each
// is the root element name, the class <Name>Type and the C++ namespace Morvek::UBL2::Docs::<Name>.
const std::array<const wchar_t*, 31>& ubl_document_names();

// "Invoice" -> "urn:oasis:names:specification:ubl:schema:xsd:Invoice-2"; empty for a name that
// is not one of the 31 documents.
std::wstring document_namespace(std::wstring_view document_name);

// The map handed to a root serialize function: the empty prefix for the document's namespace,
// then ubl_prefixes(). The runtime's map is keyed by prefix, so the declarations come out in
// prefix order; all nine are declared whether the document uses them or not.
xml_schema::namespace_infomap ubl_namespace_map(const std::wstring& document_namespace);

}  // namespace Morvek::UBL2
