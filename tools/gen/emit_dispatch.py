"""module/dispatch_tables.cpp: late binding's call table. For each class k, one thunk per member in
slot order, the same order as the catalogue's member table; each thunk is invoke_member
(module/invoke_member.h) over the interface's method, which converts the VARIANT arguments to
the method's parameter types and its [out, retval] result back. DISPIDs, kinds and
parameter names stay in the catalogue.
"""

from __future__ import annotations

from emit_interfaces import header_name
from output import GENERATED_NOTICE, write_if_changed


def source(catalogue) -> str:
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
    lines += ["", "}  // namespace", "",
              "extern const ClassThunks class_thunks[];",
              "const ClassThunks class_thunks[] = {"]
    lines += [f"    {{t{cls.k}, {len(cls.members)}}}," for cls in catalogue.classes]
    lines += ["};",
              f"extern const size_t class_thunks_count;",
              f"const size_t class_thunks_count = {len(catalogue.classes)};", "",
              "}  // namespace Morvek::Tivalo::Dispatch", ""]
    return "\n".join(lines)


def emit(catalogue, out_dir) -> None:
    write_if_changed(out_dir / "module" / "dispatch_tables.cpp", source(catalogue))
