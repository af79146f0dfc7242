#include "cli/document.h"

#include "cli/root_element.h"
#include "cli/text.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

namespace tivalo::cli {
namespace {

// "TivaloCOM21.Invoice.1" -> "Invoice".
std::wstring class_name_of(REFCLSID clsid) {
  LPOLESTR progid = nullptr;
  if (FAILED(ProgIDFromCLSID(clsid, &progid)) || !progid) return {};
  std::wstring name(progid);
  CoTaskMemFree(progid);
  name.erase(0, name.find(L'.') + 1);
  const size_t version = name.rfind(L'.');
  if (version != std::wstring::npos) name.erase(version);
  return name;
}

}  // namespace

std::string document_name(const std::string& argument) {
  return argument == "-" ? "<stdin>" : argument;
}

std::wstring DocumentInput::path() const { return from_utf8(argument); }

std::wstring DocumentInput::xml() const { return widen_bytes(content); }

std::string DocumentInput::bytes() const {
  if (in_memory) return content;
  std::ifstream file(argument, std::ios::binary);
  if (!file) throw InputError(std::string("cannot open: ") + std::strerror(errno));
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::string DocumentInput::version_note() const {
  if (ubl_version.empty() || ubl_version == read_as->name) return {};
  return "UBL " + escape_controls(ubl_version) + " document, read as UBL " + std::string(read_as->name);
}

DocumentInput open_document(const std::string& argument, const std::string* ubl, bool read_whole) {
  DocumentInput input{argument, {}, false, false, {}, {}, nullptr};
  DocumentHead head;
  if (input.from_stdin()) {
    input.content.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    input.in_memory = true;
  } else {
    std::error_code ignored;
    const auto status = std::filesystem::status(argument, ignored);
    if (std::filesystem::is_directory(status)) throw InputError("is a directory");
    std::ifstream file(argument, std::ios::binary);
    if (!file) throw InputError(std::string("cannot open: ") + std::strerror(errno));
    input.regular_file = std::filesystem::is_regular_file(status);
    if (read_whole || !std::filesystem::is_regular_file(status)) {
      input.content.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
      if (file.bad()) throw InputError(std::string("cannot read: ") + std::strerror(errno));
      input.in_memory = true;
    } else {
      head = read_document_head(file);
    }
  }
  if (input.in_memory) {
    std::istringstream text(input.content);
    head = read_document_head(text);
  }
  input.root = head.root;
  input.ubl_version = head.ubl_version;
  input.read_as = &ubl_version_for(input.ubl_version, ubl);
  if (input.root.empty()) throw NotADocument("not an XML document: no root element found");
  return input;
}

Document Document::for_input(const DocumentInput& input) {
  const std::wstring root = from_utf8(input.root);
  const std::string not_a_document = "root element '" + escape_controls(input.root) +
                                     "' is not one of the UBL " + std::string(input.read_as->name) +
                                     " documents";
  const std::wstring progid = std::wstring(input.read_as->progid_prefix) + root;
  CLSID clsid;
  if (FAILED(CLSIDFromProgID(progid.c_str(), &clsid))) throw NotADocument(not_a_document);
  ComPtr<IDispatch> object;
  HRESULT status = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch, object.put_void());
  if (FAILED(status)) throw ComponentError(status, L"cannot create " + progid);
  Document document{LateBound(std::move(object)), class_name_of(clsid)};
  // Aggregates have class objects too; only documents can be read.
  if (document.object.find(L"Read") == DISPID_UNKNOWN) throw NotADocument(not_a_document);
  return document;
}

void Document::load(const DocumentInput& input) const {
  try {
    if (input.in_memory) {
      object.put(L"XML", Variant(input.xml()));
    } else {
      object.call(L"Read", text_arguments(input.path()));
    }
  } catch (const ComponentError& error) {
    const std::string note = input.version_note();
    if (note.empty()) throw;
    throw ComponentError(error.status(), error.message() + L" (" + from_utf8(note) + L")");
  }
}

}  // namespace tivalo::cli
