// The component's document operations beside the libraries it is measured against, on the same
// inputs, in one run. Benchmarks are named OPERATION/INPUT/WHO; scripts/bench prints each
// component time as a ratio to the other entries of its OPERATION/INPUT.
//
// Usage: compare_bench INPUT_DIR [google benchmark flags]
// INPUT_DIR holds the inputs scripts/bench generates (sample.xml, lines-1.xml, ..., 10kb.xml) and
// rules.xsl.
#include "binding/docs/UBL-Invoice-2.0.hxx"
#include "binding/namespaces.h"
#include "document/schema_findings.h"
#include "platform/automation.h"
#include "tivalo/interfaces.h"
#include "tivalo/interfaces21.h"

#include <benchmark/benchmark.h>
#include <type_traits>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlschemas.h>
#include <libxslt/transform.h>
#include <libxslt/xsltInternals.h>
#include <libxslt/xsltutils.h>
#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/LocalFileInputSource.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/XMLGrammarPoolImpl.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/sax/HandlerBase.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/validators/common/Grammar.hpp>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

using tivalo::Bstr;
using tivalo::ComPtr;
namespace fs = std::filesystem;

namespace {

fs::path inputs;
const std::string schema = TIVALO_SCHEMA_DIR "/maindoc/UBL-Invoice-2.0.xsd";

std::string bytes_of(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

// Document text as the XML put takes it: one character per byte.
Bstr xml_string(const std::string& bytes) {
  std::wstring wide(bytes.size(), L'\0');
  for (size_t i = 0; i < bytes.size(); ++i) wide[i] = wchar_t(static_cast<unsigned char>(bytes[i]));
  return Bstr(wide);
}

Bstr wide_path(const fs::path& file) { return Bstr(file.wstring()); }

// An invoice of the UBL 2.0 library (IInvoice) or of the UBL 2.1 library (TivaloCOM21::IInvoice).
template <class Invoice>
ComPtr<Invoice> new_invoice() {
  ComPtr<Invoice> invoice;
  if constexpr (std::is_same_v<Invoice, IInvoice>)
    CoCreateInstance(CLSID_Invoice, nullptr, CLSCTX_INPROC_SERVER, IID_IInvoice, invoice.put_void());
  else
    CoCreateInstance(TivaloCOM21::CLSID_Invoice, nullptr, CLSCTX_INPROC_SERVER,
                     TivaloCOM21::IID_IInvoice, invoice.put_void());
  return invoice;
}

void check(benchmark::State& state, bool ok, const char* what) {
  if (!ok) state.SkipWithError(what);
}

// ---- reading ----------------------------------------------------------------------------------

template <class Invoice = IInvoice>
void ReadTivalo(benchmark::State& state, fs::path file) {
  auto invoice = new_invoice<Invoice>();
  const Bstr path = wide_path(file);
  for (auto _ : state) check(state, invoice->Read(path.get()) == S_OK, "Read failed");
}

template <class Invoice = IInvoice>
void PutXmlTivalo(benchmark::State& state, fs::path file) {
  auto invoice = new_invoice<Invoice>();
  const Bstr xml = xml_string(bytes_of(file));
  for (auto _ : state) check(state, invoice->put_XML(xml.get()) == S_OK, "XML put failed");
}

void XercesDom(benchmark::State& state, fs::path file, bool from_memory) {
  const std::string bytes = bytes_of(file);
  xercesc::XercesDOMParser parser;
  parser.setDoNamespaces(true);
  parser.setValidationScheme(xercesc::XercesDOMParser::Val_Never);
  for (auto _ : state) {
    if (from_memory) {
      xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(bytes.data()),
                                        bytes.size(), "memory");
      parser.parse(source);
    } else {
      parser.parse(file.c_str());
    }
    check(state, parser.getErrorCount() == 0, "Xerces DOM parse failed");
    parser.resetDocumentPool();
  }
}

void XercesSax2(benchmark::State& state, fs::path file, bool from_memory) {
  const std::string bytes = bytes_of(file);
  std::unique_ptr<xercesc::SAX2XMLReader> reader(xercesc::XMLReaderFactory::createXMLReader());
  reader->setFeature(xercesc::XMLUni::fgSAX2CoreNameSpaces, true);
  reader->setFeature(xercesc::XMLUni::fgSAX2CoreValidation, false);
  xercesc::DefaultHandler handler;
  reader->setContentHandler(&handler);
  reader->setErrorHandler(&handler);
  for (auto _ : state) {
    if (from_memory) {
      xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(bytes.data()),
                                        bytes.size(), "memory");
      reader->parse(source);
    } else {
      reader->parse(file.c_str());
    }
  }
}

void Libxml2(benchmark::State& state, fs::path file, bool from_memory) {
  const std::string bytes = bytes_of(file);
  for (auto _ : state) {
    xmlDocPtr doc = from_memory ? xmlReadMemory(bytes.data(), int(bytes.size()), "memory",
                                                nullptr, XML_PARSE_NONET)
                                : xmlReadFile(file.c_str(), nullptr, XML_PARSE_NONET);
    check(state, doc != nullptr, "libxml2 parse failed");
    xmlFreeDoc(doc);
  }
}

// libxml2's SAX2 parser with handlers that do nothing: the floor under any streaming reader.
void Libxml2Sax2(benchmark::State& state, fs::path file, bool) {
  const std::string bytes = bytes_of(file);
  xmlSAXHandler handler{};
  handler.initialized = XML_SAX2_MAGIC;
  handler.startElementNs = [](void*, const xmlChar*, const xmlChar*, const xmlChar*, int,
                              const xmlChar**, int, int, const xmlChar**) {};
  handler.endElementNs = [](void*, const xmlChar*, const xmlChar*, const xmlChar*) {};
  handler.characters = [](void*, const xmlChar*, int) {};
  handler.serror = [](void*, xmlErrorPtr) {};
  for (auto _ : state) {
    xmlParserCtxtPtr context = xmlCreateMemoryParserCtxt(bytes.data(), int(bytes.size()));
    std::memcpy(context->sax, &handler, sizeof handler);
    xmlCtxtUseOptions(context, XML_PARSE_NONET | XML_PARSE_HUGE);
    xmlParseDocument(context);
    check(state, context->wellFormed, "libxml2 SAX2 parse failed");
    xmlFreeParserCtxt(context);
  }
}

// ---- writing ----------------------------------------------------------------------------------

template <class Invoice = IInvoice>
void WriteTivalo(benchmark::State& state, fs::path file) {
  auto invoice = new_invoice<Invoice>();
  invoice->Read(wide_path(file).get());
  const Bstr out = wide_path(fs::temp_directory_path() / "tivalo-bench-write.xml");
  for (auto _ : state) check(state, invoice->Write(out.get()) == S_OK, "Write failed");
}

template <class Invoice = IInvoice>
void GetXmlTivalo(benchmark::State& state, fs::path file) {
  auto invoice = new_invoice<Invoice>();
  invoice->Read(wide_path(file).get());
  for (auto _ : state) {
    Bstr xml;
    check(state, invoice->get_XML(xml.put()) == S_OK, "XML get failed");
  }
}

// The binding's own serialization of the same document, to a file or to memory.
void BindingSerialize(benchmark::State& state, fs::path file, bool to_file) {
  namespace Doc = Morvek::UBL2::Docs::Invoice;
  const auto document = Doc::Invoice(file.wstring(), xml_schema::flags::dont_validate |
                                                         xml_schema::flags::dont_initialize);
  const auto map = Morvek::UBL2::ubl_namespace_map(
      L"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2");
  const fs::path out = fs::temp_directory_path() / "tivalo-bench-binding.xml";
  for (auto _ : state) {
    if (to_file) {
      std::ofstream stream(out);
      Doc::Invoice(stream, *document, map, L"UTF-8", xml_schema::flags::dont_initialize);
    } else {
      std::ostringstream stream;
      Doc::Invoice(stream, *document, map, L"UTF-8", xml_schema::flags::dont_initialize);
      benchmark::DoNotOptimize(stream.str());
    }
  }
}

// libxml2's serialization of the same document, indented, as UTF-8, to a file or to memory. The
// document is parsed without its indentation so that libxml2 lays it out itself.
void Libxml2Serialize(benchmark::State& state, fs::path file, bool to_file) {
  xmlDocPtr doc = xmlReadFile(file.c_str(), nullptr, XML_PARSE_NONET | XML_PARSE_NOBLANKS);
  check(state, doc != nullptr, "libxml2 parse failed");
  const std::string out = (fs::temp_directory_path() / "tivalo-bench-libxml2.xml").string();
  for (auto _ : state) {
    if (to_file) {
      check(state, xmlSaveFormatFileEnc(out.c_str(), doc, "UTF-8", 1) > 0, "libxml2 save failed");
    } else {
      xmlChar* text = nullptr;
      int size = 0;
      xmlDocDumpFormatMemoryEnc(doc, &text, &size, "UTF-8", 1);
      check(state, text != nullptr, "libxml2 dump failed");
      xmlFree(text);
    }
  }
  xmlFreeDoc(doc);
}

// ---- validating -------------------------------------------------------------------------------

void ValidateTivalo(benchmark::State& state, fs::path file) {
  auto invoice = new_invoice<IInvoice>();
  const Bstr path = wide_path(file), xsd = Bstr(std::wstring(schema.begin(), schema.end()));
  for (auto _ : state) {
    Bstr errors;
    invoice->GetSchemaValidationErrors(path.get(), xsd.get(), errors.put());
    check(state, errors.get() == nullptr, "not valid");
  }
}

class CountErrors : public xercesc::HandlerBase {
 public:
  void error(const xercesc::SAXParseException&) override { ++count; }
  void fatalError(const xercesc::SAXParseException&) override { ++count; }
  int count = 0;
};

void XercesCachedGrammar(benchmark::State& state, fs::path file) {
  xercesc::XMLGrammarPoolImpl pool(xercesc::XMLPlatformUtils::fgMemoryManager);
  xercesc::XercesDOMParser parser(nullptr, xercesc::XMLPlatformUtils::fgMemoryManager, &pool);
  parser.setDoNamespaces(true);
  parser.setDoSchema(true);
  parser.setValidationScheme(xercesc::XercesDOMParser::Val_Always);
  parser.setHandleMultipleImports(true);
  CountErrors errors;
  parser.setErrorHandler(&errors);
  parser.loadGrammar(schema.c_str(), xercesc::Grammar::SchemaGrammarType, true);
  parser.useCachedGrammarInParse(true);
  pool.lockPool();
  const std::string location =
      "urn:oasis:names:specification:ubl:schema:xsd:Invoice-2 " + schema;
  parser.setExternalSchemaLocation(location.c_str());
  for (auto _ : state) {
    errors.count = 0;
    parser.parse(file.c_str());
    check(state, errors.count == 0, "Xerces finds the document invalid");
    parser.resetDocumentPool();
  }
}

void Libxml2Schema(benchmark::State& state, fs::path file) {
  xmlSchemaParserCtxtPtr context = xmlSchemaNewParserCtxt(schema.c_str());
  xmlSchemaPtr parsed = xmlSchemaParse(context);
  xmlSchemaValidCtxtPtr validation = xmlSchemaNewValidCtxt(parsed);
  for (auto _ : state) {
    xmlDocPtr doc = xmlReadFile(file.c_str(), nullptr, XML_PARSE_NONET);
    check(state, doc && xmlSchemaValidateDoc(validation, doc) == 0, "libxml2 finds it invalid");
    xmlFreeDoc(doc);
  }
  xmlSchemaFreeValidCtxt(validation);
  xmlSchemaFree(parsed);
  xmlSchemaFreeParserCtxt(context);
}

// The tool's worded schema findings: libxml2's streaming validator from the document's bytes,
// with the markup scan and the bookkeeping that names what is wrong.
void WordedFindings(benchmark::State& state, fs::path file) {
  for (auto _ : state) {
    std::ifstream in(file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    const auto report = Morvek::Tivalo::SchemaFindings::check(bytes, schema);
    check(state, report.outcome == Morvek::Tivalo::SchemaFindings::Report::Outcome::checked &&
                     report.findings.empty(), "the worded check finds it invalid");
  }
}

// ---- the rule check ---------------------------------------------------------------------------

void RulesTivalo(benchmark::State& state, fs::path file) {
  auto invoice = new_invoice<IInvoice>();
  const Bstr path = wide_path(file), xsl = wide_path(inputs / "rules.xsl");
  for (auto _ : state) {
    Bstr errors;
    invoice->GetValueValidationErrors(path.get(), xsl.get(), errors.put());
    check(state, errors.get() == nullptr, "the rules find something");
  }
}

void LibxsltCompiled(benchmark::State& state, fs::path file) {
  xsltStylesheetPtr stylesheet =
      xsltParseStylesheetFile(reinterpret_cast<const xmlChar*>((inputs / "rules.xsl").c_str()));
  for (auto _ : state) {
    xmlDocPtr doc = xmlReadFile(file.c_str(), nullptr, XML_PARSE_NONET);
    xmlDocPtr result = xsltApplyStylesheet(stylesheet, doc, nullptr);
    check(state, result != nullptr, "libxslt failed");
    xmlFreeDoc(result);
    xmlFreeDoc(doc);
  }
  xsltFreeStylesheet(stylesheet);
}

// ---- registration -----------------------------------------------------------------------------

template <class Function, class... Args>
void add(const std::string& name, const fs::path& file, Function function, Args... args) {
  auto* benchmark = benchmark::RegisterBenchmark(
      name.c_str(), [=](benchmark::State& state) { function(state, file, args...); });
  benchmark->Unit(benchmark::kMicrosecond);
  // The largest input takes seconds per call: a few calls say enough.
  if (fs::file_size(file) > 10'000'000)
    benchmark->Iterations(2);
  else
    benchmark->MinTime(0.3);
}

void register_all() {
  const std::vector<std::string> sizes = {"sample", "lines-1", "lines-100", "lines-2000",
                                          "lines-50000"};
  for (const auto& input : sizes) {
    const fs::path file = inputs / (input + ".xml");
    add("Read/" + input + "/tivalo", file, ReadTivalo<>);
    add("Read/" + input + "/tivalo21", file, ReadTivalo<TivaloCOM21::IInvoice>);
    add("Read/" + input + "/xerces-dom", file, XercesDom, false);
    add("Read/" + input + "/xerces-sax2", file, XercesSax2, false);
    add("Read/" + input + "/libxml2", file, Libxml2, false);
    add("Read/" + input + "/libxml2-sax2", file, Libxml2Sax2, false);
    add("XMLput/" + input + "/tivalo", file, PutXmlTivalo<>);
    add("XMLput/" + input + "/tivalo21", file, PutXmlTivalo<TivaloCOM21::IInvoice>);
    add("XMLput/" + input + "/xerces-dom", file, XercesDom, true);
    add("XMLput/" + input + "/xerces-sax2", file, XercesSax2, true);
    add("XMLput/" + input + "/libxml2", file, Libxml2, true);
    add("Write/" + input + "/tivalo", file, WriteTivalo<>);
    add("Write/" + input + "/tivalo21", file, WriteTivalo<TivaloCOM21::IInvoice>);
    add("Write/" + input + "/binding", file, BindingSerialize, true);
    add("XMLget/" + input + "/tivalo", file, GetXmlTivalo<>);
    add("XMLget/" + input + "/tivalo21", file, GetXmlTivalo<TivaloCOM21::IInvoice>);
    add("XMLget/" + input + "/binding", file, BindingSerialize, false);
    add("Write/" + input + "/libxml2", file, Libxml2Serialize, true);
    add("XMLget/" + input + "/libxml2", file, Libxml2Serialize, false);
  }
  for (const std::string input : {"sample", "10kb", "lines-2000"}) {
    const fs::path file = inputs / (input + ".xml");
    add("Validate/" + input + "/tivalo", file, ValidateTivalo);
    add("Validate/" + input + "/xerces-cached-grammar", file, XercesCachedGrammar);
    add("Validate/" + input + "/libxml2", file, Libxml2Schema);
    add("Validate/" + input + "/tool-findings", file, WordedFindings);
    add("Rules/" + input + "/tivalo", file, RulesTivalo);
    add("Rules/" + input + "/libxslt-compiled", file, LibxsltCompiled);
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (argc != 2) {
    std::fprintf(stderr, "usage: compare_bench INPUT_DIR [benchmark flags]\n");
    return 2;
  }
  inputs = argv[1];
  xercesc::XMLPlatformUtils::Initialize();
  xmlInitParser();
  register_all();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  xercesc::XMLPlatformUtils::Terminate();
  return 0;
}
