// The interface catalogue compiled into the library: what a type library holds on Windows.
// Late binding, type information, registration and the command line read the surface from
// here; the data itself is generated from the schemas (catalogue_data.cpp, idl_text.cpp).
#pragma once

#include "platform/automation.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Morvek::Tivalo::TypeLibrary {

enum class MemberKind : uint8_t { PropGet, PropPut, Method };

enum class ParamType : uint8_t { Bstr, Date, Double, Bool, Long, Variant, Object };

struct Param {
  const char* name;      // nullptr for the unnamed value of a propput
  ParamType type;
  int16_t object_class;  // k of the class whose interface an Object parameter carries, else -1
  bool retval;           // [out, retval]; every other parameter is [in]
};

struct Member {
  MemberKind kind;
  const char* name;      // published name: "ID", "IsIDSet", "getInvoiceLine", "XML"
  const char* cpp_name;  // virtual method: "get_ID", "get_IsIDSet", "getInvoiceLine", "put_XML"
  DISPID dispid;         // a property's get and put share one
  uint16_t slot;         // virtual-table slot, from 7
  uint8_t param_count;
  const Param* params;
};

enum class ClassKind : uint8_t { DataType, Aggregate, Document };

struct Class {
  uint16_t k;                  // catalogue order; the GUIDs and registry resource hang on it
  const char* name;            // type-library spelling: "item"
  const char* progid_name;     // "Item", as in "TivaloCOM.Item"
  ClassKind kind;
  GUID clsid;
  GUID iid;
  const char* interface_name;  // "IItem"
  uint16_t member_count;
  const Member* members;       // in slot order
  const char* class_help;      // "Item Class"
  const char* interface_help;  // "IItem Interface"
};

struct Library {
  const char* name;            // "TivaloCOMLib"
  GUID libid;
  uint16_t major_version;
  uint16_t minor_version;
  LCID lcid;
  const char* help_string;
  const char* imported_library;  // "stdole2.tlb", for IDispatch
};

extern const Library library;

// All classes, indexed by k.
const Class* classes();
size_t class_count();

// Case-insensitive, so "item", "Item" and "ITEM" all find the item class. nullptr if unknown.
const Class* find_class_by_name(std::string_view name);
const Class* find_class_by_clsid(const GUID& clsid);
const Class* find_class_by_iid(const GUID& iid);

// The type library's source, as MIDL would compile it.
const char* idl_text();

// The same, for a host that loads the library on first use (exported as TivaloCatalogue).
struct CatalogueTable {
  decltype(&TypeLibrary::classes) classes;
  decltype(&TypeLibrary::class_count) class_count;
  decltype(&TypeLibrary::find_class_by_name) find_class_by_name;
  decltype(&TypeLibrary::idl_text) idl_text;
};

}  // namespace Morvek::Tivalo::TypeLibrary

extern "C" const Morvek::Tivalo::TypeLibrary::CatalogueTable* TivaloCatalogue();
