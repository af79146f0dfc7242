"""Creation by name, members by name without regard to case, and what the type info lists."""
import pytest

import tivalo

INVOICE_CLSID = "{e56b9443-b0eb-11df-8a48-005056c00008}"


@pytest.mark.parametrize("name", [
    "TivaloCOM.Invoice", "TivaloCOM.Invoice.1", "tivalocom.INVOICE", INVOICE_CLSID,
    INVOICE_CLSID.upper()])
def test_created_by_progid_versioned_progid_or_clsid(name):
    assert repr(tivalo.Dispatch(name)) == "<tivalo.Dispatch IInvoice>"
    assert tivalo.Dispatch(name) != tivalo.Dispatch(name)  # each creation is a new object


def test_names_resolve_per_interface_in_every_spelling(invoice):
    line = tivalo.Dispatch("TivaloCOM.InvoiceLine")
    invoice.id.value, line.ID.Value = "INV", "LINE"
    for _ in range(2):  # the second round answers from the cache
        assert (invoice.ID.Value, invoice.Id.VALUE, line.Id.VALUE) == ("INV", "INV", "LINE")
        assert invoice.invoicelinecount == 0
        assert line.Item == line.item == line.ITEM
        assert not hasattr(invoice, "NoSuchMember")
        assert not hasattr(line, "InvoiceLineCount")  # a name of another interface
    invoice.ADDINVOICELINE(line)
    assert invoice.GetInvoiceLine(0) == line


def test_methods_are_bound_callables(invoice):
    get_line = invoice.getInvoiceLine
    assert callable(get_line) and get_line.__name__ == "getInvoiceLine"
    line = tivalo.Dispatch("TivaloCOM.InvoiceLine")
    invoice.addInvoiceLine(line)
    assert get_line(0) == line
    invoice.clearInvoiceLines()
    assert invoice.InvoiceLineCount == 0


def test_keyword_arguments_follow_the_parameter_names(invoice, invoice_schema, tmp_path):
    missing = str(tmp_path / "missing.xml")
    expected = f'File "{missing}" not found.'
    assert invoice.GetSchemaValidationErrors(file=missing, schemaFile=invoice_schema) == expected
    assert invoice.GetSchemaValidationErrors(missing, schemafile=invoice_schema) == expected
    with pytest.raises(TypeError):
        invoice.GetSchemaValidationErrors(missing, schema=invoice_schema)
    with pytest.raises(TypeError):
        invoice.GetSchemaValidationErrors(missing, file=missing)


def test_dir_lists_the_members_from_the_type_information(invoice):
    names = dir(invoice)
    for name in ["UBLVersionID", "IsUBLVersionIDSet", "ID", "IssueDate", "getInvoiceLine",
                 "addInvoiceLine", "removeInvoiceLine", "clearInvoiceLines", "InvoiceLineCount",
                 "Write", "Read", "XML", "GetSchemaValidationErrors",
                 "GetValueValidationErrorsFromXML"]:
        assert name in names
    assert len(names) == len(set(names))
    assert dir(tivalo.Dispatch("TivaloCOM.Amount")) == ["CurrencyID", "Value"]
    assert dir(tivalo.Dispatch("TivaloCOM.Quantity")) == ["IsUnitCodeSet", "UnitCode", "Value"]


@pytest.mark.parametrize("name", ["NoSuchMember", "InvoiceLineCount", "IsIDSet", "InvoiceLine"])
def test_unknown_read_only_and_list_names_cannot_be_set(invoice, name):
    assert not hasattr(invoice, "__len__") and not hasattr(invoice, "_repr_html_")
    with pytest.raises(AttributeError):
        setattr(invoice, name, 1)
