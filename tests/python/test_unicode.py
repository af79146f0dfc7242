"""Text in a UTF-8 locale (Python's): XML is real Unicode both ways. Rule messages and schema
paths with any letters are the component's and the tool's tests."""
import pytest

import tivalo

from conftest import SOURCE_DIR

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


def test_a_lone_surrogate_fails_the_put_and_keeps_the_content(invoice):
    invoice.XML = sample_text()
    with pytest.raises(tivalo.ComError) as failure:
        invoice.XML = sample_text("\ud800")
    assert failure.value.hresult == DISP_E_EXCEPTION
    assert "lone surrogate (U+D800)" in failure.value.description
    assert invoice.getNote(0).Value.startswith("Livraison effectuée")
