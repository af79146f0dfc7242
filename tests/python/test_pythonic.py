"""What makes the host feel like Python: help, signatures, stubs, sequences and paths."""
import ast
import inspect
import pathlib
import pydoc

import pytest

import tivalo


class TestHelp:
    def test_method_signature_has_the_parameter_names_and_types(self, invoice):
        signature = inspect.signature(invoice.GetSchemaValidationErrors)
        assert list(signature.parameters) == ["file", "schemaFile"]
        assert "PathLike" in str(signature.parameters["file"].annotation)
        line_signature = inspect.signature(invoice.getInvoiceLine)
        assert str(line_signature.parameters["index"]) == "index: int"
        assert line_signature.return_annotation.__name__ == "IInvoiceLine"

    def test_help_shows_the_parameters_and_the_definition(self, invoice):
        text = pydoc.render_doc(invoice.Read, renderer=pydoc.plaintext)
        assert "Read(file: str | os.PathLike[str]) -> None" in text
        line_help = pydoc.render_doc(invoice.getinvoiceline, renderer=pydoc.plaintext)
        assert "getInvoiceLine(index: int)" in line_help
        assert "Invoice Line" in line_help  # the element's definition from the schema

    def test_help_on_an_object_lists_its_members_with_definitions(self, invoice):
        assert type(invoice) is tivalo.IInvoice and isinstance(invoice, tivalo.Dispatch)
        assert isinstance(tivalo.Dispatch("TivaloCOM.Item"), tivalo.IItem)
        text = pydoc.render_doc(invoice, renderer=pydoc.plaintext)
        assert "class IInvoice(Dispatch)" in text
        assert "IssueDate" in text and "GetValueValidationErrorsFromXML" in text
        assert "The date assigned by the Creditor on which the Invoice was issued." in text

    def test_stubs_describe_every_class(self):
        stubs = pathlib.Path(tivalo.__file__).with_name("__init__.pyi")
        classes = {node.name for node in ast.parse(stubs.read_text()).body
                   if isinstance(node, ast.ClassDef)}
        interfaces = {name for name in classes if name.startswith("I") and name[1].isupper()}
        assert len(interfaces) == 154
        assert {"IInvoice", "IItem", "IAmount", "IUBLExtensions", "IWaybill"} <= interfaces
        assert pathlib.Path(tivalo.__file__).with_name("py.typed").exists()


class TestListsAsSequences:
    def test_len_iteration_indexing_append(self, invoice):
        lines = invoice.InvoiceLine
        assert len(lines) == 0 and list(lines) == []
        first, second = (tivalo.Dispatch("TivaloCOM.InvoiceLine") for _ in range(2))
        lines.append(first)
        invoice.invoiceline.append(second)
        assert len(lines) == invoice.InvoiceLineCount == 2
        assert list(lines) == [first, second]
        assert lines[0] == first and lines[-1] == second
        assert second in lines
        with pytest.raises(IndexError):
            lines[2]
        with pytest.raises(IndexError):
            lines[-3]

    def test_del_and_clear_use_the_remove_and_clear_members(self, invoice):
        lines = invoice.InvoiceLine
        items = [tivalo.Dispatch("TivaloCOM.InvoiceLine") for _ in range(3)]
        for item in items:
            lines.append(item)
        del lines[1]
        assert list(lines) == [items[0], items[2]]
        lines.clear()
        assert invoice.InvoiceLineCount == 0


def test_paths_are_accepted_wherever_a_file_goes(invoice, invoice_schema, tmp_path):
    target = tmp_path / "invoice.xml"
    invoice.ID.Value = "P-1"
    invoice.Write(target)
    again = tivalo.Dispatch("TivaloCOM.Invoice")
    again.Read(target)
    assert again.ID.Value == "P-1"
    findings = again.GetSchemaValidationErrors(target, pathlib.Path(invoice_schema))
    assert f'File "{target}" not found.' not in findings


def test_a_list_keeps_its_object_alive():
    invoice = tivalo.Dispatch("TivaloCOM.Invoice")
    lines = invoice.InvoiceLine
    read = invoice.getInvoiceLine
    del invoice
    lines.append(tivalo.Dispatch("TivaloCOM.InvoiceLine"))
    assert len(lines) == 1 and read(0) == lines[0]
