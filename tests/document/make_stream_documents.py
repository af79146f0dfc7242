#!/usr/bin/env python3
"""Writes documents for the reader comparison: for each of the 31 document classes one document
that holds every child of every class it reaches (each class in full the first time it is met,
with its required children only after that), and variants of it that the two readers must treat
alike: children in reverse order, a filled child repeated, a required child missing, values with
whitespace or of the wrong form, xsi:type, markup beyond the limits, other encodings.

    make_stream_documents.py <source dir> <out dir> [--ubl 2.1]

For UBL 2.1 (whose library has no binding to compare with) it writes the full documents only,
each with the data types' 2.1 attributes and, in its first extension, a signature as the 2.1
schemas describe one.
"""

import pathlib
import sys

SOURCE = pathlib.Path(sys.argv[1])
OUT = pathlib.Path(sys.argv[2])
UBL = sys.argv[4] if sys.argv[3:4] == ['--ubl'] else '2.0'
sys.path.insert(0, str(SOURCE / 'tools' / 'gen'))

import gen  # noqa: E402
import versions  # noqa: E402

NAMESPACES = {
    'cbc': 'urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2',
    'cac': 'urn:oasis:names:specification:ubl:schema:xsd:CommonAggregateComponents-2',
    'ext': 'urn:oasis:names:specification:ubl:schema:xsd:CommonExtensionComponents-2',
}

# Content and attributes per unqualified data type; whitespace that one type keeps and another
# folds, and references the parser resolves.
VALUES = {
    'IdentifierType': (' ID\t1 &amp; 2 ', {'schemeID': 'S&#9;1', 'schemeName': ' n\tm ',
                                            'schemeAgencyID': '9', 'schemeAgencyName': 'A &amp; B',
                                            'schemeVersionID': '1', 'schemeDataURI': ' http://x/d ',
                                            'schemeURI': 'urn:x'}),
    'CodeType': ('C&#10;1', {'listID': 'L', 'listAgencyID': '6', 'listAgencyName': 'UN',
                             'listName': 'n', 'listVersionID': 'v', 'name': ' nm ',
                             'languageID': ' en ', 'listURI': 'urn:l', 'listSchemeURI': 'urn:s'}),
    'TextType': ('  text\twith\n lines &lt;&gt; \u00e9\u20ac\U0001F600 ', {'languageID': 'de'}),
    'NameType': ('<![CDATA[Name <&>]]> more', {'languageID': 'fr'}),
    'AmountType': (' 1234.50 ', {'currencyID': 'EUR'}),
    'QuantityType': ('3', {'unitCode': 'C62'}),
    'MeasureType': ('+0012.250', {'unitCode': 'KGM'}),
    'BinaryObjectType': (' SGVs\nbG8= ', {'format': 'f', 'mimeCode': 'text/plain',
                                          'encodingCode': 'Base64', 'characterSetCode': 'UTF-8',
                                          'uri': 'urn:u', 'filename': 'a\tb.txt'}),
    'DateType': (' 2024-03-15+01:00 ', {}),
    'TimeType': ('12:30:45.75Z', {}),
    'IndicatorType': (' 1 ', {}),
    'NumericType': ('19.60', {}),
    'PercentType': ('-0.5', {}),
    'RateType': ('7', {}),
}

# The attributes 2.1's data types gain from the core component types.
VALUES_21 = {
    'AmountType': {'currencyCodeListVersionID': '2001'},
    'MeasureType': {'unitCodeListVersionID': 'Rec20'},
    'QuantityType': {'unitCodeListID': 'UNECERec20', 'unitCodeListAgencyID': '6',
                     'unitCodeListAgencyName': 'UN/ECE'},
    'TextType': {'languageLocaleID': 'de-CH'},
    'NameType': {'languageLocaleID': ' fr-CA '},
}

# A signature in a 2.1 extension: the extension module imports these schemas, so the content is
# validated against them (xsd:ID attributes, the xmldsig choices).
SIGNATURE_21 = (
    '<ext:ExtensionContent>\n'
    '  <sig:UBLDocumentSignatures'
    ' xmlns:sig="urn:oasis:names:specification:ubl:schema:xsd:CommonSignatureComponents-2"'
    ' xmlns:sac="urn:oasis:names:specification:ubl:schema:xsd:SignatureAggregateComponents-2"'
    ' xmlns:sbc="urn:oasis:names:specification:ubl:schema:xsd:SignatureBasicComponents-2">\n'
    '    <sac:SignatureInformation>\n'
    '      <cbc:ID>urn:oasis:names:specification:ubl:signature:1</cbc:ID>\n'
    '      <sbc:ReferencedSignatureID>urn:oasis:names:specification:ubl:signature:Invoice'
    '</sbc:ReferencedSignatureID>\n'
    '      <ds:Signature xmlns:ds="http://www.w3.org/2000/09/xmldsig#" Id="signature-{n}">\n'
    '        <ds:SignedInfo>\n'
    '          <ds:CanonicalizationMethod Algorithm="http://www.w3.org/TR/2001/REC-xml-c14n-20010315"/>\n'
    '          <ds:SignatureMethod Algorithm="http://www.w3.org/2001/04/xmldsig-more#rsa-sha256"/>\n'
    '          <ds:Reference URI="">\n'
    '            <ds:Transforms><ds:Transform'
    ' Algorithm="http://www.w3.org/2000/09/xmldsig#enveloped-signature"/></ds:Transforms>\n'
    '            <ds:DigestMethod Algorithm="http://www.w3.org/2001/04/xmlenc#sha256"/>\n'
    '            <ds:DigestValue>q83vEjRWeJA=</ds:DigestValue>\n'
    '          </ds:Reference>\n'
    '        </ds:SignedInfo>\n'
    '        <ds:SignatureValue>c2ln\nbmF0dXJl</ds:SignatureValue>\n'
    '        <ds:KeyInfo><ds:X509Data><ds:X509Certificate>Y2VydA==</ds:X509Certificate>'
    '</ds:X509Data></ds:KeyInfo>\n'
    '      </ds:Signature>\n'
    '    </sac:SignatureInformation>\n'
    '  </sig:UBLDocumentSignatures>\n'
    '</ext:ExtensionContent>')

EXTENSION_CONTENT = (
    '<ext:ExtensionContent>\n'
    '  <!-- kept as it came -->\n'
    '  <sig:Signature xmlns:sig="urn:example:sig" Id="s1" xmlns="urn:example:default" b="2">'
    '<sig:Value a="&amp;&lt;">x &amp; y<![CDATA[ <raw> ]]></sig:Value><?pi some data?>'
    '<Plain xmlns="">text</Plain></sig:Signature>\n'
    '</ext:ExtensionContent>')


class Writer:
    def __init__(self, schemas):
        self.schemas = schemas
        self.full = set()
        self.extensions = 0

    def children(self, type_name, module):
        return self.schemas.complex_type(module, type_name).children

    def element(self, child, indent, reverse):
        tag = f'{child.module}:{child.name}'
        data_type = self.schemas.data_type_of(child)
        pad = '  ' * indent
        if child.name == 'ExtensionContent':
            self.extensions += 1
            if UBL != '2.0' and self.extensions % 2:
                return [pad + SIGNATURE_21.replace('{n}', str(self.extensions))]
            return [pad + EXTENSION_CONTENT]
        if data_type is not None:
            text, attributes = VALUES[data_type]
            if UBL != '2.0':
                attributes = {**attributes, **VALUES_21.get(data_type, {})}
            attrs = ''.join(f' {k}="{v}"' for k, v in attributes.items())
            return [f'{pad}<{tag}{attrs}>{text}</{tag}>']
        module = 'ext' if child.module == 'ext' else 'cac'
        return ([f'{pad}<{tag}>'] + self.content(child.type, module, indent + 1, reverse) +
                [f'{pad}</{tag}>'])

    def content(self, type_name, module, indent, reverse):
        first = type_name not in self.full
        self.full.add(type_name)
        lines = []
        children = self.children(type_name, module)
        for child in (reversed(children) if reverse else children):
            if not first and child.min_occurs == 0:
                continue
            count = 2 if child.repeated and first else 1
            for _ in range(count):
                lines += self.element(child, indent, reverse)
        return lines


def document(schemas, name, uri, reverse=False):
    writer = Writer(schemas)
    declarations = ''.join(f' xmlns:{p}="{u}"' for p, u in NAMESPACES.items())
    body = content_of_document(writer, schemas, name, reverse)
    return '\n'.join([f'<?xml version="1.0" encoding="UTF-8"?>',
                      f'<{name} xmlns="{uri}"{declarations}>'] + body + [f'</{name}>', ''])


def content_of_document(writer, schemas, name, reverse):
    lines = []
    children = schemas.document_type(name).children
    for child in (reversed(children) if reverse else children):
        count = 2 if child.repeated else 1
        for _ in range(count):
            lines += writer.element(child, 1, reverse)
    return lines


def replace_once(text, old, new):
    assert old in text, old
    return text.replace(old, new, 1)


def variants(name, full):
    """Faults and forms both readers must treat alike, each on its own copy."""
    out = {}
    # A filled child repeated: the second is read (a bad value in it fails) and ends the walk.
    first_id = full.index('<cbc:ID')
    end = full.index('</cbc:ID>', first_id) + len('</cbc:ID>')
    out['repeated-child'] = full[:end] + '\n  <cbc:ID>again</cbc:ID>' + full[end:]
    out['repeated-child-bad-value'] = replace_once(
        full, '<cbc:IssueDate>', '<cbc:IssueDate>2024-01-01</cbc:IssueDate><cbc:IssueDate>')
    out['unknown-child-ends-walk'] = replace_once(full, '<cbc:ID', '<cbc:Unknown/><cbc:ID')
    out['missing-required-id'] = full[:first_id] + full[end:]
    own_id = full.index('\n  <cbc:ID') + 1
    out['missing-document-id'] = full[:own_id] + full[full.index('\n', own_id) + 1:]
    out['bad-date'] = full.replace(VALUES['DateType'][0], '2024-02-30', 1)
    out['bad-indicator'] = full.replace(VALUES['IndicatorType'][0], 'yes', 1)
    out['bad-amount'] = full.replace(VALUES['AmountType'][0], '1,5', 1)
    out['bad-base64'] = full.replace(VALUES['BinaryObjectType'][0], 'S=GV', 1)
    out['missing-currency'] = full.replace(' currencyID="EUR"', '', 1)
    out['element-in-text'] = full.replace(VALUES['QuantityType'][0], '3<x/>', 1)
    out['text-between-children'] = full.replace('<cbc:ID', 'stray text <!-- c --><?p i?><cbc:ID', 1)
    out['qualified-attribute'] = full.replace(' currencyID="EUR"',
                                              ' cbc:currencyID="USD" currencyID="EUR"', 1)
    out['xsi-type'] = full.replace('<cbc:ID', '<cbc:ID xmlns:xsi="http://www.w3.org/2001/XMLSchema-'
                                   'instance" xsi:type="cbc:IDType"', 1)
    out['xsi-type-foreign'] = full.replace('<cbc:ID', '<cbc:ID xmlns:xsi="http://www.w3.org/2001/'
                                           'XMLSchema-instance" xsi:type="cbc:NoteType"', 1)
    out['wrong-root-namespace'] = full.replace(f'{name}-2"', 'Other-2"', 1)
    out['other-prefixes'] = full.replace('cbc:', 'b:').replace('xmlns:b=', 'xmlns:cbc=').replace(
        'xmlns:cbc=', 'xmlns:b=', 1)
    out['not-well-formed'] = full[:len(full) // 2]
    out['undeclared-prefix'] = full.replace('<cbc:ID', '<zz:ID', 1)
    out['doctype'] = full.replace('<?xml version="1.0" encoding="UTF-8"?>',
                                  '<?xml version="1.0" encoding="UTF-8"?><!DOCTYPE x [<!ENTITY e "v">]>')
    out['no-declaration'] = full[full.index('?>') + 2:].lstrip()
    out['latin1'] = full.replace('encoding="UTF-8"', 'encoding="ISO-8859-1"')
    out['utf8-mark'] = '\ufeff' + full
    out['empty-elements'] = full.replace(VALUES['TextType'][0], '', 1).replace(
        '<cbc:ID', '<cac:Signatory/><cbc:ID', 1)
    out['comment-in-value'] = full.replace(VALUES['AmountType'][0], ' 12<!-- x -->34.5<?p?> ', 1)
    out['large-cdata'] = full.replace('<![CDATA[ <raw> ]]>', '<![CDATA[' + 'x&<' * 4000 + ']]>' +
                                      'text ' * 20000, 1)
    out['interrupted-list'] = full.replace('<cbc:Note', '<cbc:Note>n</cbc:Note><cbc:ID>x</cbc:ID>'
                                           '<cbc:Note', 1)
    out['xml11'] = full.replace('version="1.0"', 'version="1.1"')
    out['xml15'] = full.replace('version="1.0"', 'version="1.5"')
    out['empty-extension-content'] = replace_once(full, EXTENSION_CONTENT, '<ext:ExtensionContent/>')
    # The markup limits, met inside a value element and on one.
    out['too-deep'] = replace_once(full, '<cbc:ID', '<ext:UBLExtensions>' + '<x>' * 1000 +
                                   '</x>' * 1000 + '</ext:UBLExtensions><cbc:ID')
    out['too-many-attributes'] = replace_once(
        full, '<cbc:ID', '<cbc:ID' + ''.join(f' a{i}="{i}"' for i in range(101)))
    return out


# Encodings both parsers read: (variant, declared name, Python codec, byte order mark).
ENCODINGS = [
    ('utf16be', 'UTF-16', 'utf-16-be', b'\xfe\xff'),
    ('utf16-no-mark', 'UTF-16', 'utf-16-le', b''),
    ('latin9', 'ISO-8859-15', 'iso-8859-15', b''),
    ('windows1252', 'windows-1252', 'cp1252', b''),
    ('ascii', 'US-ASCII', 'ascii', b''),
    ('koi8r', 'KOI8-R', 'koi8-r', b''),
    ('ebcdic', 'IBM037', 'cp037', b''),
    # Forms the two parsers read differently; the reader alone decodes them as Xerces-C does.
    ('utf32', 'UTF-32', 'utf-32', b''),
    ('ucs2', 'UCS-2', 'utf-16', b''),
    ('utf16-labelled-utf8', 'UTF-8', 'utf-16', b''),
    ('utf8-labelled-utf16', 'UTF-16', 'utf-8', b''),
    ('unknown-encoding', 'bogus', 'utf-8', b''),
    # Faults of the bytes.
    ('invalid-utf8', 'UTF-8', 'latin-1', b''),
]


def main():
    version = versions.version(UBL)
    schemas = gen.load_schemas(version, SOURCE / version.schema_dir)
    OUT.mkdir(parents=True, exist_ok=True)
    for name, uri in schemas.documents:
        full = document(schemas, name, uri)
        (OUT / f'{name}.xml').write_text(full, encoding='utf-8')
        if UBL != '2.0':
            continue
        (OUT / f'{name}.reversed.xml').write_text(document(schemas, name, uri, reverse=True),
                                                  encoding='utf-8')
        variants_of = variants(name, full)
        for variant, text in variants_of.items():
            encoding = 'latin-1' if variant == 'latin1' else 'utf-8'
            data = text.encode(encoding, errors='xmlcharrefreplace')
            (OUT / f'{name}.{variant}.xml').write_bytes(data)
        utf16 = full.replace('encoding="UTF-8"', 'encoding="UTF-16"')
        (OUT / f'{name}.utf16.xml').write_bytes(utf16.encode('utf-16'))
        # A flood in UTF-16, whose markup the scan reads unit by unit.
        crowded = variants_of['too-many-attributes'].replace('encoding="UTF-8"', 'encoding="UTF-16"')
        (OUT / f'{name}.too-many-attributes-utf16.xml').write_bytes(crowded.encode('utf-16'))
        for variant, declared, codec, mark in ENCODINGS:
            text = full.replace('encoding="UTF-8"', f'encoding="{declared}"')
            data = mark + text.encode(codec, errors='xmlcharrefreplace')
            (OUT / f'{name}.{variant}.xml').write_bytes(data)


if __name__ == '__main__':
    main()
