// The root element is found before the component reads anything, past whatever a prolog holds.
#include "cli/root_element.h"

#include <gtest/gtest.h>

#include <sstream>

using tivalo::cli::root_element_name;

namespace {

std::string root_of(const std::string& text) {
  std::istringstream in(text);
  return root_element_name(in);
}

TEST(RootElement, SkipsTheProlog) {
  EXPECT_EQ("Invoice", root_of("<Invoice/>"));
  EXPECT_EQ("Invoice", root_of("\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<Invoice>"));
  EXPECT_EQ("Order", root_of("<!-- <Invoice> - -> --><?pi x > y?>\n  <Order a='1'>"));
  EXPECT_EQ("Order", root_of("<!---x--><Order>"));
  EXPECT_EQ("Order", root_of("<!DOCTYPE Order [<!ENTITY e \"<x>\">]><Order>"));
}

TEST(RootElement, KeepsTheLocalName) {
  EXPECT_EQ("Invoice", root_of("<ubl:Invoice xmlns:ubl='urn:x'>"));
  EXPECT_EQ("CreditNote", root_of("<CreditNote\n xmlns='urn:y'>"));
}

TEST(RootElement, NoneInTextThatIsNotXml) {
  EXPECT_EQ("", root_of(""));
  EXPECT_EQ("", root_of("plain words"));
  EXPECT_EQ("", root_of("<!-- never closed"));
  EXPECT_EQ("", root_of("<?xml version='1.0'?>"));
}

}  // namespace
