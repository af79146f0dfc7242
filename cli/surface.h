// The component's surface as its type library describes it: classes, interfaces, members.
#pragma once

#include "module/catalogue.h"

#include <string>
#include <vector>

namespace tivalo::cli {

namespace Catalogue = Morvek::Tivalo::Catalogue;

// One readable family of an interface: a property with its Is<P>Set when it is optional, or a
// list as its <E>Count with its get<E>.
struct Property {
  const Catalogue::Member* get;        // the propget: <P>, or <E>Count of a list
  const Catalogue::Member* is_set;     // Is<P>Set; null for a required property
  const Catalogue::Member* list_item;  // get<E> of a list; null for a property
  // "<P>", or "<E>" for a list.
  std::string name() const;
};

// The readable families of a class in interface order. A document's XML is not one of them:
// it is the whole document again.
std::vector<Property> readable_properties(const Catalogue::Class& c);

// The class of the object a member hands back, null when it hands back a plain value.
const Catalogue::Class* result_class(const Catalogue::Member& member);

// A parameter's automation type as IDL spells it: "BSTR", "IIdentifier*", "long*".
std::string type_name(const Catalogue::Param& param);

const char* kind_name(Catalogue::MemberKind kind);
const char* kind_name(Catalogue::ClassKind kind);

}  // namespace tivalo::cli
