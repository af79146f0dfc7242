"""module/<module>.typelib.idl: the IDL that widl compiles into the Windows DLL's type library.

It is the library's IDL (emit_idl) wherever widl can compile that. widl writes at most 512 type
descriptions into one library, and UBL 2.1's 303 classes need 606 (an interface and a class
each): then every interface goes into the library, with the classes of the documents, and the
other classes are known to the system through the registry alone.
"""

from __future__ import annotations

from emit_idl import _coclass, _interface, idl
from output import GENERATED_NOTICE, write_if_changed

WIDL_TYPE_LIMIT = 512


def typelib_idl(catalogue) -> str:
    classes = catalogue.classes
    if 2 * len(classes) <= WIDL_TYPE_LIMIT:
        return idl(catalogue)
    library = catalogue.library
    lines = [f"// {GENERATED_NOTICE}",
             f"// Source of the {library.name} type library as the Windows DLL carries it.", "",
             'import "oaidl.idl";', 'import "ocidl.idl";', ""]
    lines += [f"interface {cls.interface};" for cls in classes]
    lines += ["", "[", f"\tuuid({library.libid.strip('{}')}),",
              f"\tversion({library.version[0]}.{library.version[1]}),",
              f'\thelpstring("{library.helpstring}")', "]", f"library {library.name}", "{",
              '\timportlib("stdole2.tlb");', ""]
    for cls in classes:
        lines += _interface(cls)
    for cls in classes:
        if cls.kind == "document":
            lines += _coclass(cls)
    lines += ["};", ""]
    return "\n".join(lines)


def emit(catalogue, out_dir) -> None:
    write_if_changed(out_dir / "module" / f"{catalogue.version.module_name}.typelib.idl",
                     typelib_idl(catalogue))
