"""The host holds exactly the references its wrappers stand for: once they are gone, the
module can unload. Run in a fresh interpreter so no other test's objects are alive."""
import subprocess
import sys
import textwrap

SCRIPT = textwrap.dedent("""
    import ctypes, datetime, gc, tivalo

    def component():
        return [line.split()[-1] for line in open("/proc/self/maps") if "libTivaloCOM" in line]

    # The component is loaded by the first object, not by the import.
    assert not component()

    def exercise():
        invoice = tivalo.Dispatch("TivaloCOM.Invoice")
        line = tivalo.Dispatch("TivaloCOM.InvoiceLine")
        invoice.addInvoiceLine(line)
        invoice.addInvoiceLine(invoice.getInvoiceLine(0))
        invoice.ID = tivalo.Dispatch("TivaloCOM.Identifier")
        invoice.ID.Value = "A1"
        invoice.IssueDate = datetime.date(2024, 1, 2)
        assert invoice.ID == invoice.ID and len(dir(invoice)) > 100
        blob = tivalo.Dispatch("TivaloCOM.BinaryObject")
        blob.Value = b"abc"
        assert blob.Value == b"abc"
        invoice.XML = invoice.XML
        for failing in (lambda: invoice.getInvoiceLine(9), lambda: invoice.Read("/no/such/file")):
            try:
                failing()
            except (IndexError, tivalo.ComError):
                pass
        return line

    kept = exercise()
    can_unload = ctypes.CDLL(component()[0]).DllCanUnloadNow  # 0: no object alive, 1: some alive
    gc.collect()
    print(can_unload())
    del kept
    gc.collect()
    print(can_unload())
""")


def test_no_reference_outlives_its_wrapper():
    result = subprocess.run([sys.executable, "-c", SCRIPT], capture_output=True, text=True)
    assert result.returncode == 0, result.stderr
    assert result.stdout.split() == ["1", "0"]
