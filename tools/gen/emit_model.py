"""Emits the automation classes: one class per catalogue entry, declared in model/classes.h with a
member record and one line per interface member, and their constructors and converters (the load
and store steps) in model/classes_<n>.cpp. Also model/class_table.cpp, the class table in catalogue
order that the module's class map is built from.

A version without a binding (2.1) gets classes without the load and store steps: the streaming
reader and writer are its only way in and out, and its extension content is carried as a DOM
(CarriedDom) rather than as a binding element.

Every line calls a template of model/entries.h or model/convert.h: the behaviour of each accessor
family lives there, not here.
"""

import emit_stream_write
import versions
from emit_interfaces import header_name
from output import GENERATED_NOTICE, write_if_changed

CHUNKS = 8  # translation units for the class bodies: the binding headers are heavy to parse

# Entry types of the member record, per family kind and automation type.
VALUE_ENTRY = {
    ('DATE', 'date'): 'Date', ('DATE', 'time'): 'Time',
    ('BOOL', None): 'Indicator', ('R8', None): 'Number',
}
CONTENT_ENTRY = {'BSTR': 'TextContent', 'R8': 'NumberContent', 'VARIANT': 'BytesContent'}

# What each member of a family forwards to, in the family's member order.
FAMILY_OPERATIONS = {
    'object_optional': ['get', 'put', 'is_set'],
    'object_required': ['get', 'put'],
    'value_optional': ['get', 'put', 'is_set'],
    'value_required': ['get', 'put'],
    'attribute_optional': ['get', 'put', 'is_set'],
    'attribute_required': ['get', 'put'],
    'list': ['get', 'add', 'remove', 'clear', 'count'],
    'content': ['put', 'get'],
}

# Binding elements that the interface does not expose but that must survive a read and a write.
CARRIED_ELEMENTS = {'UBLExtension': ['ExtensionContent']}

# The version being emitted (emit() sets it from the catalogue).
VERSION = versions.UBL_2_0

CPP_TYPES = {'BSTR': 'BSTR', 'DATE': 'DATE', 'R8': 'double', 'BOOL': 'VARIANT_BOOL',
             'I4': 'LONG', 'VARIANT': 'VARIANT'}


def class_name(cls):
    return cls.typelib_name


def qualified_class(cls):
    namespace = VERSION.model_namespace if cls.kind == 'document' else VERSION.common_namespace
    return f'{namespace}::{class_name(cls)}'


def class_namespaces():
    """The classes' namespaces and the kinds each holds, in the order they are emitted."""
    return ((VERSION.common_namespace, ('datatype', 'aggregate')),
            (VERSION.model_namespace, ('document',)))


def carried_entry():
    return 'CarriedElement' if VERSION.binding else 'CarriedDom'


def binding_header(cls):
    if cls.kind == 'document':
        return f'binding/docs/UBL-{cls.name}-2.0.hxx'
    if cls.kind == 'datatype':
        return 'binding/types/UnqualifiedDataTypeSchemaModule-2.0.hxx'
    if cls.name in ('UBLExtension', 'UBLExtensions'):
        return 'binding/common/UBL-CommonExtensionComponents-2.0.hxx'
    return 'binding/common/UBL-CommonAggregateComponents-2.0.hxx'


def entry_type(family):
    kind = family.kind
    if kind in ('object_optional', 'object_required'):
        return f'ObjectEntry<I{family.object_class}>'
    if kind == 'list':
        return f'ObjectList<I{family.object_class}>'
    if kind in ('value_optional', 'value_required'):
        presence = 'Optional' if kind == 'value_optional' else 'Required'
        return presence + VALUE_ENTRY[(family.type, family.xsd)]
    if kind == 'attribute_optional':
        return 'OptionalAttribute'
    if kind == 'attribute_required':
        return 'RequiredAttribute'
    if kind == 'content':
        return CONTENT_ENTRY[family.type]
    raise ValueError(f'no entry for family kind {kind}')


def interface_name(catalogue, class_name_):
    return catalogue[class_name_].interface


def param_cpp_type(catalogue, param):
    if param.type == 'object':
        base = interface_name(catalogue, param.object_class) + '*'
    else:
        base = CPP_TYPES[param.type]
    return base + '*' if param.direction == 'retval' else base


def signature(catalogue, member):
    params = ', '.join(f'{param_cpp_type(catalogue, p)} {p.name or "newVal"}' for p in member.params)
    return f'HRESULT STDMETHODCALLTYPE {member.cpp_name}({params})'


def field(family):
    return family.element if family.kind != 'content' else 'Value'


def member_lines(catalogue, family):
    """One line per interface member: forward to the family's entry."""
    operations = FAMILY_OPERATIONS[family.kind]
    assert len(operations) == len(family.members), (family.name, family.kind)
    lines = []
    for operation, member in zip(operations, family.members):
        args = ', '.join(p.name or 'newVal' for p in member.params)
        lines.append(f'  {signature(catalogue, member)} override '
                     f'{{ return guarded([&] {{ return m.{field(family)}.{operation}({args}); }}); }}')
    return lines


def class_declaration(catalogue, cls):
    name = class_name(cls)
    families = [f for f in cls.families if f.kind != 'operations']
    if cls.kind == 'document':
        base = f'DocumentObject<{name}, {cls.interface}>'
    else:
        base = f'Automation<{name}, {cls.interface}>'
    out = [f'class {name} final : public {base} {{',
           ' public:',
           f'  static constexpr int catalogue_index = {cls.k};']
    if VERSION.binding:
        out.append(f'  using binding_type = ::{cls.binding_type};')
    if cls.kind == 'document':
        out.append('  static const DocumentBinding document_binding;')
    if cls.kind == 'document' and VERSION.binding:
        out += ['  void load_document(const tree::type& document) override;',
                '  std::unique_ptr<tree::type> store_document() const override;']
    out += [f'  {name}();',
            f'  ~{name}() override;']
    if VERSION.binding:
        out += ['  void load_from(const binding_type& b);',
                '  void store_to(binding_type& b) const;']
    out += emit_stream_write.declarations(cls)
    out += ['',
            '  struct Record {']
    out += [f'    {entry_type(f)} {field(f)};' for f in families]
    out += [f'    {carried_entry()} {element};' for element in CARRIED_ELEMENTS.get(cls.name, [])]
    out += ['  };', '  Record m;', '']
    for family in families:
        out += member_lines(catalogue, family)
    out.append('};')
    return out


def forward_binding_declaration(cls):
    *namespace, type_name = cls.binding_type.split('::')
    return f'namespace {"::".join(namespace)} {{ class {type_name}; }}'


def emit_header(catalogue, out_dir):
    classes = catalogue.classes
    out = [f'// {GENERATED_NOTICE}',
           '#pragma once',
           '',
           '#include "model/convert.h"',
           '#include "model/document.h"',
           '#include "model/stream_write.h"',
           '#include "model/entries.h"',
           '#include "model/guard.h"',
           f'#include "{header_name(VERSION)}"',
           '']
    if VERSION.binding:
        out += sorted({forward_binding_declaration(c) for c in classes})
    else:
        # The object model's templates and the version's interfaces, named as in the 2.0 classes.
        outer = VERSION.model_namespace
        out += [f'namespace {outer} {{', 'using namespace ::Morvek::Tivalo;',
                f'using namespace ::{VERSION.interface_namespace};', f'}}  // namespace {outer}']
    for namespace, kinds in class_namespaces():
        out += ['', f'namespace {namespace} {{', '']
        for cls in classes:
            if cls.kind in kinds:
                out += class_declaration(catalogue, cls) + ['']
        out.append(f'}}  // namespace {namespace}')
    out += ['', 'namespace Morvek::Tivalo {', '']
    for cls in classes:
        out.append(f'template <> struct ClassOf<{VERSION.q(cls.interface)}> {{ using type = {qualified_class(cls)}; '
                   f'static const CLSID& clsid() {{ return {VERSION.q("CLSID_" + cls.name)}; }} }};')
    out += ['', '}  // namespace Morvek::Tivalo', '']
    write_if_changed(out_dir / 'model' / 'classes.h', '\n'.join(out))


def accessor(cls, family):
    """The binding's accessor of an element: its name, unless that is the binding class's own
    name (ContractType in ContractType), which the binding generator numbers."""
    name = family.element
    return name + '1' if name == cls.binding_type.split('::')[-1] else name


def store_line(cls, family):
    name = accessor(cls, family)
    if family.kind in ('object_required', 'value_required', 'attribute_required'):
        return f'  b.{name}(to_binding<binding_type::{name}_type>(m.{field(family)}));'
    if family.kind == 'content':
        return '  assign_content(b, m.Value);'
    return f'  store(b.{name}(), m.{field(family)});'


def load_line(cls, family):
    if family.kind == 'content':
        return '  load_content(r.Value, b);'
    if family.kind == 'object_required':
        return f'  load_required(r.{field(family)}, b.{accessor(cls, family)}());'
    return f'  load(r.{field(family)}, b.{accessor(cls, family)}());'


def class_definitions(cls, schemas):
    name = class_name(cls)
    families = [f for f in cls.families if f.kind != 'operations']
    carried = CARRIED_ELEMENTS.get(cls.name, [])
    out = [f'{name}::{name}() {{']
    out += [f'  m.{field(f)}.create();' for f in families if f.kind == 'object_required']
    out += ['}', f'{name}::~{name}() = default;', '']
    if not VERSION.binding:
        out += emit_stream_write.definitions(cls, schemas, carried, VERSION.binding)
        if cls.kind == 'document':
            out += [f'const DocumentBinding {name}::document_binding = {{L"{cls.name}", '
                    f'L"{document_namespace(schemas, cls.name)}", &CLSID_{cls.name}, '
                    f'&IID_{cls.interface}, nullptr, nullptr, nullptr, nullptr, false}};', '']
        return out
    out.append(f'void {name}::load_from(const binding_type& b) {{')
    out.append('  Record r;')
    out += [load_line(cls, f) for f in families]
    out += [f'  load(r.{element}, b.{element}());' for element in carried]
    out += ['  m = std::move(r);', '}', '']
    out.append(f'void {name}::store_to(binding_type& b) const {{')
    out += [store_line(cls, f) for f in families]
    out += [f'  b.{element}(to_binding<binding_type::{element}_type>(m.{element}));' for element in carried]
    out += ['}', '']
    out += emit_stream_write.definitions(cls, schemas, carried, VERSION.binding)
    if cls.kind == 'document':
        out += [f'const DocumentBinding {name}::document_binding = TIVALO_DOCUMENT_BINDING({cls.name});',
                f'void {name}::load_document(const tree::type& d) {{ load_document_of(*this, d); }}',
                f'std::unique_ptr<tree::type> {name}::store_document() const {{ return stored_document_of(*this); }}',
                '']
    return out


def document_namespace(schemas, name):
    return next(uri for document, uri in schemas.documents if document == name)


def chunks(classes):
    """Spreads the classes over the chunks, documents (each with its own binding header) evenly."""
    buckets = [[] for _ in range(CHUNKS)]
    components = [c for c in classes if c.kind != 'document']
    for i, cls in enumerate(components):
        buckets[i * CHUNKS // len(components)].append(cls)
    documents = [c for c in classes if c.kind == 'document']
    for i, cls in enumerate(documents):
        buckets[i % CHUNKS].append(cls)
    return buckets


def emit_chunk(index, classes, out_dir, schemas):
    out = [f'// {GENERATED_NOTICE}',
           '#include "model/classes.h"']
    if VERSION.binding:
        headers = sorted({binding_header(c) for c in classes})
        out += ['#include "model/document_binding.h"', '']
        out += [f'#include "{h}"' for h in headers]
    for namespace, kinds in class_namespaces():
        members = [c for c in classes if c.kind in kinds]
        if not members:
            continue
        out += ['', f'namespace {namespace} {{', '']
        for cls in members:
            out += class_definitions(cls, schemas)
        out.append(f'}}  // namespace {namespace}')
    out.append('')
    write_if_changed(out_dir / 'model' / f'classes_{index}.cpp', '\n'.join(out))


def emit_class_table(catalogue, out_dir):
    out = [f'// {GENERATED_NOTICE}',
           '#include "model/classes.h"',
           '',
           'namespace Morvek::Tivalo {',
           '',
           'const ClassEntry class_table[] = {']
    out += [f'    {{&{VERSION.q("CLSID_" + c.name)}, &{qualified_class(c)}::create}},'
            for c in catalogue.classes]
    out += ['};',
            f'const int class_table_size = {len(catalogue.classes)};',
            '',
            '}  // namespace Morvek::Tivalo',
            '']
    write_if_changed(out_dir / 'model' / 'class_table.cpp', '\n'.join(out))


def emit(catalogue, out_dir):
    global VERSION
    VERSION = catalogue.version
    emit_header(catalogue, out_dir)
    for index, classes in enumerate(chunks(catalogue.classes)):
        emit_chunk(index, classes, out_dir, catalogue.schemas)
    emit_class_table(catalogue, out_dir)
