"""Failed calls: tivalo.ComError with the call's status and error information, IndexError for
an index out of range, TypeError for wrong arguments."""
import pytest

import tivalo

DISP_E_EXCEPTION = 0x80020009
DISP_E_TYPEMISMATCH = 0x80020005
CO_E_CLASSSTRING = 0x800401F3
REGDB_E_CLASSNOTREG = 0x80040154


@pytest.mark.parametrize("name, hresult", [
    ("TivaloCOM.NoSuchClass", CO_E_CLASSSTRING),
    ("Excel.Application", CO_E_CLASSSTRING),
    ("TivaloCOM.Invoice.2", CO_E_CLASSSTRING),
    ("{00000000-0000-0000-0000-000000000001}", REGDB_E_CLASSNOTREG),
    ("{not a guid}", CO_E_CLASSSTRING),
])
def test_unknown_class_names(name, hresult):
    with pytest.raises(tivalo.ComError) as failure:
        tivalo.Dispatch(name)
    assert failure.value.hresult == hresult
    assert failure.value.source is None
    assert name in str(failure.value)


@pytest.mark.parametrize("operation, description", [
    ("Read", "Tivalo: Can't open file for read."),
    ("Write", "Tivalo: Can't open file for write."),
])
def test_file_failures_carry_the_parts_and_name_the_file(invoice, tmp_path, operation, description):
    invoice.ID.Value = "kept"
    missing = tmp_path / "no" / "such" / "file.xml"
    with pytest.raises(tivalo.ComError) as failure:
        getattr(invoice, operation)(missing)
    error = failure.value
    assert (error.hresult, error.source, error.description) == (
        DISP_E_EXCEPTION, "TivaloCOM.Invoice.1", description)
    assert error.filename == str(missing) and str(missing) in str(error)
    assert operation in str(error) and "0x80020009" in str(error)
    assert invoice.ID.Value == "kept"


def test_parse_and_coercion_failures(invoice):
    with pytest.raises(tivalo.ComError) as failure:
        invoice.XML = "<Invoice"
    assert failure.value.hresult == DISP_E_EXCEPTION and failure.value.description
    with pytest.raises(tivalo.ComError) as failure:
        invoice.IssueDate = "not a date"
    assert failure.value.hresult == DISP_E_TYPEMISMATCH


@pytest.mark.parametrize("call, message", [
    (lambda inv: inv.getInvoiceLine(), "missing argument 'index'"),
    (lambda inv: inv.Read(), "missing argument 'file'"),
    (lambda inv: inv.Read("a.xml", "b.xml"), "takes 1 argument"),
    (lambda inv: inv.clearInvoiceLines(1), "takes 0 arguments"),
    (lambda inv: inv.GetSchemaValidationErrors("a.xml"), "missing argument 'schemaFile'"),
])
def test_missing_or_surplus_arguments_are_type_errors(invoice, call, message):
    with pytest.raises(TypeError, match=message):
        call(invoice)


def test_index_out_of_range_names_the_member(invoice):
    for call in (invoice.getInvoiceLine, invoice.removeInvoiceLine):
        with pytest.raises(IndexError, match=call.__name__):
            call(0)
    line = tivalo.Dispatch("TivaloCOM.InvoiceLine")
    invoice.addInvoiceLine(line)
    for index in (-1, 1):
        with pytest.raises(IndexError, match="getInvoiceLine"):
            invoice.getinvoiceline(index)
    assert invoice.getInvoiceLine(0) == line
