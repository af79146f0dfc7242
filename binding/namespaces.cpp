#include "binding/namespaces.h"

#include <algorithm>

namespace Morvek::UBL2 {

const std::array<PrefixMapping, 8>& ubl_prefixes() {
  static const std::array<PrefixMapping, 8> prefixes{{
      {L"cbc", xmlns::cbc},
      {L"cac", xmlns::cac},
      {L"qdt", xmlns::qdt},
      {L"ccts", xmlns::ccts},
      {L"stat", xmlns::stat},
      {L"udt", xmlns::udt},
      {L"ext", xmlns::ext},
      {L"xsi", xmlns::xsi},
  }};
  return prefixes;
}

const std::array<const wchar_t*, 31>& ubl_document_names() {
  static const std::array<const wchar_t*, 31> names{{
      L"ApplicationResponse", L"AttachedDocument", L"BillOfLading", L"Catalogue",
      L"CatalogueDeletion", L"CatalogueItemSpecificationUpdate", L"CataloguePricingUpdate",
      L"CatalogueRequest", L"CertificateOfOrigin", L"CreditNote", L"DebitNote",
      L"DespatchAdvice", L"ForwardingInstructions", L"FreightInvoice", L"Invoice", L"Order",
      L"OrderCancellation", L"OrderChange", L"OrderResponse", L"OrderResponseSimple",
      L"PackingList", L"Quotation", L"ReceiptAdvice", L"Reminder", L"RemittanceAdvice",
      L"RequestForQuotation", L"SelfBilledCreditNote", L"SelfBilledInvoice", L"Statement",
      L"TransportationStatus", L"Waybill",
  }};
  return names;
}

std::wstring document_namespace(std::wstring_view document_name) {
  const auto& names = ubl_document_names();
  bool known = std::any_of(names.begin(), names.end(),
                           [&](const wchar_t* name) { return document_name == name; });
  if (!known) return {};
  return std::wstring(xmlns::document_prefix) + std::wstring(document_name) + L"-2";
}

xml_schema::namespace_infomap ubl_namespace_map(const std::wstring& document_namespace) {
  xml_schema::namespace_infomap map;
  map[L""].name = document_namespace;
  for (const PrefixMapping& mapping : ubl_prefixes()) map[mapping.prefix].name = mapping.uri;
  return map;
}

}  // namespace Morvek::UBL2
