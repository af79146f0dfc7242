// The binding holds a class for every type of the adjusted schemas, registered under the type's
// own name and namespace, and a code-list table for every enumeration.

#include <iterator>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <xsd/cxx/tree/type-factory-map.hxx>
#include <xsd/cxx/tree/type-serializer-map.hxx>

#include "binding/common/UBL-CommonAggregateComponents-2.0.hxx"
#include "binding/lists/CodeList_CurrencyCode_ISO_7_04.hxx"
#include "binding/lists/CodeList_LanguageCode_ISO_7_04.hxx"
#include "binding/lists/CodeList_MIMEMediaTypeCode_IANA_7_04.hxx"
#include "binding/lists/CodeList_UnitCode_UNECE_7_04.hxx"
#include "binding_test_support.h"

namespace {

using namespace binding_test;

constexpr char kXsd[] = "http://www.w3.org/2001/XMLSchema";

struct SchemaType {
  std::string name;
  std::vector<std::string> enumerations;  // in schema order
};

// Global types of every adjusted schema, by target namespace.
std::map<std::string, std::vector<SchemaType>> read_schema_types() {
  static const char* const files[] = {
      "common/UnqualifiedDataTypeSchemaModule-2.0.xsd",
      "common/UBL-QualifiedDatatypes-2.0.xsd",
      "common/UBL-CommonBasicComponents-2.0.xsd",
      "common/UBL-CommonAggregateComponents-2.0.xsd",
      "common/UBL-CommonExtensionComponents-2.0.xsd",
      "common/UBL-ExtensionContentDatatype-2.0.xsd",
      "common/CodeList_CurrencyCode_ISO_7_04.xsd",
      "common/CodeList_LanguageCode_ISO_7_04.xsd",
      "common/CodeList_MIMEMediaTypeCode_IANA_7_04.xsd",
      "common/CodeList_UnitCode_UNECE_7_04.xsd",
  };
  std::map<std::string, std::vector<SchemaType>> types;
  for (const char* file : files) {
    auto document = parse_dom(read_file(std::string(TIVALO_BINARY_DIR) + "/gen/schemas-adjusted/" + file));
    const xercesc::DOMElement& schema = *document->getDocumentElement();
    const std::string ns = narrow(schema.getAttribute(xsd::cxx::xml::string(L"targetNamespace").c_str()));
    for (const xercesc::DOMElement* child : child_elements(schema)) {
      const std::string kind = narrow(child->getLocalName());
      if (narrow(child->getNamespaceURI()) != kXsd || (kind != "complexType" && kind != "simpleType"))
        continue;
      SchemaType type{narrow(child->getAttribute(xsd::cxx::xml::string(L"name").c_str())), {}};
      auto enumerations = child->getElementsByTagNameNS(xsd::cxx::xml::string(kXsd).c_str(),
                                                        xsd::cxx::xml::string(L"enumeration").c_str());
      for (XMLSize_t i = 0; i < enumerations->getLength(); ++i)
        type.enumerations.push_back(narrow(static_cast<xercesc::DOMElement*>(enumerations->item(i))
                                               ->getAttribute(xsd::cxx::xml::string(L"value").c_str())));
      types[ns].push_back(type);
    }
  }
  return types;
}

const std::map<std::string, std::vector<SchemaType>>& schema_types() {
  static const auto types = read_schema_types();
  return types;
}

TEST(Inventory, EveryModuleHasItsNumberOfTypes) {
  const auto& types = schema_types();
  const std::map<std::string, size_t> expected{
      {"urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2", 475},
      {"urn:oasis:names:specification:ubl:schema:xsd:CommonAggregateComponents-2", 113},
      {"urn:oasis:names:specification:ubl:schema:xsd:CommonExtensionComponents-2", 10},
      {"urn:un:unece:uncefact:data:specification:UnqualifiedDataTypesSchemaModule:2", 20},
      {"urn:oasis:names:specification:ubl:schema:xsd:QualifiedDatatypes-2", 19},
      {"urn:un:unece:uncefact:codelist:specification:54217:2001", 1},
      {"urn:un:unece:uncefact:codelist:specification:5639:1988", 1},
      {"urn:un:unece:uncefact:codelist:specification:IANAMIMEMediaType:2003", 1},
      {"urn:un:unece:uncefact:codelist:specification:66411:2001", 1},
  };
  std::map<std::string, size_t> counted;
  for (const auto& [ns, list] : types) counted[ns] = list.size();
  EXPECT_EQ(counted, expected);
}

TEST(Inventory, EveryTypeIsRegisteredForParsingUnderItsName) {
  auto& factories = xsd::cxx::tree::type_factory_map_instance<0, wchar_t>();
  size_t checked = 0;
  for (const auto& [ns, list] : schema_types())
    for (const SchemaType& type : list) {
      EXPECT_TRUE(factories.find(xsd::cxx::xml::qualified_name<wchar_t>(widen(type.name), widen(ns))))
          << ns << "#" << type.name;
      ++checked;
    }
  EXPECT_EQ(checked, 475u + 113 + 10 + 20 + 19 + 4);
}

TEST(Inventory, DocumentTypesAreRegisteredInTheirOwnNamespaces) {
  auto& factories = xsd::cxx::tree::type_factory_map_instance<0, wchar_t>();
  for (const wchar_t* name : Morvek::UBL2::ubl_document_names())
    EXPECT_TRUE(factories.find(xsd::cxx::xml::qualified_name<wchar_t>(
        std::wstring(name) + L"Type", Morvek::UBL2::document_namespace(name))))
        << narrow(name);
}

TEST(Inventory, TypesAreRegisteredForWritingByTheirDynamicType) {
  auto& serializers = xsd::cxx::tree::type_serializer_map_instance<0, wchar_t>();
  namespace cac = Morvek::UBL2::Common::AggregateComponents;
  namespace cbc = Morvek::UBL2::Common::BasicComponents;
  namespace qdt = Morvek::UBL2::Types::Qualified;
  namespace units = Morvek::UBL2::Lists::Units;
  EXPECT_TRUE(serializers.find(typeid(cac::AddressType)));
  EXPECT_TRUE(serializers.find(typeid(cbc::CV2IDType)));
  EXPECT_TRUE(serializers.find(typeid(qdt::DocumentStatusCodeType)));
  EXPECT_TRUE(serializers.find(typeid(units::UnitCodeContentType)));
}

template <size_t N>
std::vector<std::string> literals(const wchar_t* const (&table)[N]) {
  std::vector<std::string> result;
  for (const wchar_t* literal : table) result.push_back(narrow(literal));
  return result;
}

TEST(Inventory, CodeListTablesMatchTheSchemaEnumerations) {
  using namespace Morvek::UBL2::Lists;
  const auto& types = schema_types();
  auto enumerations = [&](const std::string& ns) { return types.at(ns).at(0).enumerations; };
  EXPECT_EQ(literals(Currencies::CurrencyCodeContentType::_xsd_CurrencyCodeContentType_literals_),
            enumerations("urn:un:unece:uncefact:codelist:specification:54217:2001"));
  EXPECT_EQ(literals(Languages::LanguageCodeContentType::_xsd_LanguageCodeContentType_literals_),
            enumerations("urn:un:unece:uncefact:codelist:specification:5639:1988"));
  EXPECT_EQ(literals(MediaTypes::BinaryObjectMimeCodeContentType::
                         _xsd_BinaryObjectMimeCodeContentType_literals_),
            enumerations("urn:un:unece:uncefact:codelist:specification:IANAMIMEMediaType:2003"));
  EXPECT_EQ(literals(Units::UnitCodeContentType::_xsd_UnitCodeContentType_literals_),
            enumerations("urn:un:unece:uncefact:codelist:specification:66411:2001"));
  static_assert(std::size(Units::UnitCodeContentType::_xsd_UnitCodeContentType_literals_) == 1093);
}

}  // namespace
