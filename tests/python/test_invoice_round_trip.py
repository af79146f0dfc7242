"""An invoice built from scratch, written, validated, read back and compared."""
import datetime

import tivalo

LINES = [
    # ID, quantity, unit, amount, item name
    ("1", 4.0, "C62", 200.0, "Desk lamp"),
    ("2", 12.5, "MTR", 100.5, "Textile cable"),
]


def make(class_name):
    return tivalo.Dispatch("TivaloCOM." + class_name)


def amount(target, value, currency="EUR"):
    target.Value = value
    target.CurrencyID = currency


def party(party_object, name, city, country):
    party_name = make("PartyName")
    party_name.Name.Value = name
    party_object.addPartyName(party_name)
    party_object.PostalAddress.CityName.Value = city
    party_object.PostalAddress.Country.IdentificationCode.Value = country


def build_invoice():
    invoice = make("Invoice")
    invoice.UBLVersionID.Value = "2.0"
    invoice.ID.Value = "INV-PY-0001"
    invoice.CopyIndicator = False
    invoice.IssueDate = datetime.date(2024, 3, 15)
    invoice.IssueTime = datetime.time(9, 30, 5)
    invoice.InvoiceTypeCode.Value = "380"
    note = make("Text")
    note.Value = "Livraison effectuée le 14 mars"
    note.LanguageID = "fr"
    invoice.addNote(note)
    invoice.DocumentCurrencyCode.Value = "EUR"

    party(invoice.AccountingSupplierParty.Party, "Atelier Lumière SARL", "Lyon", "FR")
    party(invoice.AccountingCustomerParty.Party, "Nordhaven Trading GmbH", "Hamburg", "DE")

    charge = make("AllowanceCharge")
    charge.ChargeIndicator = True
    amount(charge.Amount, 12.0)
    invoice.addAllowanceCharge(charge)

    total = invoice.LegalMonetaryTotal
    amount(total.LineExtensionAmount, 300.5)
    amount(total.ChargeTotalAmount, 12.0)
    amount(total.PayableAmount, 312.5)

    for line_id, quantity, unit, line_amount, item_name in LINES:
        line = make("InvoiceLine")
        line.ID.Value = line_id
        line.InvoicedQuantity.Value = quantity
        line.InvoicedQuantity.UnitCode = unit
        amount(line.LineExtensionAmount, line_amount)
        line.Item.Name.Value = item_name
        invoice.addInvoiceLine(line)
    return invoice


def assert_same_content(invoice):
    assert invoice.UBLVersionID.Value == "2.0"
    assert invoice.ID.Value == "INV-PY-0001"
    assert invoice.IsCopyIndicatorSet is True
    assert invoice.CopyIndicator is False
    assert invoice.IssueDate == datetime.datetime(2024, 3, 15)
    assert invoice.IssueTime.time() == datetime.time(9, 30, 5)
    assert invoice.IsTaxPointDateSet is False
    assert invoice.InvoiceTypeCode.Value == "380"
    assert invoice.NoteCount == 1
    assert invoice.getNote(0).Value == "Livraison effectuée le 14 mars"
    assert invoice.getNote(0).LanguageID == "fr"
    assert invoice.DocumentCurrencyCode.Value == "EUR"

    supplier = invoice.AccountingSupplierParty.Party
    assert supplier.getPartyName(0).Name.Value == "Atelier Lumière SARL"
    assert supplier.PostalAddress.CityName.Value == "Lyon"
    assert supplier.PostalAddress.Country.IdentificationCode.Value == "FR"
    assert invoice.AccountingCustomerParty.Party.getPartyName(0).Name.Value == "Nordhaven Trading GmbH"

    assert invoice.AllowanceChargeCount == 1
    charge = invoice.getAllowanceCharge(0)
    assert charge.ChargeIndicator is True
    assert (charge.Amount.Value, charge.Amount.CurrencyID) == (12.0, "EUR")

    total = invoice.LegalMonetaryTotal
    assert total.PayableAmount.Value == 312.5
    assert total.PayableAmount.CurrencyID == "EUR"
    assert total.IsTaxExclusiveAmountSet is False

    assert invoice.InvoiceLineCount == len(LINES)
    for index, (line_id, quantity, unit, line_amount, item_name) in enumerate(LINES):
        line = invoice.getInvoiceLine(index)
        assert line.ID.Value == line_id
        assert line.InvoicedQuantity.Value == quantity
        assert line.InvoicedQuantity.UnitCode == unit
        assert line.LineExtensionAmount.Value == line_amount
        assert line.Item.Name.Value == item_name


def test_built_invoice_is_valid_and_reads_back(tmp_path, invoice_schema):
    path = str(tmp_path / "invoice.xml")
    written = build_invoice()
    written.Write(path)

    assert not written.GetSchemaValidationErrors(path, invoice_schema)

    read = tivalo.Dispatch("TivaloCOM.Invoice")
    read.Read(path)
    assert_same_content(read)
    assert read != written


def test_xml_text_round_trip(invoice_schema):
    text = build_invoice().XML
    assert isinstance(text, str)
    assert "<cbc:ChargeIndicator>true</cbc:ChargeIndicator>" in text
    assert not tivalo.Dispatch("TivaloCOM.Invoice").GetSchemaValidationErrorsFromXML(
        text, invoice_schema)

    copy = tivalo.Dispatch("TivaloCOM.Invoice")
    copy.XML = text
    assert_same_content(copy)


def test_validation_findings_come_back_as_text(tmp_path, invoice_schema):
    path = str(tmp_path / "incomplete.xml")
    incomplete = tivalo.Dispatch("TivaloCOM.Invoice")
    incomplete.ID.Value = "no lines"
    incomplete.Write(path)

    errors = incomplete.GetSchemaValidationErrors(path, invoice_schema)
    assert isinstance(errors, str) and errors.startswith(":")
