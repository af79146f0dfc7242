"""Failed calls: tivalo.ComError with the call's status and error information, IndexError for
an index out of range, TypeError for wrong arguments."""
import os
import pathlib
import subprocess
import sys
import tempfile

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


def write_in_a_fresh_process(target, before_write="", unprivileged=False):
    """Writes an invoice to `target` from a new interpreter: its exit status and what it printed.
    Unprivileged runs as nobody when the tests run as root, whom file modes do not stop."""
    code = ("import signal, sys, tivalo\n"
            "inv = tivalo.Dispatch('TivaloCOM.Invoice'); inv.ID.Value = 'new'\n"
            + before_write +
            "try: inv.Write(sys.argv[1])\n"
            "except tivalo.ComError as e: print(e.description); sys.exit(3)\n")
    become = {}
    if unprivileged and os.geteuid() == 0:
        become = dict(user=65534, group=65534, extra_groups=[])
    return subprocess.run([sys.executable, "-c", code, str(target)], capture_output=True,
                          text=True, timeout=120, **become)


def test_write_refuses_a_read_only_file_with_the_systems_reason():
    with tempfile.TemporaryDirectory() as directory:
        os.chmod(directory, 0o777)  # a directory the writer may create files in
        target = pathlib.Path(directory) / "read-only.xml"
        target.write_text("old")
        target.chmod(0o444)
        run = write_in_a_fresh_process(target, unprivileged=True)
        assert (run.returncode, run.stdout) == (3, "Tivalo: Can't write file: Permission denied.\n"), run.stderr
        assert target.read_text() == "old" and target.stat().st_mode & 0o777 == 0o444
        assert os.listdir(directory) == ["read-only.xml"]


def test_the_temporary_copy_is_private_until_complete(tmp_path):
    # A file size limit kills the writer in the middle of writing and leaves its temporary file.
    target = tmp_path / "private.xml"
    target.write_text("old")
    target.chmod(0o600)
    stop_mid_write = ("import resource; resource.setrlimit(resource.RLIMIT_FSIZE, (256, 256))\n"
                      "signal.signal(signal.SIGXFSZ, signal.SIG_DFL)\n")
    assert write_in_a_fresh_process(target, stop_mid_write).returncode != 0
    left = [path for path in tmp_path.iterdir() if path != target]
    assert len(left) == 1 and left[0].stat().st_mode & 0o777 == 0o600, left
    assert target.read_text() == "old"

    # A symbolic link is written through: the file it names is replaced, the link stays.
    link = tmp_path / "link.xml"
    link.symlink_to(target.name)
    assert write_in_a_fresh_process(link).returncode == 0
    assert link.is_symlink() and "new" in target.read_text()
    assert target.stat().st_mode & 0o777 == 0o600


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
