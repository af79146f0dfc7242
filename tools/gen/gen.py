#!/usr/bin/env python3
"""Generates the automation surface of TivaloCOM from the vendored UBL schemas of one version.

    gen.py <emitter> --ubl <2.0|2.1> [--schemas <xsd dir>] --out <generation root>

The version's table (versions.py) names its schema set, library, identities and C++ namespaces
and holds its exceptions. The driver reads the schemas (schema.py), builds the interface
catalogue (catalogue.py) and hands it to the emitter: the module emit_<emitter>.py beside this file, which must define

    def emit(catalogue: catalogue.Catalogue, out_dir: pathlib.Path) -> None

and write its files through output.write_if_changed(), so that unchanged outputs keep their
time stamps and rebuilds stay cheap. Adding an emitter means adding a file; this driver does not
change.

The catalogue objects (all dataclasses, see catalogue.py):
  Catalogue  .library (name, libid, version, lcid, helpstring), .version (the version's table),
             .classes in k order,
             catalogue["Address"] by proper-case name, .member_count.
  ClassInfo  .k, .name ("Item"), .typelib_name ("item"), .kind ('datatype'|'aggregate'|
             'document'), .clsid, .iid ("{...}" lower case), .interface ("IItem"),
             .binding_type (qualified C++ binding class, None without a binding), .schema_type
             ("InvoiceType"), .families, .members (slot order),
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
import output  # noqa: E402
import schema  # noqa: E402
import versions  # noqa: E402


def main(argv: list[str]) -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("emitter", help="runs tools/gen/emit_<emitter>.py")
    parser.add_argument("--ubl", default="2.0", choices=sorted(versions.VERSIONS),
                        help="the UBL version whose library is generated")
    parser.add_argument("--schemas", help="the version's xsd directory (default: the vendored one)")
    parser.add_argument("--out", required=True, help="root of the generated tree")
    args = parser.parse_args(argv)

    version = versions.version(args.ubl)
    schema_dir = pathlib.Path(args.schemas) if args.schemas else version.schema_path
    # Every emitter's files carry the notice of the version they were generated from.
    output.GENERATED_NOTICE = version.notice
    emitter = importlib.import_module(f"emit_{args.emitter}")
    tables = load_schemas(version, schema_dir)
    surface = catalogue.build(tables, version)
    surface.schema_dir = schema_dir  # for emitters that read more of the schemas
    surface.schemas = tables
    emitter.emit(surface, pathlib.Path(args.out))
    return 0


def load_schemas(version: versions.UblVersion, schema_dir: pathlib.Path) -> schema.Schemas:
    """The element tables of a version's schemas (emitters that read more of them use this too)."""
    return schema.Schemas(schema_dir, version.modules, only_modules=not version.reads_other_namespaces)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
