"""Creation by name, members by name without regard to case, and what the type info lists."""
import pytest

import tivalo

INVOICE_CLSID = "{e56b9443-b0eb-11df-8a48-005056c00008}"


@pytest.mark.parametrize("name", [
    "TivaloCOM.Invoice", "TivaloCOM.Invoice.1", "tivalocom.INVOICE", INVOICE_CLSID,
    INVOICE_CLSID.upper()])
def test_created_by_progid_versioned_progid_or_clsid(name):
    assert repr(tivalo.Dispatch(name)) == "<tivalo.Dispatch IInvoice>"


def test_each_creation_is_a_new_object():
    assert tivalo.Dispatch("TivaloCOM.Invoice") != tivalo.Dispatch("TivaloCOM.Invoice")


def test_names_are_matched_without_regard_to_case(invoice):
    invoice.id.value = "A1"
    assert invoice.ID.Value == "A1"
    assert invoice.Id.VALUE == "A1"
    assert invoice.invoicelinecount == 0

    line = tivalo.Dispatch("TivaloCOM.InvoiceLine")
    invoice.ADDINVOICELINE(line)
    assert invoice.GetInvoiceLine(0) == line
    assert line.Item == line.item == line.ITEM


def test_methods_are_bound_callables(invoice):
    get_line = invoice.getInvoiceLine
    assert callable(get_line)
    assert get_line.__name__ == "getInvoiceLine"
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


def test_unknown_names_are_attribute_errors(invoice):
    assert not hasattr(invoice, "NoSuchMember")
    assert not hasattr(invoice, "__len__")
    assert not hasattr(invoice, "_repr_html_")
    with pytest.raises(AttributeError):
        invoice.NoSuchMember = 1


def test_read_only_properties_cannot_be_set(invoice):
    with pytest.raises(AttributeError):
        invoice.InvoiceLineCount = 3
    with pytest.raises(AttributeError):
        invoice.IsIDSet = True
