// The published surface: library identity, classes and their GUIDs, member counts, names and
// parameter names, as clients know them.
#include "catalogue_testing.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>

using namespace catalogue_testing;

namespace {

GUID parse_guid(const char* text) {
  GUID g{};
  unsigned d1, d2, d3, b[8];
  int n = std::sscanf(text, "{%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x}", &d1, &d2, &d3, &b[0],
                      &b[1], &b[2], &b[3], &b[4], &b[5], &b[6], &b[7]);
  EXPECT_EQ(n, 11) << text;
  g.Data1 = d1;
  g.Data2 = static_cast<uint16_t>(d2);
  g.Data3 = static_cast<uint16_t>(d3);
  for (int i = 0; i < 8; ++i) g.Data4[i] = static_cast<uint8_t>(b[i]);
  return g;
}

bool same(const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof(GUID)) == 0; }

const char* const kLibid = "{e56b93c0-b0eb-11df-8a48-005056c00008}";

// The order the GUIDs hang on: alphabetical without regard to case, except that the three
// Payment classes stand before Party.
std::string sort_key(std::string name) {
  for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (name.rfind("payment", 0) == 0) name.replace(0, 7, "par\x01");
  return name;
}

bool precedes(const char* a, const char* b) { return sort_key(a) < sort_key(b); }

}  // namespace

TEST(CatalogueLibrary, CarriesTheTypeLibraryIdentity) {
  EXPECT_STREQ(library.name, "TivaloCOMLib");
  EXPECT_TRUE(same(library.libid, parse_guid(kLibid)));
  EXPECT_EQ(library.major_version, 1);
  EXPECT_EQ(library.minor_version, 2);
  EXPECT_EQ(library.lcid, 0u);
  EXPECT_STREQ(library.help_string, "Morvek Tivalo 1.2.2 Type Library");
  EXPECT_STREQ(library.imported_library, "stdole2.tlb");
}

// Catalogue order, names (the item class is "item" in the type library only) and GUIDs counted
// up from the libid: CLSID 1 + 2k, IID 2 + 2k.
TEST(CatalogueClasses, StandInCatalogueOrderWithTheirKindsNamesAndGuids) {
  ASSERT_EQ(class_count(), 154u);
  const GUID libid = parse_guid(kLibid);
  std::map<ClassKind, int> kinds;
  for (size_t k = 0; k < class_count(); ++k) {
    const Class& c = classes()[k];
    const std::string name = c.progid_name;
    EXPECT_EQ(c.k, k);
    if (k > 0) EXPECT_TRUE(precedes(classes()[k - 1].progid_name, c.progid_name)) << name;
    EXPECT_EQ(c.name, name == "Item" ? "item" : name);
    EXPECT_EQ(c.interface_name, "I" + name);
    EXPECT_EQ(c.class_help, name + " Class");
    EXPECT_EQ(c.interface_help, "I" + name + " Interface");
    GUID clsid = libid, iid = libid;
    clsid.Data1 += static_cast<uint32_t>(1 + 2 * k);
    iid.Data1 += static_cast<uint32_t>(2 + 2 * k);
    EXPECT_TRUE(same(c.clsid, clsid)) << name;
    EXPECT_TRUE(same(c.iid, iid)) << name;
    ++kinds[c.kind];
  }
  EXPECT_EQ(kinds[ClassKind::DataType], 8);
  EXPECT_EQ(kinds[ClassKind::Document], 31);
  EXPECT_EQ(kinds[ClassKind::Aggregate], 115);
}

TEST(CatalogueGuids, MatchThePublishedExamples) {
  struct Example { const char* name; size_t k; const char* clsid; const char* iid; };
  for (const Example& e : {
           Example{"Address", 0, "{e56b93c1-b0eb-11df-8a48-005056c00008}",
                   "{e56b93c2-b0eb-11df-8a48-005056c00008}"},
           Example{"Identifier", 64, "{e56b9441-b0eb-11df-8a48-005056c00008}",
                   "{e56b9442-b0eb-11df-8a48-005056c00008}"},
           Example{"Waybill", 153, "{e56b94f3-b0eb-11df-8a48-005056c00008}",
                   "{e56b94f4-b0eb-11df-8a48-005056c00008}"}}) {
    const Class* c = find_class_by_name(e.name);
    ASSERT_NE(c, nullptr) << e.name;
    EXPECT_EQ(c->k, e.k);
    EXPECT_TRUE(same(c->clsid, parse_guid(e.clsid))) << e.name;
    EXPECT_TRUE(same(c->iid, parse_guid(e.iid))) << e.name;
  }
}

// Lookups by name without regard to case (the tool's test covers them from the outside) and by
// GUID, where a CLSID is no IID and the reverse.
TEST(CatalogueLookups, FindClassesByEitherSpellingAndByGuid) {
  EXPECT_EQ(find_class_by_name("ITEM"), find_class_by_name("item"));
  EXPECT_EQ(find_class_by_name("Invoic"), nullptr);
  EXPECT_EQ(find_class_by_name("InvoiceLines"), nullptr);
  for (size_t k = 0; k < class_count(); ++k) {
    EXPECT_EQ(find_class_by_clsid(classes()[k].clsid), &classes()[k]);
    EXPECT_EQ(find_class_by_iid(classes()[k].iid), &classes()[k]);
    EXPECT_EQ(find_class_by_clsid(classes()[k].iid), nullptr);
    EXPECT_EQ(find_class_by_iid(classes()[k].clsid), nullptr);
  }
  GUID beyond = library.libid;  // the rule's next number, past the last class
  beyond.Data1 += 1 + 2 * 154;
  EXPECT_EQ(find_class_by_clsid(beyond), nullptr);
  EXPECT_EQ(find_class_by_clsid(library.libid), nullptr);
  GUID other_tail = classes()[0].clsid;
  other_tail.Data4[7] ^= 1;
  EXPECT_EQ(find_class_by_clsid(other_tail), nullptr);
}

// Member counts and last DISPIDs as published (DISPID 0: not checked); the total pins the rest.
TEST(CatalogueFigures, InterfacesHaveThePublishedSizes) {
  struct Row { const char* interface_name; ClassKind kind; int members; DISPID last; };
  constexpr ClassKind D = ClassKind::Document, T = ClassKind::DataType;
  const Row rows[] = {
      {"IApplicationResponse", D, 60, 46}, {"IAttachedDocument", D, 59, 43},
      {"IBillOfLading", D, 101, 81}, {"ICatalogue", D, 95, 76}, {"ICatalogueDeletion", D, 75, 59},
      {"ICatalogueItemSpecificationUpdate", D, 95, 74}, {"ICataloguePricingUpdate", D, 95, 74},
      {"ICatalogueRequest", D, 103, 83}, {"ICertificateOfOrigin", D, 67, 51},
      {"ICreditNote", D, 149, 120}, {"IDebitNote", D, 149, 120}, {"IDespatchAdvice", D, 85, 66},
      {"IForwardingInstructions", D, 95, 75}, {"IFreightInvoice", D, 166, 136},
      {"IInvoice", D, 181, 148}, {"IWaybill", D, 94, 76}, {"IOrder", D, 146, 115},
      {"IOrderCancellation", D, 72, 57}, {"IOrderChange", D, 149, 115},
      {"IOrderResponse", D, 166, 130}, {"IOrderResponseSimple", D, 79, 58},
      {"IPackingList", D, 76, 59}, {"IQuotation", D, 107, 86}, {"IReceiptAdvice", D, 84, 67},
      {"IReminder", D, 142, 112}, {"IRemittanceAdvice", D, 102, 79},
      {"IRequestForQuotation", D, 87, 71}, {"ISelfBilledCreditNote", D, 136, 111},
      {"ISelfBilledInvoice", D, 186, 153}, {"IStatement", D, 106, 83},
      {"ITransportationStatus", D, 72, 58}, {"IIdentifier", T, 23, 0}, {"ICode", T, 29, 0},
      {"IText", T, 5, 0}, {"IName", T, 5, 0}, {"IAmount", T, 4, 0}, {"IQuantity", T, 5, 0},
      {"IMeasure", T, 4, 0}, {"IBinaryObject", T, 19, 0}};
  ASSERT_EQ(std::size(rows), 39u);
  for (const Row& row : rows) {
    const Class& c = interface_named(row.interface_name);
    EXPECT_EQ(c.kind, row.kind) << row.interface_name;
    EXPECT_EQ(c.member_count, row.members) << row.interface_name;
    if (row.last) EXPECT_EQ(c.members[c.member_count - 1].dispid, row.last) << row.interface_name;
  }
  size_t total = 0;
  for (size_t k = 0; k < class_count(); ++k) total += classes()[k].member_count;
  // Our surface: the member rule over the UBL 2.0 schemas and the published exceptions.
  EXPECT_EQ(total, 6627u);
}

TEST(CatalogueNames, IrregularClearMembersStandWhereTheyArePublished) {
  const std::map<std::string, std::set<std::string>> irregular = {
      {"clearUBLExtensionList", {"IUBLExtensions"}},
      {"clearBillingRevesrenceLine", {"IBillingReference"}},
      {"clearRevesrencedContract", {"ICatalogue", "ICatalogueDeletion",
                                    "ICatalogueItemSpecificationUpdate",
                                    "ICataloguePricingUpdate", "ICatalogueRequest"}},
      {"clearRespons", {"ILineResponse"}},
      {"clearDocumentRespons", {"IApplicationResponse"}},
      {"clearLineRespons", {"IDocumentResponse"}},
      {"clearDiscrepancyRespons", {"ICreditNote", "ICreditNoteLine", "IDebitNote",
                                   "IDebitNoteLine", "ISelfBilledCreditNote"}}};
  for (const auto& [clear, where] : irregular) {
    std::set<std::string> found;
    for (size_t k = 0; k < class_count(); ++k)
      if (!members_named(classes()[k], clear).empty()) found.insert(classes()[k].interface_name);
    EXPECT_EQ(found, where) << clear;
  }
  // The rest of such a list keeps the regular element name.
  const Class& catalogue = interface_named("ICatalogue");
  for (const char* name : {"getReferencedContract", "addReferencedContract",
                           "removeReferencedContract", "ReferencedContractCount"})
    EXPECT_EQ(members_named(catalogue, name).size(), 1u) << name;
  EXPECT_TRUE(members_named(catalogue, "clearReferencedContracts").empty());
}

TEST(CatalogueNames, RegularPluralsOfClearMembers) {
  const std::pair<const char*, const char*> examples[] = {
      {"IAddress", "clearAddressLines"}, {"IAllowanceCharge", "clearTaxCategories"},
      {"IInvoice", "clearPaymentMeans"}, {"IInvoice", "clearPaymentTerms"},
      {"ISelfBilledInvoice", "clearDeliveryTerms"}, {"IInvoice", "clearDeliveries"},
      {"IShipmentStage", "clearCarrierParties"}, {"IParty", "clearPartyLegalEntities"},
      {"ITransportEvent", "clearCurrentStatuses"}, {"IItem", "clearOriginAddresses"},
      {"IConsignment", "clearRemarks"}, {"IShipment", "clearTransportHandlingUnits"}};
  for (auto [interface_name, clear] : examples)
    EXPECT_EQ(members_named(interface_named(interface_name), clear).size(), 1u) << clear;
}

TEST(CatalogueNames, ItemPropertyIsLowerCaseInTheEightInterfacesThatHaveIt) {
  std::set<std::string> with_item;
  for (size_t k = 0; k < class_count(); ++k) {
    const Class& c = classes()[k];
    if (!members_named(c, "item").empty()) with_item.insert(c.interface_name);
    EXPECT_TRUE(members_named(c, "Item").empty()) << c.interface_name;
  }
  EXPECT_EQ(with_item, (std::set<std::string>{
                           "ICatalogueItemSpecificationUpdateLine", "ICatalogueLine",
                           "ICatalogueRequestLine", "ICreditNoteLine", "IDebitNoteLine",
                           "IDespatchLine", "IInvoiceLine", "ILineItem"}));
  // A list of items keeps the element name.
  EXPECT_NE(method(interface_named("IGoodsItem"), "getItem"), nullptr);
}

TEST(CatalogueNames, DocumentsPublishTheVersionAheadOfTheExtensions) {
  for (size_t k = 0; k < class_count(); ++k) {
    const Class& c = classes()[k];
    if (c.kind != ClassKind::Document) continue;
    EXPECT_STREQ(c.members[0].cpp_name, "get_UBLVersionID") << c.interface_name;
    EXPECT_STREQ(c.members[3].cpp_name,
                 std::string_view(c.name) == "FreightInvoice" ? "get_CustomizationID"
                                                              : "get_UBLExtensions")
        << c.interface_name;
    EXPECT_EQ(members_named(c, "UBLExtensions").size(),
              std::string_view(c.name) == "FreightInvoice" ? 0u : 2u)
        << c.interface_name;
  }
}

TEST(CatalogueNames, ExtensionInterfaces) {
  const Class& extensions = interface_named("IUBLExtensions");
  ASSERT_EQ(extensions.member_count, 5);
  EXPECT_STREQ(extensions.members[4].name, "UBLExtensionCount");

  const Class& extension = interface_named("IUBLExtension");
  std::vector<std::string> properties;
  for (const Member* m = extension.members; m != extension.members + extension.member_count; ++m)
    if (m->kind == MemberKind::PropPut) properties.push_back(m->name);
  EXPECT_EQ(properties, (std::vector<std::string>{
                            "ID", "Name", "ExtensionAgencyID", "ExtensionAgencyName",
                            "ExtensionVersionID", "ExtensionAgencyURI", "ExtensionURI",
                            "ExtensionReasonCode", "ExtensionReason"}));
}

TEST(CatalogueDataTypes, AttributesInPublishedOrderThenValuePutBeforeGet) {
  const Class& binary = interface_named("IBinaryObject");
  std::vector<std::string> names;
  for (const Member* m = binary.members; m != binary.members + binary.member_count; ++m)
    names.push_back(m->cpp_name);
  EXPECT_EQ(names, (std::vector<std::string>{
                       "get_Format", "put_Format", "get_IsFormatSet", "get_MimeCode",
                       "put_MimeCode", "get_EncodingCode", "put_EncodingCode",
                       "get_IsEncodingCodeSet", "get_CharacterSetCode", "put_CharacterSetCode",
                       "get_IsCharacterSetCodeSet", "get_Uri", "put_Uri", "get_IsUriSet",
                       "get_Filename", "put_Filename", "get_IsFilenameSet", "put_Value",
                       "get_Value"}));

  const Class& code = interface_named("ICode");
  EXPECT_STREQ(code.members[0].name, "LanguageID");
  EXPECT_STREQ(code.members[24].name, "Name");

  const std::pair<const char*, ParamType> content[] = {
      {"IIdentifier", ParamType::Bstr}, {"ICode", ParamType::Bstr}, {"IText", ParamType::Bstr},
      {"IName", ParamType::Bstr}, {"IAmount", ParamType::Double}, {"IQuantity", ParamType::Double},
      {"IMeasure", ParamType::Double}, {"IBinaryObject", ParamType::Variant}};
  for (auto [name, type] : content) {
    const Class& c = interface_named(name);
    const Member& put = c.members[c.member_count - 2];
    const Member& get = c.members[c.member_count - 1];
    EXPECT_EQ(put.kind, MemberKind::PropPut) << name;
    EXPECT_EQ(get.kind, MemberKind::PropGet) << name;
    EXPECT_STREQ(get.name, "Value");
    EXPECT_EQ(put.dispid, get.dispid) << name;
    EXPECT_EQ(param_names(put), std::vector<std::string>{"(unnamed)"}) << name;
    EXPECT_EQ(param_names(get), std::vector<std::string>{"Value"}) << name;
    EXPECT_EQ(put.params[0].type, type) << name;
    EXPECT_EQ(get.params[0].type, type) << name;
  }
}

TEST(CatalogueParameters, NamesTellOptionalFromRequiredAndLists) {
  const Class& line = interface_named("IInvoiceLine");
  const std::pair<const char*, std::vector<std::string>> names[] = {
      {"get_ID", {"item"}}, {"put_ID", {"(unnamed)"}}, {"get_UUID", {"val"}},
      {"get_IsUUIDSet", {"val"}}, {"get_item", {"item"}}, {"getDelivery", {"index", "val"}},
      {"addDelivery", {"item"}}, {"removeDelivery", {"index"}}, {"clearDeliveries", {}},
      {"get_DeliveryCount", {"val"}}};
  for (const auto& [cpp_name, expected] : names) {
    ASSERT_NE(method(line, cpp_name), nullptr) << cpp_name;
    EXPECT_EQ(param_names(*method(line, cpp_name)), expected) << cpp_name;
  }
  const Member& get_delivery = *method(line, "getDelivery");
  EXPECT_EQ(get_delivery.params[0].type, ParamType::Long);
  EXPECT_FALSE(get_delivery.params[0].retval);
  EXPECT_EQ(get_delivery.params[1].type, ParamType::Object);
  EXPECT_EQ(get_delivery.params[1].object_class, find_class_by_name("Delivery")->k);
  EXPECT_TRUE(get_delivery.params[1].retval);
}

TEST(CatalogueParameters, CreditAndDebitNoteLinesPublishARequiredItemNamedVal) {
  for (const char* name : {"ICreditNoteLine", "IDebitNoteLine"}) {
    const Class& c = interface_named(name);
    ASSERT_NE(method(c, "get_item"), nullptr) << name;
    EXPECT_EQ(param_names(*method(c, "get_item")), std::vector<std::string>{"val"}) << name;
    EXPECT_EQ(method(c, "get_IsitemSet"), nullptr) << name;
    EXPECT_EQ(method(c, "get_item")->params[0].object_class, find_class_by_name("Item")->k);
  }
}

TEST(CatalogueParameters, DocumentOperationsInTheirOrder) {
  struct Operation { MemberKind kind; const char* cpp_name; std::vector<std::string> params; };
  const std::vector<Operation> operations = {
      {MemberKind::Method, "Write", {"file"}},
      {MemberKind::Method, "Read", {"file"}},
      {MemberKind::PropPut, "put_XML", {"(unnamed)"}},
      {MemberKind::PropGet, "get_XML", {"Value"}},
      {MemberKind::Method, "GetSchemaValidationErrors", {"file", "schemaFile", "errors"}},
      {MemberKind::Method, "GetSchemaValidationErrorsFromXML", {"XML", "schemaFile", "errors"}},
      {MemberKind::Method, "GetValidationErrorsFromXML",
       {"xmldata", "schemaFile", "xsldata", "errors"}},
      {MemberKind::Method, "GetValidationErrors", {"file", "schemaFile", "xslFile", "errors"}},
      {MemberKind::Method, "GetValueValidationErrors", {"file", "xslFile", "errors"}},
      {MemberKind::Method, "GetValueValidationErrorsFromXML", {"xmldata", "xsldata", "errors"}}};
  const DISPID offsets[] = {1, 2, 3, 3, 4, 5, 6, 7, 8, 9};
  for (size_t k = 0; k < class_count(); ++k) {
    const Class& c = classes()[k];
    if (c.kind != ClassKind::Document) continue;
    const Member* first = c.members + c.member_count - operations.size();
    const DISPID before = first[-1].dispid;
    for (size_t i = 0; i < operations.size(); ++i) {
      EXPECT_EQ(first[i].kind, operations[i].kind) << c.interface_name;
      EXPECT_STREQ(first[i].cpp_name, operations[i].cpp_name) << c.interface_name;
      EXPECT_EQ(param_names(first[i]), operations[i].params) << operations[i].cpp_name;
      EXPECT_EQ(first[i].dispid, before + offsets[i]) << operations[i].cpp_name;
      for (int p = 0; p < first[i].param_count; ++p)
        EXPECT_EQ(first[i].params[p].type, ParamType::Bstr) << operations[i].cpp_name;
    }
  }
  const Class& invoice = interface_named("IInvoice");
  EXPECT_STREQ(invoice.members[invoice.member_count - 1].name, "GetValueValidationErrorsFromXML");
  EXPECT_EQ(invoice.members[invoice.member_count - 1].dispid, 148);
}

// CV2ID came into the schema after the interface was published: its members follow the last
// member, and the elements after it in the schema keep the slots and DISPIDs they had.
TEST(CatalogueNames, CardAccountKeepsItsPublishedSlotsWithCV2IDLast) {
  const Class& card = interface_named("ICardAccount");
  ASSERT_EQ(card.member_count, 31);
  struct Pinned {
    const char* cpp_name;
    DISPID dispid;
    int slot;
  };
  const Pinned pinned[] = {
      {"get_IssueNumberID", 11, 23},       {"get_IsIssueNumberIDSet", 12, 25},
      {"get_CardChipCode", 13, 26},        {"put_CardChipCode", 13, 27},
      {"get_IsCardChipCodeSet", 14, 28},   {"get_ChipApplicationID", 15, 29},
      {"get_IsChipApplicationIDSet", 16, 31}, {"get_HolderName", 17, 32},
      {"put_HolderName", 17, 33},          {"get_IsHolderNameSet", 18, 34},
      {"get_CV2ID", 19, 35},               {"put_CV2ID", 19, 36},
      {"get_IsCV2IDSet", 20, 37},
  };
  for (const Pinned& p : pinned) {
    const Member* m = method(card, p.cpp_name);
    ASSERT_NE(m, nullptr) << p.cpp_name;
    EXPECT_EQ(m->dispid, p.dispid) << p.cpp_name;
    EXPECT_EQ(m->slot, p.slot) << p.cpp_name;
  }
}
