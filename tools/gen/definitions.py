"""The definitions that the UBL schemas carry in their documentation annotations.

Every complex type, every element particle of its sequence and every attribute of a data type
may have a <ccts:Definition> inside <xsd:annotation><xsd:documentation>. These texts become the
docstrings of the classes and members that a client sees.
"""

from __future__ import annotations

import pathlib
import re
import xml.etree.ElementTree as ET

XSD = "{http://www.w3.org/2001/XMLSchema}"


def _definition(node) -> str | None:
    annotation = node.find(f"{XSD}annotation")
    if annotation is None:
        return None
    for element in annotation.iter():
        if isinstance(element.tag, str) and element.tag.endswith("}Definition") and element.text:
            return re.sub(r"\s+", " ", element.text).strip() or None
    return None


class Definitions:
    """Definitions by schema type name ("AddressType"), and by type and child or attribute
    name (("AddressType", "ID"), ("AmountType", "currencyID")). Where two modules declare one
    type name (the core component types and the unqualified data types), the file read last
    wins: files are read in name order, so the unqualified data types stand."""

    def __init__(self, xsd_dir: str | pathlib.Path):
        self.types: dict[str, str] = {}
        self.members: dict[tuple[str, str], str] = {}
        root = pathlib.Path(xsd_dir)
        for path in sorted(root.glob("common/*.xsd")) + sorted(root.glob("maindoc/*.xsd")):
            self._load(ET.parse(path).getroot())

    def _load(self, schema) -> None:
        for node in schema.findall(f"{XSD}complexType"):
            name = node.get("name")
            if text := _definition(node):
                self.types[name] = text
            for particle in node.iterfind(f"{XSD}sequence/{XSD}element"):
                if text := _definition(particle):
                    self.members[(name, particle.get("ref").rpartition(":")[2])] = text
            for attribute in node.iterfind(f"{XSD}simpleContent/*/{XSD}attribute"):
                if text := _definition(attribute):
                    self.members[(name, attribute.get("name"))] = text

    def of_type(self, type_name: str) -> str | None:
        return self.types.get(type_name)

    def of_member(self, type_name: str, child: str) -> str | None:
        return self.members.get((type_name, child))
