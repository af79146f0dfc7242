// Builds a small invoice through the TivaloCOM interfaces and writes it to a file.
//
//   write_invoice [OUT]      (default: invoice.xml)
#include "tivalo/tivalo.h"

#include <cstdio>
#include <cstdlib>
#include <string>

using tivalo::Bstr;
using tivalo::ComPtr;

namespace {

// A failed call ends the program with the component's own message when it left one.
void check(HRESULT status, const char* what) {
  if (SUCCEEDED(status)) return;
  std::string message = "failed";
  ComPtr<IErrorInfo> info;
  Bstr description;
  if (GetErrorInfo(0, info.put()) == S_OK && SUCCEEDED(info->GetDescription(description.put()))) {
    int size = WideCharToMultiByte(CP_UTF8, 0, description.get(), -1, nullptr, 0, nullptr, nullptr);
    message.assign(size > 0 ? size - 1 : 0, '\0');
    WideCharToMultiByte(CP_UTF8, 0, description.get(), -1, &message[0], size, nullptr, nullptr);
  }
  std::fprintf(stderr, "write_invoice: %s: %s (0x%08X)\n", what, message.c_str(), unsigned(status));
  std::exit(1);
}

std::wstring from_utf8(const char* text) {
  std::wstring wide(std::char_traits<char>::length(text), L'\0');
  wide.resize(MultiByteToWideChar(CP_UTF8, 0, text, int(wide.size()), &wide[0], int(wide.size())));
  return wide;
}

template <class Interface>
ComPtr<Interface> create(const CLSID& clsid) {
  ComPtr<Interface> object;
  check(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, tivalo::iid_of<Interface>(),
                         object.put_void()),
        "CoCreateInstance");
  return object;
}

void set_text(IIdentifier* id, const wchar_t* text) { check(id->put_Value(Bstr(text).get()), "Value"); }

void set_amount(IAmount* amount, double value) {
  check(amount->put_Value(value), "Value");
  check(amount->put_CurrencyID(Bstr(L"EUR").get()), "CurrencyID");
}

// A party known by its name alone.
void name_party(IParty* party, const wchar_t* name) {
  auto party_name = create<IPartyName>(CLSID_PartyName);
  ComPtr<IName> text;
  check(party_name->get_Name(text.put()), "PartyName.Name");
  check(text->put_Value(Bstr(name).get()), "Name.Value");
  check(party->addPartyName(party_name), "addPartyName");
}

}  // namespace

int main(int argc, char** argv) {
  const char* out = argc > 1 ? argv[1] : "invoice.xml";
  check(CoInitialize(nullptr), "CoInitialize");
  {
    auto invoice = create<IInvoice>(CLSID_Invoice);

    // Required children exist with their parent; optional ones appear when first read.
    ComPtr<IIdentifier> id, version;
    check(invoice->get_UBLVersionID(version.put()), "UBLVersionID");
    set_text(version, L"2.0");
    check(invoice->get_ID(id.put()), "ID");
    set_text(id, L"INV-1001");
    SYSTEMTIME day{2024, 3, 0, 15, 0, 0, 0, 0};  // year, month, weekday, day, ...
    DATE issued = 0;
    SystemTimeToVariantTime(&day, &issued);
    check(invoice->put_IssueDate(issued), "IssueDate");

    ComPtr<ISupplierParty> supplier;
    ComPtr<ICustomerParty> customer;
    ComPtr<IParty> party;
    check(invoice->get_AccountingSupplierParty(supplier.put()), "AccountingSupplierParty");
    check(supplier->get_Party(party.put()), "Party");
    name_party(party, L"Atelier Lumière SARL");
    check(invoice->get_AccountingCustomerParty(customer.put()), "AccountingCustomerParty");
    check(customer->get_Party(party.put()), "Party");
    name_party(party, L"Nordhaven Trading GmbH");

    auto line = create<IInvoiceLine>(CLSID_InvoiceLine);
    ComPtr<IIdentifier> line_id;
    ComPtr<IAmount> line_amount, payable;
    ComPtr<IItem> item;
    ComPtr<IName> item_name;
    check(line->get_ID(line_id.put()), "InvoiceLine.ID");
    set_text(line_id, L"1");
    check(line->get_LineExtensionAmount(line_amount.put()), "LineExtensionAmount");
    set_amount(line_amount, 120.0);
    check(line->get_item(item.put()), "Item");
    check(item->get_Name(item_name.put()), "Item.Name");
    check(item_name->put_Value(Bstr(L"Brass desk lamp").get()), "Name.Value");
    check(invoice->addInvoiceLine(line), "addInvoiceLine");

    ComPtr<IMonetaryTotal> total;
    check(invoice->get_LegalMonetaryTotal(total.put()), "LegalMonetaryTotal");
    check(total->get_PayableAmount(payable.put()), "PayableAmount");
    set_amount(payable, 120.0);

    check(invoice->Write(Bstr(from_utf8(out)).get()), "Write");
  }
  CoUninitialize();
  std::printf("wrote %s\n", out);
  return 0;
}
