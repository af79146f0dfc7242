"""module/dispatch_tables.cpp: late binding's call table. For each class k, one thunk per member in
slot order, the same order as the catalogue's member table; each thunk is invoke_member
(module/invoke_member.h) over the interface's method, which converts the VARIANT arguments to
the method's parameter types and its [out, retval] result back. DISPIDs, kinds and
parameter names stay in the catalogue. A version whose table sets dispatch_parts has its thunks
in dispatch_tables_<n>.cpp and only the class table in dispatch_tables.cpp.
"""

from __future__ import annotations

from emit_interfaces import header_name
from output import GENERATED_NOTICE, write_if_changed


def source(catalogue) -> str:
    if catalogue.version.dispatch_parts:
        return _main_of_parts(catalogue)
    lines = [f"// {GENERATED_NOTICE}",
             '#include "module/invoke_member.h"',
             f'#include "{header_name(catalogue.version)}"', "",
             "namespace Morvek::Tivalo::Dispatch {", "",
             "namespace {", ""]
    for cls in catalogue.classes:
        lines.append(f"const Thunk t{cls.k}[] = {{  // {cls.interface}")
        interface = catalogue.version.q(cls.interface)
        lines += [f"    invoke_member<&{interface}::{m.cpp_name}>," for m in cls.members]
        lines.append("};")
    lines += ["", "}  // namespace", ""] + _class_thunks(catalogue)
    return "\n".join(lines)


def _class_thunks(catalogue) -> list[str]:
    lines = ["extern const ClassThunks class_thunks[];",
             "const ClassThunks class_thunks[] = {"]
    lines += [f"    {{t{cls.k}, {len(cls.members)}}}," for cls in catalogue.classes]
    lines += ["};",
              f"extern const size_t class_thunks_count;",
              f"const size_t class_thunks_count = {len(catalogue.classes)};", "",
              "}  // namespace Morvek::Tivalo::Dispatch", ""]
    return lines


def _parts(catalogue) -> list[list]:
    """The classes in dispatch_parts runs of about equal member counts."""
    count = catalogue.version.dispatch_parts
    total = sum(len(cls.members) for cls in catalogue.classes)
    parts, done = [[] for _ in range(count)], 0
    for cls in catalogue.classes:
        parts[min(count - 1, done * count // total)].append(cls)
        done += len(cls.members)
    return parts


def _main_of_parts(catalogue) -> str:
    lines = [f"// {GENERATED_NOTICE}",
             "// The thunks are in dispatch_tables_<n>.cpp.",
             '#include "module/invoke_member.h"', "",
             "namespace Morvek::Tivalo::Dispatch {", ""]
    lines += [f"extern const Thunk t{cls.k}[];" for cls in catalogue.classes]
    lines += [""] + _class_thunks(catalogue)
    return "\n".join(lines)


def _part(catalogue, classes) -> str:
    lines = [f"// {GENERATED_NOTICE}",
             '#include "module/invoke_member.h"',
             f'#include "{header_name(catalogue.version)}"', "",
             "namespace Morvek::Tivalo::Dispatch {", ""]
    for cls in classes:
        interface = catalogue.version.q(cls.interface)
        lines.append(f"extern const Thunk t{cls.k}[];")
        lines.append(f"const Thunk t{cls.k}[] = {{  // {cls.interface}")
        lines += [f"    invoke_member<&{interface}::{m.cpp_name}>," for m in cls.members]
        lines.append("};")
    lines += ["", "}  // namespace Morvek::Tivalo::Dispatch", ""]
    return "\n".join(lines)


def emit(catalogue, out_dir) -> None:
    write_if_changed(out_dir / "module" / "dispatch_tables.cpp", source(catalogue))
    if catalogue.version.dispatch_parts:
        for n, classes in enumerate(_parts(catalogue)):
            write_if_changed(out_dir / "module" / f"dispatch_tables_{n}.cpp", _part(catalogue, classes))
