// tivalo convert: a document read into the object model of its class and written back out.
#include "cli/command.h"
#include "cli/document.h"
#include "cli/text.h"

#include <iostream>

namespace tivalo::cli {

int run_convert(const Arguments& arguments) {
  const std::string& argument = arguments.operands.front();
  const std::string* output = arguments.option("--output");
  std::string failing = document_name(argument);  // what an error message names
  return reporting_failures(failing, [&] {
    const DocumentInput input = open_document(argument);
    const Document document = Document::for_input(input);
    document.load(input);
    if (output) {
      failing = *output;
      document.object.call(L"Write", text_arguments(from_utf8(*output)));
    } else {
      // The XML property hands the written bytes over one per character.
      std::cout << narrow_bytes(document.object.get(L"XML").text());
      std::cout.flush();
    }
    return exit_clean;
  });
}

}  // namespace tivalo::cli
