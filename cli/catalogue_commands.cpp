// tivalo classes, members and idl: the type library of the component, as text.
#include "cli/command.h"
#include "cli/surface.h"
#include "cli/text.h"
#include "cli/ubl_version.h"

#include <cstdio>
#include <iostream>

namespace tivalo::cli {
namespace {

// "UBLVersionID([out, retval] IIdentifier** val)"; a propput's value has no name.
std::string signature(const TypeLibrary::Member& member) {
  std::string text = std::string(member.name) + "(";
  for (int i = 0; i < member.param_count; ++i) {
    const TypeLibrary::Param& param = member.params[i];
    if (i > 0) text += ", ";
    text += param.retval ? "[out, retval] " : "[in] ";
    text += type_name(param);
    if (param.name) text += std::string(" ") + param.name;
  }
  return text + ")";
}

std::string guid_text(const GUID& guid) { return to_utf8(tivalo::to_wstring(guid)); }

// `--ubl 2.0` (the default) or `--ubl 2.1`: whose library's catalogue is shown. The library's name.
std::string choose_library(const Arguments& arguments) {
  const std::string* ubl = arguments.option("--ubl");
  const UblVersion& version = ubl_version_named(ubl ? *ubl : "2.0");
  use_catalogue_of(version);
  std::wstring_view prefix = version.progid_prefix;
  prefix.remove_suffix(1);  // the dot
  return to_utf8(std::wstring(prefix));
}

}  // namespace

int run_classes(const Arguments& arguments) {
  choose_library(arguments);
  std::printf("%-4s %-40s %-10s %s\n", "k", "class", "kind", "members");
  for (size_t k = 0; k < TypeLibrary::class_count(); ++k) {
    const TypeLibrary::Class& c = TypeLibrary::classes()[k];
    std::printf("%-4u %-40s %-10s %u\n", unsigned(c.k), c.progid_name, kind_name(c.kind),
                unsigned(c.member_count));
  }
  return exit_clean;
}

int run_members(const Arguments& arguments) {
  const std::string library = choose_library(arguments);
  const std::string& name = arguments.operands.front();
  const TypeLibrary::Class* c = TypeLibrary::find_class_by_name(name);
  // "IInvoice" names the class's interface.
  if (!c && name.size() > 1 && (name[0] == 'I' || name[0] == 'i'))
    c = TypeLibrary::find_class_by_name(name.substr(1));
  if (!c) {
    print_error("members", "no class '" + name + "' (see 'tivalo classes')");
    return exit_failure;
  }
  std::printf("coclass %s %s, %s.%s\n", c->progid_name, guid_text(c->clsid).c_str(), library.c_str(),
              c->progid_name);
  std::printf("interface %s %s, %u members\n", c->interface_name, guid_text(c->iid).c_str(),
              unsigned(c->member_count));
  std::printf("%6s  %-7s  %4s  %s\n", "DISPID", "kind", "slot", "member");
  for (const TypeLibrary::Member* m = c->members; m != c->members + c->member_count; ++m) {
    std::printf("%6d  %-7s  %4u  %s\n", int(m->dispid), kind_name(m->kind), unsigned(m->slot),
                signature(*m).c_str());
  }
  return exit_clean;
}

int run_idl(const Arguments& arguments) {
  choose_library(arguments);
  std::cout << TypeLibrary::idl_text();
  return exit_clean;
}

}  // namespace tivalo::cli
