"""module/registry_scripts.cpp: the registry script resources of the module, in the registrar's
script language (see module/registrar.h): one resource for the application identity and one per
class k, numbered from the version's table (2.0: 101 and 103 + k; 2.1: 1001 and 1003 + k). The registrar replaces %APPID% and %MODULE% when it runs them.

The Windows module carries the same scripts as resources of type REGISTRY:
module/registry/<id>.rgs and module/registry_scripts.rc, which names them.
"""

from __future__ import annotations

from output import GENERATED_NOTICE, write_if_changed

APP_ID_SCRIPT = """\
HKCR
{{
\tNoRemove AppID
\t{{
\t\t'%APPID%' = s '{module}'
\t\t'{module}.DLL'
\t\t{{
\t\t\tval AppID = s '%APPID%'
\t\t}}
\t}}
}}
"""

# One per class; only the class name and its CLSID change. The ProgID keeps the proper-case name
# ("TivaloCOM.Item") whatever the type library calls the class.
CLASS_SCRIPT = """\
HKCR
{{
\t{module}.{name}.1 = s '{name} Class'
\t{{
\t\tCLSID = s '{clsid}'
\t}}
\t{module}.{name} = s '{name} Class'
\t{{
\t\tCLSID = s '{clsid}'
\t\tCurVer = s '{module}.{name}.1'
\t}}
\tNoRemove CLSID
\t{{
\t\tForceRemove {clsid} = s '{name} Class'
\t\t{{
\t\t\tProgID = s '{module}.{name}.1'
\t\t\tVersionIndependentProgID = s '{module}.{name}'
\t\t\tForceRemove 'Programmable'
\t\t\tInprocServer32 = s '%MODULE%'
\t\t\t{{
\t\t\t\tval ThreadingModel = s 'Apartment'
\t\t\t}}
\t\t\t'TypeLib' = s '{libid}'
\t\t}}
\t}}
}}
"""


def class_script(cls, catalogue) -> str:
    return CLASS_SCRIPT.format(module=catalogue.version.module_name, name=cls.name,
                               clsid=cls.clsid, libid=catalogue.library.libid)


def _literal(text: str) -> str:
    return 'LR"(' + text + ')"'


def _scripts(catalogue) -> list[tuple[int, str, str]]:
    version = catalogue.version
    scripts = [(version.app_id_resource, "application identity",
                APP_ID_SCRIPT.format(module=version.module_name))]
    scripts += [(version.first_class_resource + cls.k, cls.name, class_script(cls, catalogue))
                for cls in catalogue.classes]
    return scripts


def resource_script(catalogue) -> str:
    lines = [f"// {GENERATED_NOTICE}"]
    lines += [f'{resource} REGISTRY "registry/{resource}.rgs"  // {comment}'
              for resource, comment, _ in _scripts(catalogue)]
    return "\n".join(lines) + "\n"


def source(catalogue) -> str:
    scripts = _scripts(catalogue)
    lines = [f"// {GENERATED_NOTICE}",
             '#include "module/registrar.h"', "",
             "namespace Morvek::Tivalo::Registrar {", "",
             "namespace {", "",
             "struct ScriptResource {", "  int id;", "  const wchar_t* text;", "};", "",
             "const ScriptResource scripts[] = {"]
    for resource, comment, text in scripts:
        lines.append(f"    {{{resource}, {_literal(text)}}},  // {comment}")
    lines += ["};", "", "}  // namespace", "",
              "const wchar_t* registry_script(int id) {",
              "  for (const auto& script : scripts) {",
              "    if (script.id == id) return script.text;",
              "  }",
              "  return nullptr;",
              "}", "",
              "}  // namespace Morvek::Tivalo::Registrar", ""]
    return "\n".join(lines)


def emit(catalogue, out_dir) -> None:
    write_if_changed(out_dir / "module" / "registry_scripts.cpp", source(catalogue))
    for resource, _, text in _scripts(catalogue):
        write_if_changed(out_dir / "module" / "registry" / f"{resource}.rgs", text)
    write_if_changed(out_dir / "module" / "registry_scripts.rc", resource_script(catalogue))
