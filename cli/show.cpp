// tivalo show: the object graph of a document, every member that is set, read through IDispatch.
#include "cli/command.h"
#include "cli/document.h"
#include "cli/surface.h"
#include "cli/text.h"

#include <iostream>

namespace tivalo::cli {
namespace {

// A plain value as script hosts show it: the component's own coercion to text, with the control
// characters a document may carry escaped.
std::string value_text(const Variant& value) {
  switch (value->vt) {
    case VT_EMPTY:
    case VT_NULL: return "";
    case VT_BSTR: return escape_controls(to_utf8(value.text()));
    case VT_BOOL: return value.truth() ? "true" : "false";
    case VT_ARRAY | VT_UI1: {
      LONG lower = 0, upper = -1;
      SafeArrayGetLBound(value->parray, 1, &lower);
      SafeArrayGetUBound(value->parray, 1, &upper);
      return "(" + std::to_string(upper - lower + 1) + " bytes)";
    }
    default: break;
  }
  Variant text;
  if (FAILED(VariantChangeType(text.get(), &*value, 0, VT_BSTR))) return "?";
  return escape_controls(to_utf8(text.text()));
}

class GraphPrinter {
 public:
  explicit GraphPrinter(std::ostream& out) : out_(out) {}

  void members(const LateBound& object, const TypeLibrary::Class& c, int depth) {
    for (const Property& property : readable_properties(c)) {
      if (property.list_item) {
        const LONG count = object.get(property.get->dispid).number();
        const TypeLibrary::Class* item_class = result_class(*property.list_item);
        for (LONG i = 0; i < count; ++i) {
          std::vector<Variant> index;
          index.emplace_back(i);
          node(property.name() + "[" + std::to_string(i) + "]",
               object.call(property.list_item->dispid, std::move(index)), item_class, depth);
        }
      } else if (!property.is_set || object.get(property.is_set->dispid).truth()) {
        node(property.name(), object.get(property.get->dispid), result_class(*property.get), depth);
      }
    }
  }

 private:
  void node(const std::string& name, const Variant& value, const TypeLibrary::Class* c, int depth) {
    out_ << std::string(2 * depth, ' ') << name;
    ComPtr<IDispatch> child = value.object();
    if (!child || !c) {
      out_ << ": " << value_text(value) << '\n';
    } else if (c->kind == TypeLibrary::ClassKind::DataType) {
      out_ << ": " << data_type_text(LateBound(child), *c) << '\n';
    } else {
      out_ << '\n';
      members(LateBound(child), *c, depth + 1);
    }
  }

  // "value [Attribute=text, ...]", with the attributes that are set.
  static std::string data_type_text(const LateBound& object, const TypeLibrary::Class& c) {
    std::string value, attributes;
    for (const Property& property : readable_properties(c)) {
      if (property.is_set && !object.get(property.is_set->dispid).truth()) continue;
      std::string text = value_text(object.get(property.get->dispid));
      if (property.name() == "Value") {
        value = text;
      } else if (property.is_set || !text.empty()) {
        attributes += (attributes.empty() ? "" : ", ") + property.name() + "=" + text;
      }
    }
    return attributes.empty() ? value : value + " [" + attributes + "]";
  }

  std::ostream& out_;
};

}  // namespace

int run_show(const Arguments& arguments) {
  const std::string source = document_name(arguments.operands.front());
  return reporting_failures(source, [&] {
    const DocumentInput input = open_document(arguments.operands.front(), arguments.option("--ubl"));
    const Document document = Document::for_input(input);
    document.load(input);
    use_catalogue_of(*input.read_as);
    const std::string class_name = to_utf8(document.class_name);
    const TypeLibrary::Class* c = TypeLibrary::find_class_by_name(class_name);
    if (!c) throw InputError("no type information for " + class_name);
    std::cout << class_name << '\n';
    GraphPrinter(std::cout).members(document.object, *c, 1);
    return exit_clean;
  });
}

}  // namespace tivalo::cli
