// The four code-list enumerations: converting a text to its enumerator, where a list refuses it.

#include <string>

#include <gtest/gtest.h>

#include "binding/lists/CodeList_CurrencyCode_ISO_7_04.hxx"
#include "binding/lists/CodeList_LanguageCode_ISO_7_04.hxx"
#include "binding/lists/CodeList_MIMEMediaTypeCode_IANA_7_04.hxx"
#include "binding/lists/CodeList_UnitCode_UNECE_7_04.hxx"
#include "binding_test_support.h"

namespace {

using namespace binding_test;
using Morvek::UBL2::Lists::Currencies::CurrencyCodeContentType;
using Morvek::UBL2::Lists::Languages::LanguageCodeContentType;
using Morvek::UBL2::Lists::MediaTypes::BinaryObjectMimeCodeContentType;
using Morvek::UBL2::Lists::Units::UnitCodeContentType;

// A list object made from a string holds the text unchecked until it is converted.
template <class List>
std::string refusal(const std::wstring& code) {
  try {
    static_cast<typename List::value>(List(code));
  } catch (const xml_schema::unexpected_enumerator& e) {
    return message(e);
  }
  return "(accepted)";
}

template <class List, size_t N>
void expect_every_literal_converts_to_its_own_enumerator(const wchar_t* const (&literals)[N]) {
  for (size_t i = 0; i < N; ++i)
    ASSERT_EQ(static_cast<size_t>(static_cast<typename List::value>(List(literals[i]))), i)
        << narrow(literals[i]);
}

TEST(CodeLists, EveryLiteralConvertsToItsOwnEnumerator) {
  // Units are not in sorted order: this holds only if the search goes through the index table.
  expect_every_literal_converts_to_its_own_enumerator<UnitCodeContentType>(
      UnitCodeContentType::_xsd_UnitCodeContentType_literals_);
  expect_every_literal_converts_to_its_own_enumerator<BinaryObjectMimeCodeContentType>(
      BinaryObjectMimeCodeContentType::_xsd_BinaryObjectMimeCodeContentType_literals_);
  expect_every_literal_converts_to_its_own_enumerator<CurrencyCodeContentType>(
      CurrencyCodeContentType::_xsd_CurrencyCodeContentType_literals_);
  EXPECT_NE(LanguageCodeContentType(L"EN"), LanguageCodeContentType(L"en"));
}

TEST(CodeLists, WrongCaseEmptyAndUnknownTextsAreRefused) {
  EXPECT_EQ(refusal<CurrencyCodeContentType>(L"eur"), "unexpected enumerator 'eur'");
  EXPECT_EQ(refusal<UnitCodeContentType>(L"ea"), "unexpected enumerator 'ea'");
  EXPECT_EQ(refusal<LanguageCodeContentType>(L""), "unexpected enumerator ''");
  EXPECT_EQ(refusal<UnitCodeContentType>(L"~"), "unexpected enumerator '~'");  // past the end
  EXPECT_EQ(refusal<BinaryObjectMimeCodeContentType>(L"text/unknown"),
            "unexpected enumerator 'text/unknown'");
}

TEST(CodeLists, ParsingFromXmlRefusesAtOnce) {
  auto document = parse_dom("<c>eur</c>");
  try {
    CurrencyCodeContentType parsed(*document->getDocumentElement());
    FAIL() << "parsed 'eur'";
  } catch (const xml_schema::unexpected_enumerator& e) {
    EXPECT_EQ(message(e), "unexpected enumerator 'eur'");
  }
  document = parse_dom("<c>EUR</c>");
  EXPECT_EQ(CurrencyCodeContentType(*document->getDocumentElement()), CurrencyCodeContentType::EUR);
}

}  // namespace
