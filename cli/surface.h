// The component's surface as its type library describes it: classes, interfaces, members.
#pragma once

#include "module/catalogue.h"

#include <string>
#include <vector>

namespace Morvek::Tivalo::TypeLibrary {
// From here on the tool reads the UBL 2.1 library's catalogue (cli/catalogue_loader.cpp).
void use_ubl21_catalogue();
}  // namespace Morvek::Tivalo::TypeLibrary

namespace tivalo::cli {

namespace TypeLibrary = Morvek::Tivalo::TypeLibrary;

// One readable family of an interface: a property with its Is<P>Set when it is optional, or a
// list as its <E>Count with its get<E>.
struct Property {
  const TypeLibrary::Member* get;        // the propget: <P>, or <E>Count of a list
  const TypeLibrary::Member* is_set;     // Is<P>Set; null for a required property
  const TypeLibrary::Member* list_item;  // get<E> of a list; null for a property
  // "<P>", or "<E>" for a list.
  std::string name() const;
};

// The readable families of a class in interface order. A document's XML is not one of them:
// it is the whole document again.
std::vector<Property> readable_properties(const TypeLibrary::Class& c);

// The class of the object a member hands back, null when it hands back a plain value.
const TypeLibrary::Class* result_class(const TypeLibrary::Member& member);

// A parameter's automation type as IDL spells it: "BSTR", "IIdentifier*", "long*".
std::string type_name(const TypeLibrary::Param& param);

const char* kind_name(TypeLibrary::MemberKind kind);
const char* kind_name(TypeLibrary::ClassKind kind);

}  // namespace tivalo::cli
