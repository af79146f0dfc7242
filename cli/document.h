// Documents named on the command line and the document objects that take them in.
#pragma once

#include "cli/command.h"
#include "cli/late_binding.h"
#include "cli/text.h"
#include "cli/ubl_version.h"

#include <stdexcept>
#include <string>

namespace tivalo::cli {

// A document the tool cannot hand to the component at all: unreadable, or of no known class.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A document that was read but is not XML, or not a UBL document of any known class.
class NotADocument : public InputError {
 public:
  using InputError::InputError;
};

// Runs a command's work on one document and turns its failures into one line on standard error:
// the tool's own (exit 2) or the component's refusal (exit 1). `source` names the document the
// message is about; the work may change it (convert names its output file when writing fails).
template <class Work>
int reporting_failures(const std::string& source, Work work) {
  try {
    return work();
  } catch (const InputError& error) {
    print_error(source, error.what());
    return exit_failure;
  } catch (const ComponentError& error) {
    print_error(source, message_for_terminal(error.message()));
    return exit_findings;
  }
}

// How findings and errors name a document given on the command line: "<stdin>" for "-".
std::string document_name(const std::string& argument);

// A file, or standard input for "-". Standard input, pipes and whatever else cannot be read twice
// are read whole, once, since the root element is looked at first.
struct DocumentInput {
  std::string argument;  // as given on the command line
  std::string content;   // the bytes, when read whole
  bool in_memory = false;  // content holds the document; the component gets it as text
  bool regular_file = false;  // a file the component can read again itself
  std::string root;      // local name of the root element
  std::string ubl_version;  // what UBLVersionID says, when the document has one
  const UblVersion* read_as = nullptr;  // the library that takes the document in

  bool from_stdin() const { return argument == "-"; }
  std::string name() const { return document_name(argument); }
  std::wstring path() const;
  // The bytes read whole as the XML text the component takes.
  std::wstring xml() const;
  // The document's bytes: those read whole, or the file's read now. Throws InputError.
  std::string bytes() const;
  // "UBL 2.2 document, read as UBL 2.1" when the document says another version than the library
  // it is read with, else empty.
  std::string version_note() const;
};

// Throws InputError when the file cannot be opened (or is a directory), NotADocument when it holds
// no root element. `read_whole` reads a file into memory too, so that nothing reads it again.
// `ubl` is the --ubl value, null to go by the document's UBLVersionID.
DocumentInput open_document(const std::string& argument, const std::string* ubl, bool read_whole = false);

// A new object of the document class named by the input's root element in the library it is
// read with ("TivaloCOM21.Invoice" for <Invoice>). Throws NotADocument when no document class
// has that name.
struct Document {
  LateBound object;
  std::wstring class_name;  // "Invoice", as the class is spelled

  static Document for_input(const DocumentInput& input);
  // Read for a file, the XML property for a document read whole. Throws ComponentError, whose message
  // says so when the document is of another UBL version.
  void load(const DocumentInput& input) const;
};

}  // namespace tivalo::cli
