"""The element tables of the vendored UBL schemas, as the generators need them.

Reads every .xsd under common/ and maindoc/ with xml.etree and answers, for each complex type
with element content, its children in schema order with their cardinality, and for each
element the type it has and the unqualified data type that type derives from.

Names are (namespace URI, local name) pairs internally; the public answers use local names and
the short module keys of the version's table ('cbc', 'cac', 'ext', 'udt', 'qdt', or 'doc' for a
document's own namespace).
"""

from __future__ import annotations

import pathlib
import xml.etree.ElementTree as ET
from dataclasses import dataclass, field

XSD = "http://www.w3.org/2001/XMLSchema"
UBL = "urn:oasis:names:specification:ubl:schema:xsd:"

# The UBL 2.0 modules; a version's table (versions.py) gives its own.
MODULES = {
    UBL + "CommonBasicComponents-2": "cbc",
    UBL + "CommonAggregateComponents-2": "cac",
    UBL + "CommonExtensionComponents-2": "ext",
    UBL + "QualifiedDatatypes-2": "qdt",
    "urn:un:unece:uncefact:data:specification:UnqualifiedDataTypesSchemaModule:2": "udt",
}

UNBOUNDED = None


@dataclass
class Child:
    """One element particle of a type's sequence."""
    name: str            # local name of the referenced element
    module: str          # 'cbc', 'cac' or 'ext'
    type: str            # local name of the element's type
    type_module: str
    min_occurs: int
    max_occurs: int | None  # None when unbounded

    @property
    def repeated(self) -> bool:
        return self.max_occurs is UNBOUNDED or self.max_occurs > 1


@dataclass
class Attribute:
    name: str
    required: bool
    base: str            # local name of the XML Schema built-in or code-list type


@dataclass
class ComplexType:
    name: str
    module: str
    children: list[Child] | None = None       # element content, in schema order
    base: tuple[str, str] | None = None       # (uri, name) of a simple-content base
    content_base: str | None = None           # built-in type of simple content (xsd side)
    attributes: list[Attribute] = field(default_factory=list)


def _qname(text: str, prefixes: dict[str, str]) -> tuple[str, str]:
    prefix, _, local = text.rpartition(":")
    return prefixes[prefix], local


def _occurs(value: str | None, default: int) -> int | None:
    if value is None:
        return default
    return UNBOUNDED if value == "unbounded" else int(value)


class Schemas:
    """All declarations of the vendored schemas, resolved across files."""

    def __init__(self, xsd_dir: str | pathlib.Path, modules: dict[str, str] | None = None,
                 only_modules: bool = False):
        """`only_modules`: read no common file of another namespace (2.1's signature modules,
        written in constructs the tables have no use for)."""
        root = pathlib.Path(xsd_dir)
        self.modules = modules or MODULES
        self.only_modules = only_modules
        self.elements: dict[tuple[str, str], tuple[str, str]] = {}
        self.types: dict[tuple[str, str], ComplexType] = {}
        self.simple_types: dict[tuple[str, str], tuple[str, str] | None] = {}
        self.documents: list[tuple[str, str]] = []   # (root element name, namespace URI)
        self._pending: list[tuple[ComplexType, list]] = []
        for path in sorted((root / "common").glob("*.xsd")):
            self._load(path, is_document=False)
        for path in sorted((root / "maindoc").glob("*.xsd")):
            self._load(path, is_document=True)
        for ctype, particles in self._pending:
            ctype.children = [self._child(ref, lo, hi) for ref, lo, hi in particles]
        del self._pending

    # -- loading -------------------------------------------------------------------------

    def _load(self, path: pathlib.Path, is_document: bool) -> None:
        prefixes: dict[str, str] = {}
        for _, (prefix, uri) in ET.iterparse(path, events=("start-ns",)):
            prefixes.setdefault(prefix, uri)
        schema = ET.parse(path).getroot()
        target = schema.get("targetNamespace")
        if self.only_modules and not is_document and target not in self.modules:
            return
        module = self.modules.get(target, "doc")
        for node in schema:
            name = node.get("name")
            if node.tag == f"{{{XSD}}}element":
                self.elements[(target, name)] = _qname(node.get("type"), prefixes)
                if is_document:
                    self.documents.append((name, target))
            elif node.tag == f"{{{XSD}}}complexType":
                self.types[(target, name)] = self._complex_type(node, name, module, prefixes)
            elif node.tag == f"{{{XSD}}}simpleType":
                restriction = node.find(f"{{{XSD}}}restriction")
                base = restriction.get("base") if restriction is not None else None
                self.simple_types[(target, name)] = _qname(base, prefixes) if base else None

    def _complex_type(self, node, name, module, prefixes) -> ComplexType:
        ctype = ComplexType(name, module)
        sequence = node.find(f"{{{XSD}}}sequence")
        if sequence is not None:
            particles = []
            for particle in sequence.findall(f"{{{XSD}}}element"):
                particles.append((_qname(particle.get("ref"), prefixes),
                                  _occurs(particle.get("minOccurs"), 1),
                                  _occurs(particle.get("maxOccurs"), 1)))
            self._pending.append((ctype, particles))
            return ctype
        simple = node.find(f"{{{XSD}}}simpleContent")
        if simple is not None:
            derivation = simple[0]
            ctype.base = _qname(derivation.get("base"), prefixes)
            if ctype.base[0] == XSD:
                ctype.content_base = ctype.base[1]
            for attribute in derivation.findall(f"{{{XSD}}}attribute"):
                ctype.attributes.append(Attribute(
                    attribute.get("name"), attribute.get("use") == "required",
                    _qname(attribute.get("type"), prefixes)[1]))
        return ctype

    def _child(self, ref: tuple[str, str], lo: int, hi: int | None) -> Child:
        type_uri, type_name = self.elements[ref]
        return Child(ref[1], self.modules[ref[0]], type_name, self.modules.get(type_uri, "doc"),
                     lo, hi)

    # -- queries -------------------------------------------------------------------------

    def module_uri(self, module: str) -> str:
        return next(uri for uri, key in self.modules.items() if key == module)

    def complex_type(self, module: str, name: str) -> ComplexType:
        return self.types[(self.module_uri(module), name)]

    def types_of(self, module: str) -> list[ComplexType]:
        """The complex types of one module, in declaration order."""
        uri = self.module_uri(module)
        return [t for (ns, _), t in self.types.items() if ns == uri]

    def document_type(self, name: str) -> ComplexType:
        uri = dict(self.documents)[name]
        return self.types[self.elements[(uri, name)]]

    def data_type_of(self, child: Child) -> str | None:
        """The unqualified data type (e.g. 'IdentifierType', 'DateType') that a child's type
        derives from, or None for an element-only (aggregate) type."""
        qname = (self.module_uri(child.type_module), child.type)
        udt = self.module_uri("udt")
        while qname[0] != udt:
            ctype = self.types.get(qname)
            if ctype is None or ctype.base is None:
                return None
            qname = ctype.base
        return qname[1]

    def attributes_of(self, ctype: ComplexType) -> list[Attribute]:
        """A simple-content type's attributes along its derivation chain: those of its bases
        first, each replaced where a derived type restates it (as a restriction makes an
        attribute required)."""
        chain = [ctype]
        while chain[-1].base is not None and chain[-1].base in self.types:
            chain.append(self.types[chain[-1].base])
        attributes: dict[str, Attribute] = {}
        for link in reversed(chain):
            for attribute in link.attributes:
                attributes[attribute.name] = attribute
        return list(attributes.values())

    def content_base_of(self, ctype: ComplexType) -> str | None:
        """The XML Schema built-in type a simple-content type's text derives from."""
        while ctype.content_base is None and ctype.base in self.types:
            ctype = self.types[ctype.base]
        return ctype.content_base
