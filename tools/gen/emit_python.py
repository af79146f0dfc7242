"""python/tivalo/__init__.pyi: type stubs of the Python module, one class per interface (for UBL
2.1: python/tivalo/ubl21.pyi, the 2.1 library's interfaces under the same names).

Editors complete names and show definitions from it; the module itself reads it for help() and
inspect.signature() of a member. Each class carries the definition of its schema type, each
member the definition of its element from the schemas' documentation annotations.
"""

from __future__ import annotations

from definitions import Definitions
from output import GENERATED_NOTICE, write_if_changed

IN_TYPES = {"BSTR": "str", "DATE": "datetime.date | datetime.time", "R8": "float",
            "BOOL": "bool", "I4": "int", "VARIANT": "bytes | bytearray | memoryview"}
OUT_TYPES = {"BSTR": "str | None", "DATE": "datetime.datetime", "R8": "float", "BOOL": "bool",
             "I4": "int", "VARIANT": "bytes"}
PATH_PARAMETERS = {"file", "schemaFile", "xslFile"}

OPERATION_DOCS = {
    "Write": "Writes the document to file as UTF-8 XML. Raises ComError naming the file when "
             "it cannot be written.",
    "Read": "Replaces the document's content with the document read from file. Raises "
            "ComError naming the file when it cannot be read; the content then stays as it was.",
    "XML": "The document as XML text; setting it replaces the content.",
    "GetSchemaValidationErrors": "Checks file against the XML Schema schemaFile; the findings "
                                 "as text, empty when there are none.",
    "GetSchemaValidationErrorsFromXML": "Checks the XML text against the XML Schema schemaFile; "
                                        "the findings as text, empty when there are none.",
    "GetValidationErrorsFromXML": "Checks the XML text xmldata against schemaFile and then "
                                  "by the stylesheet text xsldata; the findings as text.",
    "GetValidationErrors": "Checks file against schemaFile and then by the stylesheet "
                           "xslFile; the findings as text.",
    "GetValueValidationErrors": "Checks file by the rule stylesheet xslFile; the findings as "
                                "text.",
    "GetValueValidationErrorsFromXML": "Checks the XML text xmldata by the stylesheet text "
                                       "xsldata; the findings as text.",
}

HEAD = '''# {notice}
"""TivaloCOM's UBL {ubl} object model, late-bound over IDispatch as a script host uses it."""
from __future__ import annotations

import datetime
import os
from typing import Any, Generic, Iterator, Literal, TypeVar, overload

__version__: str

class ComError(Exception):
    """A failed automation call."""
    hresult: int
    source: str | None
    description: str | None
    filename: str | None

class Method:
    """A method of an object, bound to it; help() and inspect.signature() describe it."""
    __name__: str
    __self__: Dispatch
    def __call__(self, *args: Any, **kwargs: Any) -> Any: ...

_Item = TypeVar("_Item", bound="Dispatch")

class List(Generic[_Item]):
    """A list member as a sequence, over its get, add, remove, clear and Count members."""
    def __len__(self) -> int: ...
    def __getitem__(self, index: int) -> _Item: ...
    def __delitem__(self, index: int) -> None: ...
    def __iter__(self) -> Iterator[_Item]: ...
    def append(self, item: _Item) -> None: ...
    def clear(self) -> None: ...

class Finding:
    """One finding of validate(), with the fields of the tool's JSON."""
    file: str
    source: Literal["schema", "rules", "document"]
    severity: Literal["error", "warning", "info"]
    line: int | None
    column: int | None
    location: str | None
    rule: str | None
    message: str

class ValidationError(Exception):
    """The check could not run; `findings` holds what the other files gave."""
    findings: list[Finding]

def schema_path(document_class: str, version: str = "2.0") -> str: ...
def validate(path_or_paths: str | os.PathLike[str] | list[str | os.PathLike[str]],
             schema: str | os.PathLike[str] | None = None,
             rules: str | os.PathLike[str] | None = None, no_schema: bool = False, *,
             jobs: int | None = None, client: Any = None,
             batch_size: int | None = None) -> list[Finding]: ...
'''


def _quote(text: str) -> str:
    text = text.replace("\\", "\\\\").replace('"""', '\\"\\"\\"')
    if text.endswith('"'):  # it would run into the closing quotes
        text = text[:-1] + '\\"'
    return '"""' + text + '"""'


def _in_type(param) -> str:
    if param.type == "object":
        return f"I{param.object_class}"
    if param.name in PATH_PARAMETERS:
        return "str | os.PathLike[str]"
    return IN_TYPES[param.type]


def _out_type(param) -> str:
    return f"I{param.object_class}" if param.type == "object" else OUT_TYPES[param.type]


def _property(name: str, type_: str, doc: str | None, put_type: str | None) -> list[str]:
    lines = ["    @property", f"    def {name}(self) -> {type_}:"]
    lines.append(f"        {_quote(doc)}" if doc else "        ...")
    if put_type:
        lines += [f"    @{name}.setter", f"    def {name}(self, value: {put_type}) -> None: ..."]
    return lines


def _method(member, doc: str | None) -> list[str]:
    inputs = [p for p in member.params if p.direction == "in"]
    results = [p for p in member.params if p.direction == "retval"]
    signature = ", ".join(["self"] + [f"{p.name}: {_in_type(p)}" for p in inputs])
    result = _out_type(results[0]) if results else "None"
    body = _quote(doc) if doc else "..."
    return [f"    def {member.name}({signature}) -> {result}:", f"        {body}"]


def _family(cls, family, definitions: Definitions, owner_type: str) -> list[str]:
    about = definitions.of_member(owner_type, family.element) if family.element else None
    if family.kind == "operations":
        lines = []
        for member in family.members:
            if member.name == "XML":
                if member.kind == "propget":
                    lines += _property("XML", "str", OPERATION_DOCS["XML"], "str")
            else:
                lines += _method(member, OPERATION_DOCS[member.name])
        return lines
    if family.kind == "content":
        about = definitions.of_type(owner_type)
        return _property("Value", OUT_TYPES[family.type], about, IN_TYPES[family.type])
    if family.kind == "list":
        item = f"I{family.object_class}"
        e = family.element
        listed = f" {about}" if about else ""
        get, add, remove, clear, count = family.members
        return (_property(e, f"List[{item}]", f"The {e} list as a sequence.{listed}", None)
                + _method(get, f"The {e} at index (from 0).{listed}")
                + _method(add, f"Appends item to the {e} list.")
                + _method(remove, f"Removes the {e} at index (from 0).")
                + _method(clear, f"Empties the {e} list.")
                + _property(count.name, "int", f"The number of {e} items.", None))
    getter, putter = family.members[0], family.members[1]
    lines = _property(family.name, _out_type(getter.params[0]), about, _in_type(putter.params[0]))
    if len(family.members) > 2:
        lines += _property(family.members[2].name, "bool", f"Whether {family.name} is present.",
                           None)
    return lines


def _class(cls, definitions: Definitions, module: str) -> list[str]:
    owner_type = cls.schema_type
    about = definitions.of_type(owner_type)
    doc = f"{module}.{cls.name}: " + (about or f"the {cls.name} {cls.kind}.")
    lines = [f"class {cls.interface}(Dispatch):", f"    {_quote(doc)}"]
    for family in cls.families:
        lines += _family(cls, family, definitions, owner_type)
    return lines + [""]


def _dispatch(catalogue) -> list[str]:
    m = catalogue.version.module_name
    lines = ["class Dispatch:",
             f'    """An automation object, created by program identifier (\'{m}.Invoice\', '
             f"'{m}.Invoice.1') or by class identifier ('{{...}}'). Attributes are its "
             'properties and methods, by name without regard to case."""']
    for cls in catalogue.classes:
        names = f'Literal["{m}.{cls.name}", "{m}.{cls.name}.1"]'
        lines += ["    @overload", f"    def __new__(cls, name: {names}) -> {cls.interface}: ..."]
    lines += ["    @overload", "    def __new__(cls, name: str) -> Dispatch: ...",
              "    def __getattr__(self, name: str) -> Any: ...",
              "    def __setattr__(self, name: str, value: Any) -> None: ...", ""]
    return lines


def stubs(catalogue, definitions: Definitions) -> str:
    head = HEAD.replace("{notice}", GENERATED_NOTICE).replace("{ubl}", catalogue.version.key)
    lines = [head] + _dispatch(catalogue)
    for cls in catalogue.classes:
        lines += _class(cls, definitions, catalogue.version.module_name)
    return "\n".join(lines)


def stub_file(version) -> str:
    return "__init__.pyi" if not version.interface_namespace else "ubl21.pyi"


def emit(catalogue, out_dir) -> None:
    definitions = Definitions(catalogue.schema_dir)
    write_if_changed(out_dir / "python" / "tivalo" / stub_file(catalogue.version),
                     stubs(catalogue, definitions))
