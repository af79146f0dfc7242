// The four code-list enumerations: their tables and the conversion of a text to an enumerator.

#include <algorithm>
#include <iterator>
#include <numeric>
#include <string>
#include <vector>

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

// The literal and index tables of one list, as generated.
struct Tables {
  std::vector<std::wstring> literals;
  std::vector<int> indexes;
};

template <class List, size_t N, class Value>
Tables tables_of(const wchar_t* const (&literals)[N], const Value (&indexes)[N]) {
  return {{std::begin(literals), std::end(literals)}, {std::begin(indexes), std::end(indexes)}};
}

Tables currency_tables() {
  return tables_of<CurrencyCodeContentType>(CurrencyCodeContentType::_xsd_CurrencyCodeContentType_literals_,
                                            CurrencyCodeContentType::_xsd_CurrencyCodeContentType_indexes_);
}
Tables language_tables() {
  return tables_of<LanguageCodeContentType>(LanguageCodeContentType::_xsd_LanguageCodeContentType_literals_,
                                            LanguageCodeContentType::_xsd_LanguageCodeContentType_indexes_);
}
Tables media_type_tables() {
  return tables_of<BinaryObjectMimeCodeContentType>(
      BinaryObjectMimeCodeContentType::_xsd_BinaryObjectMimeCodeContentType_literals_,
      BinaryObjectMimeCodeContentType::_xsd_BinaryObjectMimeCodeContentType_indexes_);
}
Tables unit_tables() {
  return tables_of<UnitCodeContentType>(UnitCodeContentType::_xsd_UnitCodeContentType_literals_,
                                        UnitCodeContentType::_xsd_UnitCodeContentType_indexes_);
}

// Converting a code to its enumerator is where a list refuses it. A list object made from a
// string holds the text unchecked until then; one parsed from XML converts at once.
template <class List>
std::string refusal(const std::wstring& code) {
  try {
    static_cast<typename List::value>(List(code));
  } catch (const xml_schema::unexpected_enumerator& e) {
    return message(e);
  }
  return "(accepted)";
}

template <class List>
int enumerator(const std::wstring& code) {
  return static_cast<int>(static_cast<typename List::value>(List(code)));
}

TEST(CodeLists, TablesHaveTheEditionsCountsAndEnds) {
  struct Expected {
    Tables tables;
    size_t count;
    const wchar_t* first;
    const wchar_t* last;
  } lists[] = {
      {currency_tables(), 167, L"AED", L"ZWD"},
      {language_tables(), 276, L"AA", L"zu"},
      {media_type_tables(), 616, L"application/CSTAdata+xml", L"video/vnd.vivo"},
      {unit_tables(), 1093, L"04", L"ZZ"},
  };
  for (const Expected& list : lists) {
    SCOPED_TRACE(narrow(list.first));
    EXPECT_EQ(list.tables.literals.size(), list.count);
    EXPECT_EQ(list.tables.literals.front(), list.first);
    EXPECT_EQ(list.tables.literals.back(), list.last);
  }
}

TEST(CodeLists, IndexTableOrdersTheLiteralsAndOnlyUnitsNeedAPermutation) {
  const std::pair<Tables, bool> lists[] = {{currency_tables(), true},
                                           {language_tables(), true},
                                           {media_type_tables(), true},
                                           {unit_tables(), false}};
  for (const auto& [tables, identity] : lists) {
    SCOPED_TRACE(narrow(tables.literals.front()));
    std::vector<int> sorted_indexes = tables.indexes;
    std::sort(sorted_indexes.begin(), sorted_indexes.end());
    std::vector<int> all(tables.literals.size());
    std::iota(all.begin(), all.end(), 0);
    EXPECT_EQ(sorted_indexes, all) << "not a permutation";
    EXPECT_EQ(tables.indexes == all, identity);
    for (size_t i = 1; i < tables.indexes.size(); ++i)
      ASSERT_LT(tables.literals[tables.indexes[i - 1]], tables.literals[tables.indexes[i]]);
  }
}

TEST(CodeLists, EveryLiteralConvertsToItsOwnEnumerator) {
  // For units this only holds if the search goes through the index table.
  const Tables units = unit_tables();
  for (size_t i = 0; i < units.literals.size(); ++i)
    ASSERT_EQ(enumerator<UnitCodeContentType>(units.literals[i]), static_cast<int>(i))
        << narrow(units.literals[i]);
  const Tables media = media_type_tables();
  for (size_t i = 0; i < media.literals.size(); ++i)
    ASSERT_EQ(enumerator<BinaryObjectMimeCodeContentType>(media.literals[i]), static_cast<int>(i));
}

TEST(CodeLists, CurrenciesAreCaseSensitive) {
  EXPECT_EQ(CurrencyCodeContentType(L"EUR"), CurrencyCodeContentType::EUR);
  EXPECT_EQ(CurrencyCodeContentType(L"USD"), CurrencyCodeContentType::USD);
  EXPECT_EQ(CurrencyCodeContentType(L"ZWD"), CurrencyCodeContentType::ZWD);  // 2001 edition
  EXPECT_EQ(refusal<CurrencyCodeContentType>(L"eur"), "unexpected enumerator 'eur'");
}

TEST(CodeLists, LanguagesHoldBothCases) {
  EXPECT_EQ(LanguageCodeContentType(L"EN"), LanguageCodeContentType::EN);
  EXPECT_EQ(LanguageCodeContentType(L"en"), LanguageCodeContentType::en);
  EXPECT_NE(enumerator<LanguageCodeContentType>(L"EN"), enumerator<LanguageCodeContentType>(L"en"));
}

TEST(CodeLists, UnitsAcceptCommonCodes) {
  EXPECT_EQ(UnitCodeContentType(L"C62"), UnitCodeContentType::C62);
  EXPECT_EQ(UnitCodeContentType(L"EA"), UnitCodeContentType::EA);
  EXPECT_EQ(refusal<UnitCodeContentType>(L"ea"), "unexpected enumerator 'ea'");
}

TEST(CodeLists, EmptyAndUnknownTextsAreRefusedByEveryList) {
  EXPECT_EQ(refusal<CurrencyCodeContentType>(L""), "unexpected enumerator ''");
  EXPECT_EQ(refusal<LanguageCodeContentType>(L""), "unexpected enumerator ''");
  EXPECT_EQ(refusal<BinaryObjectMimeCodeContentType>(L""), "unexpected enumerator ''");
  EXPECT_EQ(refusal<UnitCodeContentType>(L""), "unexpected enumerator ''");
  // Past the end of every table.
  EXPECT_EQ(refusal<UnitCodeContentType>(L"~"), "unexpected enumerator '~'");
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

TEST(CodeLists, BasesAreTokenExceptMediaTypes) {
  static_assert(std::is_base_of_v<xml_schema::token, CurrencyCodeContentType>);
  static_assert(std::is_base_of_v<xml_schema::token, LanguageCodeContentType>);
  static_assert(std::is_base_of_v<xml_schema::token, UnitCodeContentType>);
  static_assert(std::is_base_of_v<xml_schema::normalized_string, BinaryObjectMimeCodeContentType> &&
                !std::is_base_of_v<xml_schema::token, BinaryObjectMimeCodeContentType>);
  // Built from an enumerator, a list holds that enumerator's literal.
  EXPECT_EQ(UnitCodeContentType(UnitCodeContentType::C62), L"C62");
}

}  // namespace
