"""The interface catalogue: every class of the automation surface and every member it publishes.

Built from the schema element tables (schema.py) by the member rule, plus the EXCEPTIONS table
below, which is the one place where the published surface departs from the rule.

The member rule, per child element (or data-type attribute) in schema order:
  optional single  -> propget P [out,retval] val; propput P (unnamed); propget IsPSet -> val.
                      Two DISPIDs: n for P's get and put, n+1 for IsPSet.
  required single  -> propget P [out,retval] item; propput P (unnamed). One DISPID.
  repeated         -> getE(index, val), addE(item), removeE(index), clear<Plural>(),
                      propget ECount(val). Five consecutive DISPIDs.
  data-type content-> propput Value (unnamed) then propget Value [out,retval] Value. One DISPID.
  document         -> the ten operations of DOCUMENT_OPERATIONS, nine DISPIDs.
DISPIDs count from 1 in each interface; slots count from 7 (after IUnknown and IDispatch).
"""

from __future__ import annotations

from dataclasses import dataclass, field

import versions
from schema import Schemas, Child

FIRST_SLOT = 7  # after the three IUnknown and four IDispatch slots
LCID = 0

# The version whose catalogue is being built (versions.py): its exception table is the one place
# where the published surface departs from the plain rule.
EXCEPTIONS: dict = {}

# Unqualified data type -> data-type class, or the value type of a plain member.
DATA_TYPE_CLASSES = {
    "IdentifierType": "Identifier", "CodeType": "Code", "TextType": "Text", "NameType": "Name",
    "AmountType": "Amount", "QuantityType": "Quantity", "MeasureType": "Measure",
    "BinaryObjectType": "BinaryObject",
}
VALUE_TYPES = {  # data type -> (automation type, xsd kind for DATE)
    "DateType": ("DATE", "date"), "TimeType": ("DATE", "time"), "IndicatorType": ("BOOL", None),
    "NumericType": ("R8", None), "PercentType": ("R8", None), "RateType": ("R8", None),
}
CONTENT_TYPES = {"normalizedString": "BSTR", "string": "BSTR", "decimal": "R8",
                 "base64Binary": "VARIANT"}

# The document operations: (kind, name, C++ name, DISPID offset, parameters). Parameters are
# (name, type, retval); a None name is the unnamed value of a propput.
DOCUMENT_OPERATIONS = [
    ("method", "Write", "Write", 1, [("file", "BSTR", False)]),
    ("method", "Read", "Read", 2, [("file", "BSTR", False)]),
    # As with Value, the put of XML stands before its get.
    ("propput", "XML", "put_XML", 3, [(None, "BSTR", False)]),
    ("propget", "XML", "get_XML", 3, [("Value", "BSTR", True)]),
    ("method", "GetSchemaValidationErrors", "GetSchemaValidationErrors", 4,
     [("file", "BSTR", False), ("schemaFile", "BSTR", False), ("errors", "BSTR", True)]),
    ("method", "GetSchemaValidationErrorsFromXML", "GetSchemaValidationErrorsFromXML", 5,
     [("XML", "BSTR", False), ("schemaFile", "BSTR", False), ("errors", "BSTR", True)]),
    # For the combined check the FromXML variant precedes the file variant; for the other two
    # checks it follows it.
    ("method", "GetValidationErrorsFromXML", "GetValidationErrorsFromXML", 6,
     [("xmldata", "BSTR", False), ("schemaFile", "BSTR", False), ("xsldata", "BSTR", False),
      ("errors", "BSTR", True)]),
    ("method", "GetValidationErrors", "GetValidationErrors", 7,
     [("file", "BSTR", False), ("schemaFile", "BSTR", False), ("xslFile", "BSTR", False),
      ("errors", "BSTR", True)]),
    ("method", "GetValueValidationErrors", "GetValueValidationErrors", 8,
     [("file", "BSTR", False), ("xslFile", "BSTR", False), ("errors", "BSTR", True)]),
    ("method", "GetValueValidationErrorsFromXML", "GetValueValidationErrorsFromXML", 9,
     [("xmldata", "BSTR", False), ("xsldata", "BSTR", False), ("errors", "BSTR", True)]),
]

@dataclass
class Param:
    name: str | None     # None for the unnamed value of a propput
    type: str            # 'BSTR'|'DATE'|'R8'|'BOOL'|'I4'|'VARIANT'|'object'
    object_class: str | None = None
    direction: str = "in"  # 'in'|'retval'


@dataclass
class Member:
    kind: str            # 'propget'|'propput'|'method'
    name: str            # published name
    cpp_name: str        # MIDL-style C++ method name
    dispid: int
    params: list[Param]
    slot: int = 0


@dataclass
class Family:
    kind: str            # see FAMILY_KINDS
    element: str | None  # schema element or binding attribute name
    name: str | None     # published property name
    namespace: str | None  # 'cbc'|'cac'|'ext'|None
    type: str | None     # 'object'|'BSTR'|'DATE'|'R8'|'BOOL'|'VARIANT'
    object_class: str | None = None
    xsd: str | None = None              # 'date'|'time' for DATE members
    binding_element_type: str | None = None  # schema type of the element, e.g. 'IDType'
    data_type: str | None = None        # unqualified data type it derives from, e.g. 'IdentifierType'
    clear_name: str | None = None
    members: list[Member] = field(default_factory=list)
    dispid: int = 0


FAMILY_KINDS = ("object_optional", "object_required", "list", "value_optional",
                "value_required", "attribute_optional", "attribute_required", "content",
                "operations")


@dataclass
class ClassInfo:
    k: int
    name: str            # proper case: "Item"
    typelib_name: str    # "item" for Item, else name
    kind: str            # 'datatype'|'aggregate'|'document'
    clsid: str
    iid: str
    interface: str
    binding_type: str | None  # qualified C++ binding class; None without a binding
    schema_type: str           # "InvoiceType", "AddressType", "AmountType"
    families: list[Family]
    members: list[Member]

    @property
    def class_help(self) -> str:
        return f"{self.name} Class"

    @property
    def interface_help(self) -> str:
        return f"{self.interface} Interface"


@dataclass
class Library:
    name: str
    libid: str
    version: tuple[int, int]
    lcid: int
    helpstring: str


@dataclass
class Catalogue:
    library: Library
    classes: list[ClassInfo]
    version: versions.UblVersion = versions.UBL_2_0

    def __post_init__(self):
        self._by_name = {c.name: c for c in self.classes}

    def __getitem__(self, name: str) -> ClassInfo:
        return self._by_name[name]

    def __contains__(self, name: str) -> bool:
        return name in self._by_name

    @property
    def member_count(self) -> int:
        return sum(len(c.members) for c in self.classes)


# -- names ------------------------------------------------------------------------------------

def plural(name: str) -> str:
    """clearXs: an s, ies for a y, es after ss or us; a name already ending in s stays."""
    if name.endswith(("ss", "us")):
        return name + "es"
    if name.endswith("s"):
        return name
    if name.endswith("y") and name[-2:-1] not in "aeiou":
        return name[:-1] + "ies"
    return name + "s"


def guid_plus(guid: str, step: int) -> str:
    first, rest = guid.strip("{}").split("-", 1)
    return "{%08x-%s}" % (int(first, 16) + step, rest)


def catalogue_order(names: list[str]) -> list[str]:
    ordered = sorted(names, key=str.lower)
    moved = [n for n in EXCEPTIONS["before_party"] if n in ordered]
    if not moved:
        return ordered
    ordered = [n for n in ordered if n not in moved]
    at = ordered.index("Party")
    return ordered[:at] + moved + ordered[at:]


def recorded_order(version: versions.UblVersion) -> list[str] | None:
    """The frozen class order a released catalogue keeps: the names of the record's order table
    (lines "| k | Name |" between the markers), or None for a version without a record."""
    if not version.class_order_record:
        return None
    text = (versions.ROOT / version.class_order_record).read_text(encoding="utf-8")
    begin, end = "<!-- class order begins -->", "<!-- class order ends -->"
    if begin not in text or end not in text:
        raise ValueError(f"{version.class_order_record}: no class order between {begin} and {end}")
    rows = [line.split("|") for line in text[text.index(begin):text.index(end)].splitlines()
            if line.startswith("|") and line.split("|")[1].strip().isdigit()]
    order = [row[2].strip() for row in rows]
    if [int(row[1]) for row in rows] != list(range(len(order))):
        raise ValueError(f"{version.class_order_record}: the class order is not numbered from 0")
    return order


def check_order(version: versions.UblVersion, order: list[str]) -> None:
    """A released catalogue never changes its order: its CLSIDs and IIDs derive from it."""
    recorded = recorded_order(version)
    if recorded is None or recorded == order:
        return
    added = sorted(set(order) - set(recorded))
    missing = sorted(set(recorded) - set(order))
    moved = next((k for k, (a, b) in enumerate(zip(recorded, order)) if a != b), None)
    raise ValueError(f"the UBL {version.key} catalogue departs from the class order recorded in "
                     f"{version.class_order_record}: added {added}, missing {missing}, first "
                     f"difference at k = {moved}")


# -- families ---------------------------------------------------------------------------------
# A family's members are built with DISPIDs relative to the family's first; _number() makes
# them absolute once the families stand in interface order.

def _param(name, type_, object_class=None, retval=False) -> Param:
    return Param(name, type_, object_class if type_ == "object" else None,
                 "retval" if retval else "in")


def _single(family: Family, required: bool, getter_param: str) -> None:
    t, cls = family.type, family.object_class
    family.members = [
        Member("propget", family.name, f"get_{family.name}", 0,
               [_param(getter_param, t, cls, retval=True)]),
        Member("propput", family.name, f"put_{family.name}", 0, [_param(None, t, cls)]),
    ]
    if not required:
        is_set = f"Is{family.name}Set"
        family.members.append(Member("propget", is_set, f"get_{is_set}", 1,
                                     [_param("val", "BOOL", retval=True)]))


def _list(family: Family) -> None:
    e, cls = family.element, family.object_class
    family.members = [
        Member("method", f"get{e}", f"get{e}", 0,
               [_param("index", "I4"), _param("val", "object", cls, retval=True)]),
        Member("method", f"add{e}", f"add{e}", 1, [_param("item", "object", cls)]),
        Member("method", f"remove{e}", f"remove{e}", 2, [_param("index", "I4")]),
        Member("method", family.clear_name, family.clear_name, 3, []),
        Member("propget", f"{e}Count", f"get_{e}Count", 4, [_param("val", "I4", retval=True)]),
    ]


def _content(family: Family) -> None:
    family.members = [
        Member("propput", "Value", "put_Value", 0, [_param(None, family.type)]),
        Member("propget", "Value", "get_Value", 0, [_param("Value", family.type, retval=True)]),
    ]


def _operations(family: Family) -> None:
    family.members = [
        Member(kind, name, cpp, offset - 1, [_param(p, t, retval=r) for p, t, r in params])
        for kind, name, cpp, offset, params in DOCUMENT_OPERATIONS
    ]


def _element_family(schemas: Schemas, owner: str, child: Child) -> Family:
    data_type = schemas.data_type_of(child)
    family = Family("", child.name, child.name, child.module, None,
                    binding_element_type=child.type, data_type=data_type)
    if data_type is None:                       # an aggregate or extension component
        family.type, family.object_class = "object", child.type.removesuffix("Type")
    elif data_type in DATA_TYPE_CLASSES:
        family.type, family.object_class = "object", DATA_TYPE_CLASSES[data_type]
    else:
        family.type, family.xsd = VALUE_TYPES[data_type]
    value = "object" if family.type == "object" else "value"

    if child.repeated:
        if value != "object":
            raise ValueError(f"{owner}.{child.name}: a list of plain values")
        family.kind = "list"
        family.clear_name = EXCEPTIONS["clear_names"].get(child.name, "clear" + plural(child.name))
        _list(family)
        return family

    family.name = EXCEPTIONS["property_names"].get(child.name, child.name)
    if (owner, child.name) in EXCEPTIONS["required_with_val"]:
        family.kind = f"{value}_required"
        _single(family, required=True, getter_param="val")
    elif child.min_occurs >= 1:
        family.kind = f"{value}_required"
        _single(family, required=True, getter_param="item")
    else:
        family.kind = f"{value}_optional"
        _single(family, required=False, getter_param="val")
    return family


def _element_families(schemas: Schemas, owner: str, children: list[Child]) -> list[Family]:
    kept = [c for c in children if (owner, c.name) not in EXCEPTIONS["omitted"]]
    return [_element_family(schemas, owner, c) for c in kept]


def _document_families(schemas: Schemas, name: str) -> list[Family]:
    children = schemas.document_type(name).children
    head = [c for n in EXCEPTIONS["document_head"] for c in children if c.name == n]
    rest = [c for c in children if c not in head]
    families = _element_families(schemas, name, head + rest)
    operations = Family("operations", None, None, None, None)
    _operations(operations)
    return families + [operations]


def _data_type_families(schemas: Schemas, name: str) -> list[Family]:
    ctype = schemas.complex_type("udt", name + "Type")
    attributes = schemas.attributes_of(ctype)
    if name not in EXCEPTIONS["attributes_in_schema_order"]:
        attributes.sort(key=lambda a: a.name)
    families = []
    for attribute in attributes:
        published = attribute.name[0].upper() + attribute.name[1:]
        kind = "attribute_required" if attribute.required else "attribute_optional"
        family = Family(kind, attribute.name, published, None, "BSTR")
        _single(family, attribute.required, "item" if attribute.required else "val")
        families.append(family)
    content = Family("content", None, "Value", None, CONTENT_TYPES[schemas.content_base_of(ctype)])
    _content(content)
    return families + [content]


def _interface_order(owner: str, families: list[Family]) -> list[Family]:
    def last(family: Family) -> bool:
        return (owner, family.element) in EXCEPTIONS["published_last"]
    return [f for f in families if not last(f)] + [f for f in families if last(f)]


def _number(families: list[Family]) -> list[Member]:
    """DISPIDs from 1, each family taking as many as its members' offsets span; slots from 7."""
    dispid, members = 1, []
    for family in families:
        family.dispid = dispid
        for member in family.members:
            member.dispid += dispid   # members carry their offset within the family until here
        dispid = max(m.dispid for m in family.members) + 1
        members += family.members
    for slot, member in enumerate(members, FIRST_SLOT):
        member.slot = slot
    return members


# -- the catalogue ----------------------------------------------------------------------------

def build(schemas: Schemas, version: versions.UblVersion = versions.UBL_2_0) -> Catalogue:
    global EXCEPTIONS
    EXCEPTIONS = version.exceptions
    namespaces = version.binding_namespaces
    kinds, bindings, schema_types, families = {}, {}, {}, {}
    for data_type in DATA_TYPE_CLASSES.values():
        kinds[data_type] = "datatype"
        schema_types[data_type] = f"{data_type}Type"
        bindings[data_type] = f"{namespaces['datatype']}::{data_type}Type" if version.binding else None
        families[data_type] = _data_type_families(schemas, data_type)
    for ctype in schemas.types_of("cac") + [schemas.complex_type("ext", "UBLExtensionsType"),
                                           schemas.complex_type("ext", "UBLExtensionType")]:
        name = ctype.name.removesuffix("Type")
        kinds[name] = "aggregate"
        schema_types[name] = ctype.name
        if version.binding:
            namespace = namespaces["aggregate" if ctype.module == "cac" else "extension"]
            bindings[name] = f"{namespace}::{ctype.name}"
        else:
            bindings[name] = None
        families[name] = _element_families(schemas, name, ctype.children)
    for name, _ in schemas.documents:
        kinds[name] = "document"
        schema_types[name] = f"{name}Type"
        bindings[name] = (f"{namespaces['document']}::{name}::{name}Type" if version.binding
                          else None)
        families[name] = _document_families(schemas, name)

    order = catalogue_order(list(kinds))
    check_order(version, order)
    classes = []
    for k, name in enumerate(order):
        clsid = guid_plus(version.libid, 1 + 2 * k)
        classes.append(ClassInfo(
            k=k, name=name, typelib_name=EXCEPTIONS["typelib_class_names"].get(name, name),
            kind=kinds[name], clsid=clsid, iid=guid_plus(clsid, 1), interface="I" + name,
            binding_type=bindings[name], schema_type=schema_types[name], families=families[name],
            members=_number(_interface_order(name, families[name]))))
    library = Library(version.library_name, version.libid, version.version, LCID,
                      version.helpstring)
    catalogue = Catalogue(library, classes, version)
    _check(catalogue)
    return catalogue


def _check(catalogue: Catalogue) -> None:
    """Every object a member hands out must be a class of the catalogue."""
    for cls in catalogue.classes:
        for family in cls.families:
            if family.object_class and family.object_class not in catalogue:
                raise ValueError(f"{cls.name}.{family.element}: no class {family.object_class}")
