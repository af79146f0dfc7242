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

// Past a byte-order mark, comments, processing instructions and a document type declaration;
// nothing in text that is not XML.
TEST(RootElement, LocalNameAfterTheProlog) {
  const std::pair<const char*, const char*> cases[] = {
      {"<Invoice/>", "Invoice"},
      {"\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<Invoice>", "Invoice"},
      {"<!-- <Invoice> - -> --><?pi x > y?>\n  <Order a='1'>", "Order"},
      {"<!---x--><Order>", "Order"},
      {"<!DOCTYPE Order [<!ENTITY e \"<x>\">]><Order>", "Order"},
      {"<ubl:Invoice xmlns:ubl='urn:x'>", "Invoice"},
      {"<CreditNote\n xmlns='urn:y'>", "CreditNote"},
      {"", ""}, {"plain words", ""}, {"<!-- never closed", ""}, {"<?xml version='1.0'?>", ""}};
  for (const auto& [text, root] : cases) EXPECT_EQ(root, root_of(text)) << text;
}

// Each character as `width` bytes, in the given byte order.
std::string wide(const std::string& text, int width, bool big_endian) {
  std::string bytes;
  for (char c : text) {
    std::string unit(width, '\0');
    unit[big_endian ? width - 1 : 0] = c;
    bytes += unit;
  }
  return bytes;
}

TEST(RootElement, InEveryWidthTheComponentReads) {
  const std::string text = "<?xml version='1.0'?>\n<!-- c --><ubl:Order xmlns:ubl='urn:x'>"
                           "<UBLVersionID> 2.1 </UBLVersionID>";
  for (int width : {2, 4}) {
    for (bool big_endian : {false, true}) {
      const std::string plain = wide(text, width, big_endian);
      const std::string marked = width == 2 ? (big_endian ? "\xFE\xFF" : "\xFF\xFE")
                          : (big_endian ? std::string("\0\0\xFE\xFF", 4) : std::string("\xFF\xFE\0\0", 4));
      for (const std::string& bytes : {plain, marked + plain}) {
        std::istringstream in(bytes);
        const tivalo::cli::DocumentHead head = tivalo::cli::read_document_head(in);
        EXPECT_EQ("Order", head.root) << width << big_endian;
        EXPECT_EQ("2.1", head.ubl_version) << width << big_endian;
      }
    }
  }
}

}  // namespace
