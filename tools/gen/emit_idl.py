"""module/<module>.idl (TivaloCOM.idl, TivaloCOM21.idl) and module/idl_text.cpp: the type library's source text.

The IDL is what MIDL would compile into the type library; idl_text.cpp carries the same text
into the library (TypeLibrary::idl_text()), so the command line and the tests can show it without
the source tree.
"""

from __future__ import annotations

from output import GENERATED_NOTICE, write_if_changed

IDL_TYPES = {"BSTR": "BSTR", "DATE": "DATE", "R8": "double", "BOOL": "VARIANT_BOOL",
             "I4": "long", "VARIANT": "VARIANT"}
MEMBER_ATTRIBUTES = {"propget": "propget, ", "propput": "propput, ", "method": ""}
CHUNK = 12000  # characters per raw string literal, well inside every compiler's limit
DELIMITER = "idl"


def _param(param) -> str:
    if param.type == "object":
        type_ = f"I{param.object_class}*"
    else:
        type_ = IDL_TYPES[param.type]
    if param.direction == "retval":
        return f"[out, retval] {type_}* {param.name}"
    # A propput's value carries no name in the type library; MIDL still wants one here.
    return f"[in] {type_} {param.name or 'newVal'}"


def _member(member) -> str:
    params = ", ".join(_param(p) for p in member.params)
    return (f"\t[{MEMBER_ATTRIBUTES[member.kind]}id({member.dispid})] "
            f"HRESULT {member.name}({params});")


def _interface(cls) -> list[str]:
    return ["[", "\tobject,", f"\tuuid({cls.iid.strip('{}')}),", "\tdual,", "\tnonextensible,",
            "\toleautomation,", f'\thelpstring("{cls.interface_help}"),',
            "\tpointer_default(unique)", "]", f"interface {cls.interface} : IDispatch", "{",
            *[_member(m) for m in cls.members], "};", ""]


def _coclass(cls) -> list[str]:
    return ["\t[", f"\t\tuuid({cls.clsid.strip('{}')}),", f'\t\thelpstring("{cls.class_help}")',
            "\t]", f"\tcoclass {cls.typelib_name}", "\t{",
            f"\t\t[default] interface {cls.interface};", "\t};", ""]


def idl(catalogue) -> str:
    library = catalogue.library
    lines = [f"// {GENERATED_NOTICE}",
             f"// Source of the {library.name} type library.", "",
             'import "oaidl.idl";', 'import "ocidl.idl";', ""]
    lines += [f"interface {cls.interface};" for cls in catalogue.classes]
    lines.append("")
    for cls in catalogue.classes:
        lines += _interface(cls)
    lines += ["[", f"\tuuid({library.libid.strip('{}')}),",
              f"\tversion({library.version[0]}.{library.version[1]}),",
              f'\thelpstring("{library.helpstring}")', "]", f"library {library.name}", "{",
              '\timportlib("stdole2.tlb");', ""]
    for cls in catalogue.classes:
        lines += _coclass(cls)
    lines += ["};", ""]
    return "\n".join(lines)


def _chunks(text: str) -> list[str]:
    """Splits at line ends into pieces of at most about CHUNK characters."""
    chunks, current = [], ""
    for line in text.splitlines(keepends=True):
        if current and len(current) + len(line) > CHUNK:
            chunks.append(current)
            current = ""
        current += line
    return chunks + [current] if current else chunks


def source(text: str) -> str:
    if f"){DELIMITER}\"" in text:
        raise ValueError("the IDL text contains the raw string delimiter")
    pieces = [f'    R"{DELIMITER}({chunk}){DELIMITER}",' for chunk in _chunks(text)]
    return "\n".join([
        f"// {GENERATED_NOTICE}",
        '#include "module/catalogue.h"', "", "#include <string>", "",
        "namespace Morvek::Tivalo::TypeLibrary {", "",
        "namespace {",
        "// In pieces: some compilers limit the length of one string literal.",
        "const char* const pieces[] = {", *pieces, "};",
        "}  // namespace", "",
        "const char* idl_text() {",
        "  static const std::string text = [] {",
        "    std::string joined;",
        "    for (const char* piece : pieces) joined += piece;",
        "    return joined;",
        "  }();",
        "  return text.c_str();",
        "}", "",
        "}  // namespace Morvek::Tivalo::TypeLibrary", ""])


def emit(catalogue, out_dir) -> None:
    text = idl(catalogue)
    write_if_changed(out_dir / "module" / f"{catalogue.version.module_name}.idl", text)
    write_if_changed(out_dir / "module" / "idl_text.cpp", source(text))
