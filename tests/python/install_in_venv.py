"""Installs the package into a fresh virtual environment the way a user does, offline, and runs a
round trip with it from outside the source tree; then builds a wheel and looks inside.

    install_in_venv.py <source dir> <build dir> <work dir>

The build dir is reused (TIVALO_BUILD_DIR), so nothing is compiled again.
"""
import os
import pathlib
import shutil
import subprocess
import sys
import venv
import zipfile

source, build, work = (pathlib.Path(arg).resolve() for arg in sys.argv[1:4])
shutil.rmtree(work, ignore_errors=True)
work.mkdir(parents=True)

# pip, setuptools and wheel come from the system (Debian: python3-pip, -setuptools, -wheel).
venv.EnvBuilder(system_site_packages=True, with_pip=False, symlinks=True).create(work / "env")
python = work / "env" / "bin" / "python"
environment = dict(os.environ, TIVALO_BUILD_DIR=str(build), PIP_NO_INDEX="1",
                   PIP_DISABLE_PIP_VERSION_CHECK="1", PYTHONDONTWRITEBYTECODE="1")
environment.pop("PYTHONPATH", None)
pip = [str(python), "-m", "pip", "--no-cache-dir"]
subprocess.run(pip + ["install", "--no-build-isolation", "--no-deps", str(source)],
               env=environment, check=True, cwd=work)

ROUND_TRIP = r'''
import inspect, pathlib, sys, tivalo
source, work = map(pathlib.Path, sys.argv[1:3])
assert pathlib.Path(tivalo.__file__).is_relative_to(sys.prefix), tivalo.__file__
invoice = tivalo.Dispatch("TivaloCOM.Invoice")
invoice.Read(source / "samples" / "invoice.xml")
lines = len(invoice.InvoiceLine)
invoice.ID.Value = "VENV-1"
invoice.InvoiceLine.append(tivalo.Dispatch("TivaloCOM.InvoiceLine"))
invoice.Write(work / "out.xml")
again = tivalo.Dispatch("TivaloCOM.Invoice")
again.Read(work / "out.xml")
assert again.ID.Value == "VENV-1" and len(again.InvoiceLine) == lines + 1
assert list(inspect.signature(again.Read).parameters) == ["file"]
# Validation with the schemas and the tool the package carries.
assert pathlib.Path(tivalo.schema_path("Invoice")).is_relative_to(sys.prefix)
sample = source / "samples" / "invoice.xml"
assert tivalo.validate(sample) == []
(work / "bad.xml").write_bytes(sample.read_bytes().replace(b"<cbc:ID>", b"<cbc:Note>x</cbc:Note><cbc:ID>", 1))
assert {f.source for f in tivalo.validate(work / "bad.xml")} == {"schema"}
print("round trip", tivalo.__version__, again.ID.Value, [line.ID.Value for line in again.InvoiceLine])
'''
subprocess.run([str(python), "-c", ROUND_TRIP, str(source), str(work)],
               env=environment, check=True, cwd=work)

subprocess.run(pip + ["wheel", "--no-build-isolation", "--no-deps", "-w", str(work / "dist"),
                      str(source)], env=environment, check=True, cwd=work)
(wheel,) = (work / "dist").glob("tivalo-*.whl")
names = {pathlib.PurePosixPath(name).name for name in zipfile.ZipFile(wheel).namelist()}
for expected in ["__init__.py", "__init__.pyi", "py.typed", "libTivaloCOM.so.1", "tivalo",
                 "tivalo-rules.jar", "UBL-Invoice-2.0.xsd", "UBL-CommonBasicComponents-2.0.xsd"]:
    assert expected in names, (expected, names)
assert any(name.startswith("_tivalo.") for name in names), names
shutil.rmtree(work)
