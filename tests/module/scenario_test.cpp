// A script's whole session through IDispatch and names: create, fill, write, read back, validate.
#include "script_host.h"

#include <cstdio>
#include <string>

namespace {

using script::Var;

std::wstring wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }

void set_value(IDispatch* owner, const wchar_t* property, const Var& value) {
  auto child = script::get_object(owner, property);
  ASSERT_TRUE(child);
  script::put(child.get(), L"Value", value);
}

void set_amount(IDispatch* owner, const wchar_t* property, double value) {
  auto amount = script::get_object(owner, property);
  ASSERT_TRUE(amount);
  script::put(amount.get(), L"Value", Var::r8(value));
  script::put(amount.get(), L"CurrencyID", Var::text(L"EUR"));
}

tivalo::ComPtr<IDispatch> new_line(const wchar_t* id, double amount) {
  auto line = script::create(L"TivaloCOM.InvoiceLine");
  set_value(line.get(), L"ID", Var::text(id));
  set_amount(line.get(), L"LineExtensionAmount", amount);
  auto item = script::get_object(line.get(), L"Item");
  set_value(item.get(), L"Name", Var::text(L"Widget"));
  return line;
}

TEST(ScriptScenario, InvoiceBuiltWrittenReadAndValidatedThroughNamesOnly) {
  std::string file = std::string(TIVALO_BINARY_DIR) + "/module_scenario_invoice.xml";
  std::remove(file.c_str());
  std::wstring schema = wide(std::string(TIVALO_SCHEMA_DIR) + "/maindoc/UBL-Invoice-2.0.xsd");

  auto invoice = script::create(L"TivaloCOM.Invoice");
  ASSERT_TRUE(invoice);
  set_value(invoice.get(), L"ID", Var::text(L"INV-2010-001"));
  script::put(invoice.get(), L"IssueDate", Var::text(L"2010-08-20"));
  set_amount(script::get_object(invoice.get(), L"LegalMonetaryTotal").get(), L"PayableAmount",
             150.0);
  script::get_object(invoice.get(), L"AccountingSupplierParty");
  script::get_object(invoice.get(), L"AccountingCustomerParty");
  script::call(invoice.get(), L"addInvoiceLine", {Var::object(new_line(L"1", 100).get())});
  script::call(invoice.get(), L"addInvoiceLine", {Var::object(new_line(L"2", 50).get())});
  EXPECT_EQ(2, script::get(invoice.get(), L"InvoiceLineCount").lVal);

  script::call(invoice.get(), L"Write", {Var::text(wide(file).c_str())});

  auto copy = script::create(L"TivaloCOM.Invoice");
  script::call(copy.get(), L"Read", {Var::text(wide(file).c_str())});
  auto id = script::get_object(copy.get(), L"ID");
  EXPECT_EQ(L"INV-2010-001", script::get(id.get(), L"Value").as_text());
  EXPECT_EQ(2, script::get(copy.get(), L"InvoiceLineCount").lVal);
  Var second = script::call(copy.get(), L"getInvoiceLine", {Var::i4(1)});
  ASSERT_EQ(VT_DISPATCH, second.vt);
  auto amount = script::get_object(second.pdispVal, L"LineExtensionAmount");
  EXPECT_DOUBLE_EQ(50.0, script::get(amount.get(), L"Value").dblVal);
  Var date = script::get(copy.get(), L"IssueDate");
  EXPECT_EQ(VT_DATE, date.vt);

  Var errors = script::call(copy.get(), L"GetSchemaValidationErrors",
                            {Var::text(wide(file).c_str()), Var::text(schema.c_str())});
  ASSERT_EQ(VT_BSTR, errors.vt);
  std::wstring text = errors.as_text();
  EXPECT_TRUE(text.empty()) << std::string(text.begin(), text.end());
}

}  // namespace
