"""Text in a UTF-8 locale (Python's): XML is real Unicode both ways. Rule messages, refused text
and schema paths with any letters are the component's and the tool's tests."""
from conftest import SOURCE_DIR

SAMPLE = SOURCE_DIR / "samples" / "invoice.xml"
TEXT = "é € 中 😀"


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
