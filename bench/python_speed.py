"""The Python host's fixed costs: import, property get and put, method call, list iteration.

    PYTHONPATH=build/python /usr/bin/python3 bench/python_speed.py

Times are the best of five runs, in CPU time of this process (steady on a busy machine).
"""
import subprocess
import sys
import time
import timeit

IMPORT = "import time; t = time.process_time(); import tivalo; print(time.process_time() - t)"


def best_import_ms(runs: int = 7) -> float:
    times = [float(subprocess.run([sys.executable, "-c", IMPORT], capture_output=True, text=True,
                                  check=True).stdout) for _ in range(runs)]
    return min(times) * 1e3


def per_call_ns(statement: str, names: dict, number: int = 100_000) -> float:
    runs = timeit.repeat(statement, globals=names, number=number, repeat=5,
                         timer=time.process_time)
    return min(runs) / number * 1e9


def main() -> None:
    import tivalo
    invoice = tivalo.Dispatch("TivaloCOM.Invoice")
    identifier = invoice.ID
    identifier.Value = "INV-1"
    for _ in range(3):
        invoice.InvoiceLine.append(tivalo.Dispatch("TivaloCOM.InvoiceLine"))
    names = {"invoice": invoice, "identifier": identifier}
    print(f"import tivalo                   {best_import_ms():8.1f} ms")
    for label, statement in [
            ("property get, string", "identifier.Value"),
            ("property get, object", "invoice.ID"),
            ("property get, count", "invoice.InvoiceLineCount"),
            ("property put, string", "identifier.Value = 'INV-2'"),
            ("method call, getInvoiceLine(0)", "invoice.getInvoiceLine(0)"),
            ("iteration over 3 lines", "for line in invoice.InvoiceLine: pass")]:
        print(f"{label:31} {per_call_ns(statement, names):8.0f} ns")


if __name__ == "__main__":
    main()
