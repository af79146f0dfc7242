"""The UBL 2.1 library from Python, beside the 2.0 library in the same interpreter."""
import pytest

import tivalo

from conftest import SOURCE_DIR

SCHEMA21 = SOURCE_DIR / "schemas" / "ubl-2.1" / "xsd" / "maindoc" / "UBL-Invoice-2.1.xsd"


def test_both_libraries_create_their_own_classes():
    invoice20 = tivalo.Dispatch("TivaloCOM.Invoice")
    invoice21 = tivalo.Dispatch("TivaloCOM21.Invoice.1")
    # 2.1 has members 2.0 lacks; 2.0's document publishes UBLVersionID first.
    invoice21.InvoiceTypeCode.Value = "380"
    invoice21.BuyerReference.Value = "PO-7"
    with pytest.raises(AttributeError):
        invoice20.BuyerReference
    invoice21.ID.Value = "INV-21"
    invoice20.ID.Value = "INV-20"
    assert "<cbc:BuyerReference>PO-7</cbc:BuyerReference>" in invoice21.XML
    assert "<cbc:ID>INV-20</cbc:ID>" in invoice20.XML
    # A 2.0 object cannot stand in a 2.1 document.
    with pytest.raises(tivalo.ComError):
        invoice21.ID = invoice20.ID


def test_a_2_1_document_round_trips_valid():
    invoice = tivalo.Dispatch("TivaloCOM21.Invoice")
    invoice.ID.Value = "1"
    invoice.IssueDate = __import__("datetime").date(2024, 3, 15)
    invoice.DueDate = __import__("datetime").date(2024, 4, 15)
    invoice.AccountingSupplierParty.Party.PartyName.append(tivalo.Dispatch("TivaloCOM21.PartyName"))
    invoice.AccountingSupplierParty.Party.getPartyName(0).Name.Value = "Seller"
    invoice.LegalMonetaryTotal.PayableAmount.Value = 10.5
    invoice.LegalMonetaryTotal.PayableAmount.CurrencyID = "EUR"
    line = tivalo.Dispatch("TivaloCOM21.InvoiceLine")
    line.ID.Value = "1"
    line.LineExtensionAmount.Value = 10.5
    line.LineExtensionAmount.CurrencyID = "EUR"
    invoice.InvoiceLine.append(line)
    xml = invoice.XML
    assert "<cbc:DueDate>2024-04-15</cbc:DueDate>" in xml
    assert not invoice.GetSchemaValidationErrorsFromXML(xml, str(SCHEMA21))  # None: no findings
    again = tivalo.Dispatch("TivaloCOM21.Invoice")
    again.XML = xml
    assert again.XML == xml


def test_failures_of_the_2_1_library_name_it():
    invoice = tivalo.Dispatch("TivaloCOM21.Invoice")
    with pytest.raises(tivalo.ComError) as failure:
        invoice.XML = "<Invoice"
    assert failure.value.source == "TivaloCOM21.Invoice.1"


@pytest.mark.parametrize("version, library", [("2.0", "TivaloCOM."), ("2.1", "TivaloCOM21."),
                                              (None, "TivaloCOM21.")])
def test_read_picks_the_library_from_the_version(tmp_path, version, library):
    source = tivalo.Dispatch(library + "CreditNote")
    if version:
        source.UBLVersionID.Value = version
    source.ID.Value = "CN-1"
    path = tmp_path / "note.xml"
    source.Write(str(path))
    document = tivalo.read(path)
    assert document.XML == source.XML
    # Only the 2.1 library's credit note has a CreditNoteTypeCode.
    assert hasattr(document, "CreditNoteTypeCode") == (library == "TivaloCOM21.")


def test_read_refuses_what_is_not_a_ubl_document(tmp_path):
    path = tmp_path / "other.xml"
    path.write_text('<Invoice xmlns="urn:example"/>')
    with pytest.raises(ValueError):
        tivalo.read(path)
