// The invoice of the Python round-trip scenario, built the same way through JScript: written,
// validated, read back and compared. Arguments: the output file and the UBL 2.0 Invoice schema.
// The runner compares the file with the one the Python scenario writes, byte for byte apart from
// line ends. Prints "FAIL: ..." per failed check and "round trip: done" at the end.
var failures = 0;
var path = WScript.Arguments(0);
var schema = WScript.Arguments(1);

function check(condition, what) {
  if (!condition) {
    WScript.Echo("FAIL: " + what);
    failures++;
  }
}

function make(name) { return new ActiveXObject("TivaloCOM." + name); }

var e_acute = String.fromCharCode(0xE9), e_grave = String.fromCharCode(0xE8);
var NOTE = "Livraison effectu" + e_acute + "e le 14 mars";
var SUPPLIER = "Atelier Lumi" + e_grave + "re SARL";
// ID, quantity, unit, amount, item name
var LINES = [["1", 4.0, "C62", 200.0, "Desk lamp"], ["2", 12.5, "MTR", 100.5, "Textile cable"]];
var ISSUE_DATE = 45366;                   // 2024-03-15 as an automation DATE
var ISSUE_TIME = (9 * 3600 + 30 * 60 + 5) / 86400;  // 09:30:05

function amount(target, value) {
  target.Value = value;
  target.CurrencyID = "EUR";
}

function party(partyObject, name, city, country) {
  var partyName = make("PartyName");
  partyName.Name.Value = name;
  partyObject.addPartyName(partyName);
  partyObject.PostalAddress.CityName.Value = city;
  partyObject.PostalAddress.Country.IdentificationCode.Value = country;
}

function buildInvoice() {
  var invoice = make("Invoice");
  invoice.UBLVersionID.Value = "2.0";
  invoice.ID.Value = "INV-PY-0001";
  invoice.CopyIndicator = false;
  invoice.IssueDate = ISSUE_DATE;
  invoice.IssueTime = ISSUE_TIME;
  invoice.InvoiceTypeCode.Value = "380";
  var note = make("Text");
  note.Value = NOTE;
  note.LanguageID = "fr";
  invoice.addNote(note);
  invoice.DocumentCurrencyCode.Value = "EUR";

  party(invoice.AccountingSupplierParty.Party, SUPPLIER, "Lyon", "FR");
  party(invoice.AccountingCustomerParty.Party, "Nordhaven Trading GmbH", "Hamburg", "DE");

  var charge = make("AllowanceCharge");
  charge.ChargeIndicator = true;
  amount(charge.Amount, 12.0);
  invoice.addAllowanceCharge(charge);

  var total = invoice.LegalMonetaryTotal;
  amount(total.LineExtensionAmount, 300.5);
  amount(total.ChargeTotalAmount, 12.0);
  amount(total.PayableAmount, 312.5);

  for (var i = 0; i < LINES.length; i++) {
    var line = make("InvoiceLine");
    line.ID.Value = LINES[i][0];
    line.InvoicedQuantity.Value = LINES[i][1];
    line.InvoicedQuantity.UnitCode = LINES[i][2];
    amount(line.LineExtensionAmount, LINES[i][3]);
    line.Item.Name.Value = LINES[i][4];
    invoice.addInvoiceLine(line);
  }
  return invoice;
}

function checkSameContent(invoice) {
  check(invoice.UBLVersionID.Value == "2.0", "UBLVersionID");
  check(invoice.ID.Value == "INV-PY-0001", "ID");
  check(invoice.IsCopyIndicatorSet == true && invoice.CopyIndicator == false, "CopyIndicator");
  check(invoice.IsTaxPointDateSet == false, "TaxPointDate unset");
  check(invoice.InvoiceTypeCode.Value == "380", "InvoiceTypeCode");
  check(invoice.NoteCount == 1, "NoteCount");
  check(invoice.getNote(0).Value == NOTE, "Note");
  check(invoice.getNote(0).LanguageID == "fr", "Note language");
  check(invoice.DocumentCurrencyCode.Value == "EUR", "DocumentCurrencyCode");
  var supplier = invoice.AccountingSupplierParty.Party;
  check(supplier.getPartyName(0).Name.Value == SUPPLIER, "supplier name");
  check(supplier.PostalAddress.CityName.Value == "Lyon", "supplier city");
  check(supplier.PostalAddress.Country.IdentificationCode.Value == "FR", "supplier country");
  check(invoice.AccountingCustomerParty.Party.getPartyName(0).Name.Value == "Nordhaven Trading GmbH",
        "customer name");
  check(invoice.AllowanceChargeCount == 1, "AllowanceChargeCount");
  var charge = invoice.getAllowanceCharge(0);
  check(charge.ChargeIndicator == true, "ChargeIndicator");
  check(charge.Amount.Value == 12.0 && charge.Amount.CurrencyID == "EUR", "charge amount");
  var total = invoice.LegalMonetaryTotal;
  check(total.PayableAmount.Value == 312.5 && total.PayableAmount.CurrencyID == "EUR", "payable");
  check(total.IsTaxExclusiveAmountSet == false, "TaxExclusiveAmount unset");
  check(invoice.InvoiceLineCount == LINES.length, "InvoiceLineCount");
  for (var i = 0; i < LINES.length; i++) {
    var line = invoice.getInvoiceLine(i);
    check(line.ID.Value == LINES[i][0], "line ID " + i);
    check(line.InvoicedQuantity.Value == LINES[i][1], "quantity " + i);
    check(line.InvoicedQuantity.UnitCode == LINES[i][2], "unit " + i);
    check(line.LineExtensionAmount.Value == LINES[i][3], "line amount " + i);
    check(line.Item.Name.Value == LINES[i][4], "item name " + i);
  }
}

var written = buildInvoice();
written.Write(path);
var errors = written.GetSchemaValidationErrors(path, schema);
check(errors == null || errors == "", "schema errors: " + errors);
var read = make("Invoice");
read.Read(path);
checkSameContent(read);

var text = buildInvoice().XML;
check(text.indexOf("<cbc:ChargeIndicator>true</cbc:ChargeIndicator>") >= 0, "XML get");
var copy = make("Invoice");
copy.XML = text;
checkSameContent(copy);

WScript.Echo("round trip: done, " + failures + " failed");
