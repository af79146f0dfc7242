// tivalo convert: a document read into the object model of its class and written back out.
#include "cli/command.h"
#include "cli/document.h"
#include "cli/text.h"

#include "document/file_replace.h"

#include <cerrno>
#include <iostream>

namespace tivalo::cli {
namespace {

// The same replacement as the component's Write: a read-only target is refused, a symbolic link
// is written through, the temporary file is private until it is complete.
void write_output(const std::string& target, const std::string& bytes) {
  const Morvek::Tivalo::Files::Replaced written = Morvek::Tivalo::Files::replace_file(target, bytes);
  if (written.error == EISDIR) throw InputError("is a directory");
  if (!written.ok()) throw InputError("cannot write: " + Morvek::Tivalo::Files::reason(written.error));
}

}  // namespace

int run_convert(const Arguments& arguments) {
  const std::string& argument = arguments.operands.front();
  const std::string* output = arguments.option("--output");
  std::string failing = document_name(argument);  // what an error message names
  return reporting_failures(failing, [&] {
    const DocumentInput input = open_document(argument, arguments.option("--ubl"));
    const Document document = Document::for_input(input);
    document.load(input);
    // The XML property hands the written bytes over one per character.
    const std::string bytes = narrow_bytes(document.object.get(L"XML").text());
    if (output) {
      failing = *output;
      write_output(*output, bytes);
    } else {
      std::cout << bytes;
      std::cout.flush();
      if (!std::cout) {
        failing = "<stdout>";
        throw InputError("cannot write");
      }
    }
    return exit_clean;
  });
}

}  // namespace tivalo::cli
