"""Text in a UTF-8 locale (Python's): XML, validation results and rule messages are real
Unicode; paths with any letters reach the parsers."""
import shutil

import pytest

import tivalo

from conftest import SCHEMA_DIR, SOURCE_DIR

SAMPLE = SOURCE_DIR / "samples" / "invoice.xml"
TEXT = "é € 中 😀"
DISP_E_EXCEPTION = 0x80020009


def sample_text(note=None):
    text = SAMPLE.read_text(encoding="utf-8")
    if note is not None:
        start = text.index(">", text.index("<cbc:Note")) + 1
        text = text[:start] + note + text[text.index("</cbc:Note>", start):]
    return text


def test_xml_put_and_get_carry_the_text_unchanged(invoice):
    invoice.XML = sample_text(TEXT)
    assert invoice.getNote(0).Value == TEXT
    xml = invoice.XML
    assert f">{TEXT}</cbc:Note>" in xml
    assert "Atelier Lumière SARL" in xml
    invoice.XML = xml
    assert invoice.XML == xml


def test_the_sample_read_as_utf8_is_valid(invoice, invoice_schema):
    assert invoice.GetSchemaValidationErrorsFromXML(sample_text(), invoice_schema) is None
    assert invoice.GetSchemaValidationErrorsFromXML(sample_text(TEXT), invoice_schema) is None


def test_rule_messages_come_back_as_written(invoice, tmp_path):
    rules = tmp_path / "rules.xsl"
    rules.write_text(
        '<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">'
        '<xsl:template match="/"><xsl:message>é €</xsl:message></xsl:template>'
        "</xsl:stylesheet>", encoding="utf-8")
    assert invoice.GetValueValidationErrorsFromXML(sample_text(), str(rules)) == "é €"


def test_a_lone_surrogate_fails_the_put_and_keeps_the_content(invoice):
    invoice.XML = sample_text()
    with pytest.raises(tivalo.ComError) as failure:
        invoice.XML = sample_text("\ud800")
    assert failure.value.hresult == DISP_E_EXCEPTION
    assert "lone surrogate (U+D800)" in failure.value.description
    assert invoice.getNote(0).Value.startswith("Livraison effectuée")


@pytest.mark.parametrize("directory", ["é", "中文 und Ä"])
def test_schemas_under_any_directory_name(invoice, tmp_path, directory):
    schemas = tmp_path / directory
    shutil.copytree(SCHEMA_DIR, schemas)
    schema = str(schemas / "maindoc" / "UBL-Invoice-2.0.xsd")
    assert invoice.GetSchemaValidationErrors(str(SAMPLE), schema) is None
    broken = sample_text().replace("<cbc:IssueDate>", "<cbc:IssueDate>x", 1)
    ascii_schemas = tmp_path / "ascii"
    shutil.copytree(SCHEMA_DIR, ascii_schemas)
    expected = invoice.GetSchemaValidationErrorsFromXML(
        broken, str(ascii_schemas / "maindoc" / "UBL-Invoice-2.0.xsd"))
    assert expected and expected.startswith(":")
    assert invoice.GetSchemaValidationErrorsFromXML(broken, schema) == expected
