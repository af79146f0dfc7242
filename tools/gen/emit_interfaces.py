"""tivalo/interfaces.h and tivalo/guids.cpp: the dual interfaces for early binding.

Each interface is an abstract struct deriving from IDispatch with one pure virtual method per
member in catalogue slot order, so its virtual table is the one a C++ client on Windows binds
to. The GUID constants are declared beside them and defined in guids.cpp.

A version with an interface namespace (2.1: TivaloCOM21) declares everything inside it, with C++
linkage, so that one program can include and link both libraries' headers and GUIDs.
"""

from __future__ import annotations

from output import GENERATED_NOTICE, guid_initializer, write_if_changed

CPP_TYPES = {"BSTR": "BSTR", "DATE": "DATE", "R8": "double", "BOOL": "VARIANT_BOOL",
             "I4": "LONG", "VARIANT": "VARIANT"}


def cpp_type(param) -> str:
    base = f"I{param.object_class}*" if param.type == "object" else CPP_TYPES[param.type]
    return base + "*" if param.direction == "retval" else base


def cpp_signature(member) -> str:
    """The parameter list; the unnamed value of a propput is called newVal, as MIDL does."""
    return ", ".join(f"{cpp_type(p)} {p.name or 'newVal'}" for p in member.params)


def _interface(cls, linkage, namespace) -> list[str]:
    lines = [f'{linkage}const CLSID CLSID_{cls.name};',
             f'{linkage}const IID IID_{cls.interface};',
             f"struct {cls.interface} : public IDispatch {{"]
    lines += [f"  virtual HRESULT STDMETHODCALLTYPE {m.cpp_name}({cpp_signature(m)}) = 0;"
              for m in cls.members]
    lines.append("};")
    if not namespace:
        lines.append(f"TIVALO_IID_OF({cls.interface})")
    return lines + [""]


def header_name(version) -> str:
    """Where a client includes the interfaces from: one file per library."""
    if not version.interface_namespace:
        return "tivalo/interfaces.h"
    return f"tivalo/interfaces{version.key.replace('.', '')[:2]}.h"


def header(catalogue) -> str:
    namespace = catalogue.version.interface_namespace
    linkage = 'extern "C" ' if not namespace else "extern "
    lines = [f"// {GENERATED_NOTICE}",
             f"// The dual interfaces of {catalogue.library.name}, members in virtual-table order.",
             "#pragma once", "", '#include "platform/automation.h"', ""]
    if namespace:
        lines += [f"namespace {namespace} {{", ""]
    lines += [f"extern const GUID LIBID_{catalogue.library.name};", ""]
    lines += [f"struct {cls.interface};" for cls in catalogue.classes]
    lines.append("")
    for cls in catalogue.classes:
        lines += _interface(cls, linkage, namespace)
    if namespace:
        # The interfaces' IIDs for tivalo::ComPtr and QueryInterface, named from outside.
        lines += [f"}}  // namespace {namespace}", "", "namespace tivalo {"]
        lines += [f"template <> inline const IID& iid_of<{namespace}::{cls.interface}>() "
                  f"{{ return {namespace}::IID_{cls.interface}; }}" for cls in catalogue.classes]
        lines += ["}  // namespace tivalo", ""]
    return "\n".join(lines)


def guids(catalogue) -> str:
    namespace = catalogue.version.interface_namespace
    linkage = 'extern "C" ' if not namespace else "extern "
    lines = [f"// {GENERATED_NOTICE}", f'#include "{header_name(catalogue.version)}"', ""]
    if namespace:
        lines += [f"namespace {namespace} {{", ""]
    lines += [f"extern const GUID LIBID_{catalogue.library.name} = "
              f"{guid_initializer(catalogue.library.libid)};"]
    for cls in catalogue.classes:
        lines.append(f'{linkage}const CLSID CLSID_{cls.name} = {guid_initializer(cls.clsid)};')
        lines.append(f'{linkage}const IID IID_{cls.interface} = {guid_initializer(cls.iid)};')
    if namespace:
        lines += ["", f"}}  // namespace {namespace}"]
    return "\n".join(lines) + "\n"


def emit(catalogue, out_dir) -> None:
    write_if_changed(out_dir / header_name(catalogue.version), header(catalogue))
    write_if_changed(out_dir / "tivalo" / "guids.cpp", guids(catalogue))
