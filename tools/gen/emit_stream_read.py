"""Emits the streaming reader's rules (model/stream_read.h): per class its children in schema order,
each with its namespace, how often it may occur as the binding holds it, and the member-record
field it fills; per data type its attributes and its content. Also the table of document classes.

    model/stream_rules.h          the rules_of<Class>() specialisations, declared
    model/stream_rules_<n>.cpp    their definitions, one line per child or attribute

The children come from the schemas, not from the catalogue alone: the binding reads children that
the interface does not publish (a freight invoice's extension block, an extension's content), and
the reader must read them as the binding does.

Without a binding (2.1) the reader is the only way in: a data type's attributes and content get the
whitespace handling of their schema types (xml_schema's string types stand for them), and the
extension content is carried as a DOM.
"""

import emit_model
from emit_model import CARRIED_ELEMENTS, class_name, qualified_class
from output import GENERATED_NOTICE, write_if_changed

CHUNKS = 4

EXTENSION_CLASSES = ('UBLExtension', 'UBLExtensions')
EXTENSION_BINDING_NAMESPACE = 'Morvek::UBL2::Common::ExtensionComponents'

# The binding's runtime types that read an XML Schema built-in type as the schema says.
XML_SCHEMA_TYPES = {
    'string': 'xml_schema::string', 'normalizedString': 'xml_schema::normalized_string',
    'token': 'xml_schema::token', 'language': 'xml_schema::language', 'anyURI': 'xml_schema::uri',
    'decimal': 'xml_schema::decimal', 'double': 'xml_schema::double_',
    'base64Binary': 'xml_schema::base64_binary',
}


def schema_children(schemas, cls):
    if cls.kind == 'document':
        return schemas.document_type(cls.name).children
    module = 'ext' if cls.name in EXTENSION_CLASSES else 'cac'
    return schemas.complex_type(module, cls.name + 'Type').children


def occurs(child):
    if child.repeated:
        return 'sequence'
    return 'one' if child.min_occurs >= 1 else 'optional'


def member_line(cls, child, families):
    line = member_call(cls, child, families)
    # xsi:type may name the element's type, which is not always named after the element.
    if child.type != child.name + 'Type':
        line = line[:-2] + f', "{child.type}"),'
    return line


def member_call(cls, child, families):
    how = occurs(child)
    family = families.get(child.name)
    if family is None and child.name in CARRIED_ELEMENTS.get(cls.name, []):
        if not emit_model.VERSION.binding:
            return f'      carried_dom<{how}, &R::{child.name}>({child.module}, "{child.name}"),'
        binding = f'::{EXTENSION_BINDING_NAMESPACE}::{cls.name}Type::{child.name}_type'
        return f'      carried<{how}, &R::{child.name}, {binding}>({child.module}, "{child.name}"),'
    if family is None:
        interface = 'I' + child.type.removesuffix('Type')
        return f'      dropped<{how}, {interface}>({child.module}, "{child.name}"),'
    template = 'member'
    if family.kind == 'object_required' and how == 'optional':
        template = 'member_made_when_absent'
    return f'      {template}<{how}, &R::{family.element}>({child.module}, "{child.name}"),'


def element_rules(schemas, cls):
    families = {f.element: f for f in cls.families if f.kind != 'operations'}
    children = schema_children(schemas, cls)
    names = [c.name for c in children]
    assert len(set(names)) == len(names), f'{cls.name}: a child name stands twice'
    assert len(children) <= 128, f'{cls.name}: more children than the reader tracks'
    out = [f'template <> const Rules& rules_of<{qualified_class(cls)}>() {{',
           f'  using R = {qualified_class(cls)}::Record;',
           '  static constexpr MemberRule members[] = {']
    out += [member_line(cls, c, families) for c in children]
    out += ['  };',
            '  static constexpr Rules rules(members);',
            '  return rules;',
            '}',
            '']
    return out


def data_type_rules(cls, schemas):
    attributes = [f for f in cls.families if f.kind.startswith('attribute_')]
    out = [f'template <> const Rules& rules_of<{qualified_class(cls)}>() {{',
           f'  using R = {qualified_class(cls)}::Record;']
    if emit_model.VERSION.binding:
        out.append(f'  using B = ::{cls.binding_type};')
        content = 'B'
        types = {f.element: f'B::{f.element}_type' for f in attributes}
    else:
        ctype = schemas.complex_type('udt', cls.schema_type)
        content = XML_SCHEMA_TYPES[schemas.content_base_of(ctype)]
        types = {a.name: XML_SCHEMA_TYPES[a.base] for a in schemas.attributes_of(ctype)}
    if attributes:
        out.append('  static constexpr AttributeRule attributes[] = {')
        for family in attributes:
            required = 'true' if family.kind == 'attribute_required' else 'false'
            out.append(f'      attribute<&R::{family.element}, {types[family.element]}, {required}>'
                       f'("{family.element}"),')
        out += ['  };',
                f'  static constexpr Rules rules(attributes, &read_content<&R::Value, {content}>);']
    else:
        out.append(f'  static constexpr Rules rules(&read_content<&R::Value, {content}>);')
    out += ['  return rules;', '}', '']
    return out


def emit_header(catalogue, out_dir):
    out = [f'// {GENERATED_NOTICE}',
           '#pragma once',
           '',
           '#include "model/classes.h"',
           '#include "model/stream_read.h"',
           '',
           'namespace Morvek::Tivalo::StreamRead {',
           '']
    out += [f'template <> const Rules& rules_of<{qualified_class(c)}>();' for c in catalogue.classes]
    out += ['', '}  // namespace Morvek::Tivalo::StreamRead', '']
    write_if_changed(out_dir / 'model' / 'stream_rules.h', '\n'.join(out))


def document_table(catalogue):
    out = ['const DocumentRules* document_rules(const DocumentBinding& binding) {',
           '  static const DocumentRules documents[] = {']
    out += [f'      document_rules_of<{qualified_class(c)}>(),'
            for c in catalogue.classes if c.kind == 'document']
    out += ['  };',
            '  for (const DocumentRules& rules : documents)',
            '    if (rules.binding == &binding) return &rules;',
            '  return nullptr;',
            '}',
            '']
    return out


def emit(catalogue, out_dir):
    emit_model.VERSION = catalogue.version
    schemas = catalogue.schemas
    emit_header(catalogue, out_dir)
    # The data types and the extension classes need their binding headers; they share chunk 0.
    first = [c for c in catalogue.classes if c.kind == 'datatype' or c.name in EXTENSION_CLASSES]
    rest = [c for c in catalogue.classes if c not in first]
    buckets = [first] + [rest[i::CHUNKS - 1] for i in range(CHUNKS - 1)]
    for index, classes in enumerate(buckets):
        out = [f'// {GENERATED_NOTICE}',
               '#include "model/stream_rules.h"',
               '']
        if index == 0 and catalogue.version.binding:
            out += ['#include "binding/common/UBL-CommonExtensionComponents-2.0.hxx"',
                    '#include "binding/types/UnqualifiedDataTypeSchemaModule-2.0.hxx"',
                    '']
        out += ['namespace Morvek::Tivalo::StreamRead {', '']
        for cls in classes:
            out += (data_type_rules(cls, schemas) if cls.kind == 'datatype'
                    else element_rules(schemas, cls))
        if index == 0:
            out += document_table(catalogue)
        out += ['}  // namespace Morvek::Tivalo::StreamRead', '']
        write_if_changed(out_dir / 'model' / f'stream_rules_{index}.cpp', '\n'.join(out))
