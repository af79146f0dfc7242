#!/usr/bin/env python3
"""Generates the automation surface of TivaloCOM from the vendored UBL 2.0 schemas.

    gen.py <emitter> --schemas <xsd dir> --out <generation root>

The driver reads the schemas (schema.py), builds the interface catalogue (catalogue.py) and
hands it to the emitter: the module emit_<emitter>.py beside this file, which must define

    def emit(catalogue: catalogue.Catalogue, out_dir: pathlib.Path) -> None

and write its files through output.write_if_changed(), so that unchanged outputs keep their
time stamps and rebuilds stay cheap. Adding an emitter means adding a file; this driver does not
change.

The catalogue objects (all dataclasses, see catalogue.py):
  Catalogue  .library (name, libid, version, lcid, helpstring), .classes in k order,
             catalogue["Address"] by proper-case name, .member_count.
  ClassInfo  .k, .name ("Item"), .typelib_name ("item"), .kind ('datatype'|'aggregate'|
             'document'), .clsid, .iid ("{...}" lower case), .interface ("IItem"),
             .binding_type (qualified C++ binding class), .families, .members (slot order),
             .class_help ("<Class> Class"), .interface_help ("I<Class> Interface").
  Family     one schema element or data-type attribute and the members it yields:
             .kind ('object_optional'|'object_required'|'list'|'value_optional'|
             'value_required'|'attribute_optional'|'attribute_required'|'content'|
             'operations'), .element (schema element or binding attribute name), .name
             (published property name), .namespace ('cbc'|'cac'|'ext'|None), .type ('object'|
             'BSTR'|'DATE'|'R8'|'BOOL'|'VARIANT'), .object_class, .xsd ('date'|'time'|None),
             .binding_element_type ("IDType", "SupplierPartyType"), .data_type
             ("IdentifierType", "DateType", None for aggregates), .clear_name, .members, .dispid.
  Member     .kind ('propget'|'propput'|'method'), .name (published), .cpp_name ("get_ID"),
             .dispid, .slot (from 7), .params.
  Param      .name (None for the unnamed propput value), .type ('BSTR'|'DATE'|'R8'|'BOOL'|
             'I4'|'VARIANT'|'object'), .object_class, .direction ('in'|'retval').
"""

from __future__ import annotations

import argparse
import importlib
import pathlib
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

import catalogue  # noqa: E402
import schema  # noqa: E402


def main(argv: list[str]) -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("emitter", help="runs tools/gen/emit_<emitter>.py")
    parser.add_argument("--schemas", required=True, help="the UBL 2.0 xsd directory")
    parser.add_argument("--out", required=True, help="root of the generated tree")
    args = parser.parse_args(argv)

    emitter = importlib.import_module(f"emit_{args.emitter}")
    surface = catalogue.build(schema.Schemas(args.schemas))
    surface.schema_dir = pathlib.Path(args.schemas)  # for emitters that read more of the schemas
    emitter.emit(surface, pathlib.Path(args.out))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
