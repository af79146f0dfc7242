#!/usr/bin/env python3
"""Copies the vendored UBL schemas of one version and adjusts the copies for the C++ binding.

The vendored files stay as OASIS and UN/CEFACT publish them; every change the binding needs is
made here, on build-time copies, by a text edit that must match exactly as often as expected, and
every file a version's edits name must be there, so a different schema release fails loudly
instead of being half adjusted.

    adjust_schemas.py [--ubl 2.0] --schemas <vendored xsd dir> --out <dir for the adjusted copies>

Only UBL 2.0 has a binding, and so adjustments; another version's copies are only checked.
"""

import argparse
import pathlib
import re
import shutil
import sys

XSD = "http://www.w3.org/2001/XMLSchema"

UNQUALIFIED = "common/UnqualifiedDataTypeSchemaModule-2.0.xsd"
QUALIFIED = "common/UBL-QualifiedDatatypes-2.0.xsd"

# The attributes each unqualified data type keeps, in schema order. The binding exposes exactly
# these; anything else the core component library offers (list versions, locales) is dropped.
UNQUALIFIED_ATTRIBUTES = {
    "AmountType": ["currencyID"],
    "MeasureType": ["unitCode"],
    "QuantityType": ["unitCode"],
    "TextType": ["languageID"],
    "NameType": ["languageID"],
    "CodeType": ["listID", "listAgencyID", "listAgencyName", "listName", "listVersionID",
                 "name", "languageID", "listURI", "listSchemeURI"],
    "IdentifierType": ["schemeID", "schemeName", "schemeAgencyID", "schemeAgencyName",
                       "schemeVersionID", "schemeDataURI", "schemeURI"],
    "BinaryObjectType": ["format", "mimeCode", "encodingCode", "characterSetCode", "uri",
                         "filename"],
    "GraphicType": ["format", "mimeCode", "encodingCode", "uri", "filename"],
    "PictureType": ["format", "mimeCode", "encodingCode", "uri", "filename"],
    "SoundType": ["format", "mimeCode", "encodingCode", "uri", "filename"],
    "VideoType": ["format", "mimeCode", "encodingCode", "uri", "filename"],
}

# Attributes typed by a code list in the stock schema, with how many declarations use each.
CODE_LIST_ATTRIBUTE_TYPES = {
    "clm54217:CurrencyCodeContentType": 1,
    "clmIANAMIMEMediaType:BinaryObjectMimeCodeContentType": 5,
    "clm66411:UnitCodeContentType": 2,
}

QUALIFIED_TYPE_COUNT = 19


class AdjustError(Exception):
    pass


class Schema:
    """One schema file as text, edited in place by counted substitutions."""

    def __init__(self, path):
        self.path = path
        # newline="" keeps the files' own line ends, so a diff shows only the adjustments.
        with open(path, encoding="utf-8", newline="") as f:
            self.text = f.read()

    def sub(self, pattern, repl, expected, why):
        self.text, n = re.subn(pattern, repl, self.text, flags=re.DOTALL)
        if n != expected:
            raise AdjustError(f"{self.path.name}: {why}: {n} matches, expected {expected}")

    def type_block(self, name):
        m = re.search(rf'<xsd:complexType name="{name}">.*?</xsd:complexType>', self.text, re.DOTALL)
        if not m:
            raise AdjustError(f"{self.path.name}: no complex type {name}")
        return m

    def save(self):
        with open(self.path, "w", encoding="utf-8", newline="") as f:
            f.write(self.text)


ATTRIBUTE = r'<xsd:attribute name="(?P<name>[^"]+)"[^>]*?(?:/>|>.*?</xsd:attribute>)'


def keep_only_attributes(schema, type_name, wanted):
    block = schema.type_block(type_name)
    body = block.group(0)
    found = [m.group("name") for m in re.finditer(ATTRIBUTE, body, re.DOTALL)]
    missing = [a for a in wanted if a not in found]
    if missing:
        raise AdjustError(f"{type_name}: attributes {missing} not in the schema")
    if [a for a in found if a in wanted] != wanted:
        raise AdjustError(f"{type_name}: attributes out of order: {found}")
    kept = re.sub(ATTRIBUTE, lambda m: m.group(0) if m.group("name") in wanted else "", body,
                  flags=re.DOTALL)
    schema.text = schema.text[:block.start()] + kept + schema.text[block.end():]


def adjust_unqualified(schema):
    # AmountType holds the runtime's double rather than its decimal: amounts are the one
    # numeric type written in double form. The other numeric types keep xsd:decimal.
    schema.sub(r'(<xsd:complexType name="AmountType">.*?<xsd:extension base=")xsd:decimal"',
               r'\1xsd:double"', 1, "AmountType over xsd:double")

    # currencyID, mimeCode and unitCode are plain strings: documents carry codes from newer
    # lists too, and reading must not refuse them. The code-list schemas are compiled on their
    # own, so the imports go as well and the data types do not pull in 2000 enumerators.
    for qname, count in CODE_LIST_ATTRIBUTE_TYPES.items():
        schema.sub(rf'type="{re.escape(qname)}"', 'type="xsd:normalizedString"', count,
                   f"{qname} as a plain string")
    schema.sub(r'\s*<xsd:import namespace="urn:un:unece:uncefact:codelist:[^"]*" schemaLocation="[^"]*"/>',
               "", 4, "code-list imports")

    # The attribute sets are a fixed, deliberately small table.
    for type_name, attributes in UNQUALIFIED_ATTRIBUTES.items():
        keep_only_attributes(schema, type_name, attributes)

    # A file name is a name, not free text: BinaryObjectType's filename is a normalized string
    # like its encodingCode and characterSetCode.
    schema.sub(r'(<xsd:complexType name="BinaryObjectType">.*?<xsd:attribute name="filename" type=")xsd:string"',
               r'\1xsd:normalizedString"', 1, "BinaryObjectType filename")


def adjust_qualified(schema):
    # The qualified code types restate CodeType's attributes with defaults naming their code
    # list. With defaults the binding would fill in and write eight extra attributes on every
    # code; the qualified types are meant to be CodeType under another name, so drop them.
    schema.sub(r'\s(?:default|fixed)="[^"]*"', "", QUALIFIED_TYPE_COUNT * 8,
               "qualified attribute defaults")


def check_local_imports(schema, root):
    # Every import and include must name a sibling file of the copy, never a URL: nothing is
    # fetched while the binding is generated.
    for location in re.findall(r'<xsd:(?:import|include)\b[^>]*schemaLocation="([^"]+)"', schema.text):
        if "://" in location or not (schema.path.parent / location).resolve().is_relative_to(root.resolve()):
            raise AdjustError(f"{schema.path.name}: import {location} is not a local copy")
        if not (schema.path.parent / location).is_file():
            raise AdjustError(f"{schema.path.name}: import {location} does not exist")


# The edits per UBL version, by file.
ADJUSTMENTS = {
    "2.0": {
        UNQUALIFIED: adjust_unqualified,
        QUALIFIED: adjust_qualified,
    },
    "2.1": {},
}


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--ubl", default="2.0", choices=sorted(ADJUSTMENTS))
    parser.add_argument("--schemas", required=True, type=pathlib.Path)
    parser.add_argument("--out", required=True, type=pathlib.Path)
    args = parser.parse_args(argv)

    if args.out.exists():
        shutil.rmtree(args.out)
    shutil.copytree(args.schemas, args.out)

    adjustments = ADJUSTMENTS[args.ubl]
    try:
        for expected in adjustments:
            if not (args.out / expected).is_file():
                raise AdjustError(f"{expected}: not in {args.schemas}, but the UBL {args.ubl} "
                                  f"adjustments edit it (another schema release?)")
        for path in sorted(args.out.rglob("*.xsd")):
            schema = Schema(path)
            adjust = adjustments.get(path.relative_to(args.out).as_posix())
            if adjust:
                adjust(schema)
                schema.save()
            check_local_imports(schema, args.out)
    except AdjustError as e:
        print(f"adjust_schemas: {e}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
