"""tivalo.validate: every finding of the tool, as objects; the package's own schemas; the XSLT 2.0
rule set of the UBL release as Saxon-HE's command line sees it; a batch on a Dask cluster."""
import json
import os
import pathlib
import subprocess
import sys
import xml.etree.ElementTree as ElementTree

import pytest

import tivalo
from conftest import SOURCE_DIR

TOOL = pathlib.Path(tivalo.__file__).parent / "bin" / "tivalo"
DTQ = SOURCE_DIR / "tests" / "rules-xslt2" / "UBL-DefaultDTQ-2.4.xsl"
SAMPLE = (SOURCE_DIR / "samples" / "invoice.xml").read_text(encoding="utf-8")
SVRL = "{http://purl.oclc.org/dsdl/svrl}"


@pytest.fixture(scope="module")
def batch(tmp_path_factory):
    """A folder of documents: clean ones, bad codes, one the schema refuses, one not XML."""
    folder = tmp_path_factory.mktemp("batch")
    (folder / "sub").mkdir()
    (folder / "a-clean.xml").write_text(SAMPLE, encoding="utf-8")
    (folder / "sub" / "b-bad-currency.xml").write_text(
        SAMPLE.replace(">EUR</cbc:DocumentCurrencyCode>", ">QQQ</cbc:DocumentCurrencyCode>"), encoding="utf-8")
    (folder / "c-bad-codes.xml").write_text(
        SAMPLE.replace(">EUR</cbc:DocumentCurrencyCode>",
                       ">ZZZ</cbc:DocumentCurrencyCode>\n  <cbc:TaxCurrencyCode>YYY</cbc:TaxCurrencyCode>"),
        encoding="utf-8")
    (folder / "d-invalid.xml").write_text(SAMPLE.replace("<cbc:ID>", "<cbc:Colour>red</cbc:Colour><cbc:ID>", 1),
                                          encoding="utf-8")
    (folder / "e-words.xml").write_text("just words\n", encoding="utf-8")
    return folder


def tool_json(*arguments):
    run = subprocess.run([str(TOOL), "validate", "--format", "json", *map(str, arguments)],
                         capture_output=True, timeout=240)
    assert run.returncode in (0, 1), run.stderr
    return json.loads(run.stdout)


def as_findings(reports):
    return [tivalo.Finding(report["file"], found["source"], found["severity"], found["message"],
                           found.get("line"), found.get("column"), found.get("location"), found.get("rule"))
            for report in reports for found in report["findings"]]


def test_findings_are_the_tools_json_field_for_field(batch):
    expected = as_findings(tool_json(batch, "--rules", DTQ))
    found = tivalo.validate(batch, rules=DTQ)
    assert found == expected
    sources = {(pathlib.Path(f.file).name, f.source) for f in found}
    assert sources == {("b-bad-currency.xml", "rules"), ("c-bad-codes.xml", "rules"),
                       ("d-invalid.xml", "schema"), ("e-words.xml", "document")}, found
    assert tivalo.validate([batch / "a-clean.xml"]) == []
    # Rules alone: the invalid document's codes are checked too, and nothing from the schema.
    alone = tivalo.validate(batch, rules=DTQ, no_schema=True)
    assert {f.source for f in alone} == {"rules", "document"}
    assert str(alone[0]).startswith(str(batch / "c-bad-codes.xml") + ":12: error: Value supplied 'ZZZ'")


def test_the_package_finds_its_own_schemas(batch):
    schema = pathlib.Path(tivalo.schema_path("Invoice"))
    assert schema.name == "UBL-Invoice-2.0.xsd" and schema.is_file()
    assert pathlib.Path(tivalo.schema_path("Order")).parent == schema.parent
    for wrong in [("Nothing",), ("Invoice", "1.0")]:
        with pytest.raises(ValueError):
            tivalo.schema_path(*wrong)
    # The bundled schema named explicitly or found by the tool: the same findings.
    assert tivalo.validate(batch / "d-invalid.xml", schema=schema) == tivalo.validate(batch / "d-invalid.xml")
    with pytest.raises(tivalo.ValidationError, match="missing.xml"):
        tivalo.validate([batch / "a-clean.xml", batch / "missing.xml"])


def test_each_document_is_checked_as_its_version(tmp_path):
    # DueDate is UBL 2.1's: the sample says 2.0, so it is checked against 2.0 unless told otherwise.
    newer = tmp_path / "due.xml"
    newer.write_text(SAMPLE.replace("</cbc:IssueDate>", "</cbc:IssueDate><cbc:DueDate>2024-04-15</cbc:DueDate>"),
                     encoding="utf-8")
    assert [f.source for f in tivalo.validate(newer)] == ["schema"]
    assert tivalo.validate(newer, ubl="2.1") == []
    unversioned = tmp_path / "unversioned.xml"
    unversioned.write_text(newer.read_text(encoding="utf-8").replace("<cbc:UBLVersionID>2.0</cbc:UBLVersionID>", ""),
                           encoding="utf-8")
    assert tivalo.validate(unversioned) == []
    assert tivalo.validate(unversioned, schema=tivalo.schema_path("Invoice", "2.1")) == []
    assert pathlib.Path(tivalo.schema_path("Invoice", "2.1")).name == "UBL-Invoice-2.1.xsd"


def saxon_command_line(document):
    """The failed assertions Saxon-HE's own command line reports, as (location, text)."""
    run = subprocess.run(["java", "-cp", "/usr/share/java/Saxon-HE.jar", "net.sf.saxon.Transform",
                          f"-s:{document}", f"-xsl:{DTQ}"], capture_output=True, timeout=240, check=True)
    report = ElementTree.fromstring(run.stdout)
    return [(a.get("location"), " ".join("".join(a.find(SVRL + "text").itertext()).split()))
            for a in report.iter(SVRL + "failed-assert")]


def test_the_ubl_rule_set_gives_what_saxon_gives(batch):
    documents = [batch / "a-clean.xml", batch / "sub" / "b-bad-currency.xml", batch / "c-bad-codes.xml"]
    found = tivalo.validate(documents, rules=DTQ)
    for document in documents:
        ours = [(f.location, f.message) for f in found if f.file == str(document)]
        assert ours == saxon_command_line(document), document
    bad = [f for f in found if f.file == str(batch / "c-bad-codes.xml")]
    assert len(bad) == 2 and all(f.severity == "error" for f in bad)
    # Each finding on the line of the node its location names.
    lines = (batch / "c-bad-codes.xml").read_text(encoding="utf-8").splitlines()
    assert ">ZZZ<" in lines[bad[0].line - 1] and ">YYY<" in lines[bad[1].line - 1]


def test_the_dask_example_gives_the_tools_findings(batch):
    """examples/validate_on_dask.py on a local cluster of two worker processes prints what the
    tool prints for the same batch, line for line."""
    tool = subprocess.run([str(TOOL), "validate", str(batch), "--rules", str(DTQ)], capture_output=True,
                          text=True, timeout=240)
    expected = [line for line in tool.stdout.splitlines() if not line.endswith(": ok")]
    example = subprocess.run([sys.executable, str(SOURCE_DIR / "examples" / "validate_on_dask.py"),
                              str(batch), "--rules", str(DTQ)], capture_output=True, text=True, timeout=280)
    assert (example.returncode, example.stdout.splitlines()) == (tool.returncode, expected), example.stderr
    assert len(expected) >= 5
