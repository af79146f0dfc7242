"""module/catalogue_data.cpp: the catalogue as constant data (see module/catalogue.h).

Parameter lists are shared between members that have the same ones, so the table of members
stays one line per member.
"""

from __future__ import annotations

from output import GENERATED_NOTICE, guid_initializer, write_if_changed

MEMBER_KINDS = {"propget": "PropGet", "propput": "PropPut", "method": "Method"}
PARAM_TYPES = {"BSTR": "Bstr", "DATE": "Date", "R8": "Double", "BOOL": "Bool", "I4": "Long",
               "VARIANT": "Variant", "object": "Object"}
CLASS_KINDS = {"datatype": "DataType", "aggregate": "Aggregate", "document": "Document"}


def _string(text: str | None) -> str:
    return "nullptr" if text is None else f'"{text}"'


class _ParamLists:
    """Names each distinct parameter list once: p0, p1, ..."""

    def __init__(self, catalogue):
        self._k = {cls.name: cls.k for cls in catalogue.classes}
        self.names: dict[tuple, str] = {}

    def name_of(self, params) -> str:
        if not params:
            return "nullptr"
        rows = tuple(
            f"{{{_string(p.name)}, ParamType::{PARAM_TYPES[p.type]}, "
            f"{self._k[p.object_class] if p.object_class else -1}, "
            f"{'true' if p.direction == 'retval' else 'false'}}}" for p in params)
        return self.names.setdefault(rows, f"p{len(self.names)}")

    def definitions(self) -> list[str]:
        return [f"constexpr Param {name}[] = {{{', '.join(rows)}}};"
                for rows, name in self.names.items()]


def source(catalogue) -> str:
    params = _ParamLists(catalogue)
    member_tables = []
    for cls in catalogue.classes:
        member_tables.append(f"constexpr Member m{cls.k}[] = {{  // {cls.interface}")
        member_tables += [
            f"    {{MemberKind::{MEMBER_KINDS[m.kind]}, \"{m.name}\", \"{m.cpp_name}\", "
            f"{m.dispid}, {m.slot}, {len(m.params)}, {params.name_of(m.params)}}},"
            for m in cls.members]
        member_tables.append("};")

    library = catalogue.library
    class_rows = [
        f"    {{{cls.k}, \"{cls.typelib_name}\", \"{cls.name}\", ClassKind::{CLASS_KINDS[cls.kind]}, "
        f"{guid_initializer(cls.clsid)}, {guid_initializer(cls.iid)}, \"{cls.interface}\", "
        f"{len(cls.members)}, m{cls.k}, \"{cls.class_help}\", \"{cls.interface_help}\"}},"
        for cls in catalogue.classes]
    lines = [
        f"// {GENERATED_NOTICE}",
        '#include "module/catalogue.h"', "",
        "namespace Morvek::Tivalo::TypeLibrary {", "",
        "namespace {", "",
        *params.definitions(), "",
        *member_tables, "",
        "}  // namespace", "",
        f"const Library library = {{\"{library.name}\", {guid_initializer(library.libid)}, "
        f"{library.version[0]}, {library.version[1]}, {library.lcid}, \"{library.helpstring}\", "
        f"\"stdole2.tlb\"}};", "",
        "extern const Class generated_classes[];",
        "const Class generated_classes[] = {", *class_rows, "};",
        "extern const size_t generated_class_count;",
        f"const size_t generated_class_count = {len(catalogue.classes)};", "",
        "}  // namespace Morvek::Tivalo::TypeLibrary", ""]
    return "\n".join(lines)


def emit(catalogue, out_dir) -> None:
    write_if_changed(out_dir / "module" / "catalogue_data.cpp", source(catalogue))
