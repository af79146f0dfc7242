// What the document tests share: files in a fresh temporary directory, objects made through the
// module as a client makes them, and the thread's error information.
#pragma once

#include "platform/automation.h"
#include "tivalo/interfaces.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <unistd.h>

namespace document_testing {

using tivalo::Bstr;
using tivalo::ComPtr;

inline std::wstring schema_of(const std::wstring& document) {
  return std::wstring(L"" TIVALO_SCHEMA_DIR) + L"/maindoc/UBL-" + document + L"-2.0.xsd";
}

template <class Interface>
ComPtr<Interface> create(const CLSID& clsid) {
  ComPtr<Interface> object;
  EXPECT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER,
                                   tivalo::iid_of<Interface>(), object.put_void()));
  return object;
}

inline std::wstring text(const Bstr& value) { return value.get() ? value.get() : L""; }

// Each character of a string got from `XML` stands for one byte of the document.
inline std::string bytes_of(const Bstr& xml) {
  std::string bytes;
  for (wchar_t c : text(xml)) bytes += static_cast<char>(c);
  return bytes;
}

inline Bstr string_of_bytes(const std::string& bytes) {
  std::wstring wide;
  for (char c : bytes) wide += static_cast<wchar_t>(static_cast<unsigned char>(c));
  return Bstr(wide);
}

// The thread's error information, taken out of its slot.
struct ErrorReport {
  std::wstring description, source;
  GUID guid{};
  bool present = false;
};

inline ErrorReport take_error_report() {
  ErrorReport report;
  ComPtr<IErrorInfo> info;
  if (GetErrorInfo(0, info.put()) != S_OK || !info) return report;
  report.present = true;
  Bstr description, source;
  info->GetDescription(description.put());
  info->GetSource(source.put());
  info->GetGUID(&report.guid);
  report.description = text(description);
  report.source = text(source);
  return report;
}

// A fresh directory per test, removed afterwards.
class TempDirectory : public ::testing::Test {
 protected:
  void SetUp() override {
    static int count = 0;
    directory_ = std::filesystem::temp_directory_path() /
                 ("tivalo-document-" + std::to_string(::getpid()) + "-" + std::to_string(++count));
    std::filesystem::remove_all(directory_);
    std::filesystem::create_directories(directory_);
    SetErrorInfo(0, nullptr);
  }
  void TearDown() override { std::filesystem::remove_all(directory_); }

  std::wstring path(const std::string& name) const { return (directory_ / name).wstring(); }
  Bstr path_bstr(const std::string& name) const { return Bstr(path(name)); }

  std::wstring write_file(const std::string& name, const std::string& content) const {
    std::ofstream(directory_ / name, std::ios::binary) << content;
    return path(name);
  }

  std::string read_file(const std::string& name) const {
    std::ifstream in(directory_ / name, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
  }

 private:
  std::filesystem::path directory_;
};

// A small UBL document of the given type, with the children given in `body`.
inline std::string ubl_document(const std::string& type, const std::string& body,
                                const std::string& prolog = "",
                                const std::string& root_attributes = "") {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + prolog + "<" + type +
         " xmlns=\"urn:oasis:names:specification:ubl:schema:xsd:" + type + "-2\""
         " xmlns:cbc=\"urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2\""
         " xmlns:cac=\"urn:oasis:names:specification:ubl:schema:xsd:CommonAggregateComponents-2\"" +
         root_attributes + ">\n" + body + "</" + type + ">\n";
}

// The children of an Invoice that has every member its schema requires, in schema order.
inline std::string valid_invoice_body(const std::string& id = "INV-1") {
  return "  <cbc:ID>" + id + "</cbc:ID>\n"
         "  <cbc:IssueDate>2020-01-02</cbc:IssueDate>\n"
         "  <cac:AccountingSupplierParty/>\n"
         "  <cac:AccountingCustomerParty/>\n"
         "  <cac:LegalMonetaryTotal>\n"
         "    <cbc:PayableAmount currencyID=\"EUR\">10</cbc:PayableAmount>\n"
         "  </cac:LegalMonetaryTotal>\n"
         "  <cac:InvoiceLine>\n"
         "    <cbc:ID>1</cbc:ID>\n"
         "    <cbc:LineExtensionAmount currencyID=\"EUR\">10</cbc:LineExtensionAmount>\n"
         "    <cac:Item/>\n"
         "  </cac:InvoiceLine>\n";
}

inline std::string valid_invoice(const std::string& id = "INV-1") {
  return ubl_document("Invoice", valid_invoice_body(id));
}

}  // namespace document_testing
