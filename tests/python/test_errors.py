"""Failed calls: tivalo.ComError with the call's status and error information, IndexError for
an index out of range."""
import pytest

import tivalo

DISP_E_EXCEPTION = 0x80020009
DISP_E_TYPEMISMATCH = 0x80020005
CO_E_CLASSSTRING = 0x800401F3
REGDB_E_CLASSNOTREG = 0x80040154


@pytest.mark.parametrize("name, hresult", [
    ("TivaloCOM.NoSuchClass", CO_E_CLASSSTRING),
    ("Excel.Application", CO_E_CLASSSTRING),
    ("{00000000-0000-0000-0000-000000000001}", REGDB_E_CLASSNOTREG),
    ("{not a guid}", CO_E_CLASSSTRING),
])
def test_unknown_class_names(name, hresult):
    with pytest.raises(tivalo.ComError) as failure:
        tivalo.Dispatch(name)
    assert failure.value.hresult == hresult
    assert failure.value.source is None
    assert name in str(failure.value)


def test_document_failure_carries_source_and_description(invoice, tmp_path):
    invoice.ID.Value = "kept"
    with pytest.raises(tivalo.ComError) as failure:
        invoice.Read(str(tmp_path / "missing.xml"))
    error = failure.value
    assert error.hresult == DISP_E_EXCEPTION
    assert error.source == "TivaloCOM.Invoice.1"
    assert error.description == "Tivalo: Can't open file for read."
    assert "Read" in str(error) and "0x80020009" in str(error)
    assert invoice.ID.Value == "kept"


def test_parse_failure_carries_the_parser_text(invoice):
    with pytest.raises(tivalo.ComError) as failure:
        invoice.XML = "<Invoice"
    assert failure.value.hresult == DISP_E_EXCEPTION
    assert failure.value.description


def test_write_to_a_missing_directory(invoice, tmp_path):
    with pytest.raises(tivalo.ComError) as failure:
        invoice.Write(str(tmp_path / "no" / "such" / "dir.xml"))
    assert failure.value.description == "Tivalo: Can't open file for write."


def test_coercion_failure_keeps_the_code(invoice):
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


def test_file_errors_name_the_file_and_keep_the_parts(invoice, tmp_path):
    missing = tmp_path / "missing.xml"
    with pytest.raises(tivalo.ComError) as failure:
        invoice.Read(missing)
    error = failure.value
    assert str(missing) in str(error)
    assert error.filename == str(missing)
    assert error.hresult == DISP_E_EXCEPTION
    assert error.source == "TivaloCOM.Invoice.1"
    assert error.description.startswith("Tivalo: ")


class TestIndexOutOfRange:
    def test_get_and_remove_on_an_empty_list(self, invoice):
        with pytest.raises(IndexError):
            invoice.getInvoiceLine(0)
        with pytest.raises(IndexError):
            invoice.removeInvoiceLine(0)

    def test_negative_index_and_index_at_count(self, invoice):
        line = tivalo.Dispatch("TivaloCOM.InvoiceLine")
        invoice.addInvoiceLine(line)
        with pytest.raises(IndexError):
            invoice.getInvoiceLine(-1)
        with pytest.raises(IndexError):
            invoice.getInvoiceLine(1)
        assert invoice.getInvoiceLine(0) == line
        invoice.removeInvoiceLine(0)
        assert invoice.InvoiceLineCount == 0

    def test_index_error_names_the_member(self, invoice):
        with pytest.raises(IndexError, match="getInvoiceLine"):
            invoice.getinvoiceline(3)
