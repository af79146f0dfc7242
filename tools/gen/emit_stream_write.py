"""The streaming writer's part of each automation class: `write_to`, which writes the class's
children (or a data type's attributes and content) as the binding's serializer would, one line per
child calling a template of model/stream_write.h.

Not an emitter of its own: emit_model.py asks it for the declarations and definitions it adds to
each class. The order is the document's, not the interface's: children in schema order (documents
publish UBLVersionID ahead of the extension block, but write it after), and a data type's
attributes in the order the DOM keeps them, by name.
"""



def _document_children(schemas, name):
    return [child.name for child in schemas.document_type(name).children]


def _in_document_order(cls, schemas):
    families = [f for f in cls.families if f.kind not in ('operations', 'content')]
    if cls.kind == 'datatype':
        return sorted(families, key=lambda f: f.element)
    if cls.kind == 'document':
        order = {name: i for i, name in enumerate(_document_children(schemas, cls.name))}
        return sorted(families, key=lambda f: order[f.element])
    return families


def _line(family):
    kind, element = family.kind, family.element
    if kind in ('attribute_optional', 'attribute_required'):
        return f'  write_attribute(w, m.{element}, "{element}");'
    template = 'write_required_child' if kind == 'object_required' else 'write_child'
    return f'  {template}(w, m.{element}, Prefix::{family.namespace}, "{element}");'


def declarations(cls):
    lines = ['  void write_to(XmlWriter& w) const;']
    if cls.kind == 'document':
        lines.append('  void write_document(XmlWriter& w) const override { write_document_of(*this, w); }')
    return lines


def definitions(cls, schemas, carried, binding=True):
    """`carried`: the elements kept as binding elements (extension content, in "ext"), or as
    DOM content where there is no binding."""
    name = cls.typelib_name
    out = [f'void {name}::write_to(XmlWriter& w) const {{']
    out += [_line(f) for f in _in_document_order(cls, schemas)]
    if binding:
        out += [f'  write_carried<binding_type::{element}_type>(w, m.{element}, Prefix::ext, "{element}");'
                for element in carried]
    else:
        out += [f'  write_carried(w, m.{element}, Prefix::ext, "{element}");' for element in carried]
    if any(f.kind == 'content' for f in cls.families):
        out.append('  write_content(w, m.Value);')
    out += ['}', '']
    return out
