#include "document/streams.h"
#include "document/text.h"
#include "document/xml_library.h"

#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <libxml/xmlIO.h>
#include <libxslt/transform.h>
#include <libxslt/xslt.h>
#include <libxslt/xsltInternals.h>
#include <libxslt/xsltutils.h>

#include <cstdarg>
#include <cstdio>
#include <istream>
#include <iterator>
#include <map>

namespace Morvek::Tivalo::Documents {

std::mutex& xml_library_lock() {
  static std::mutex lock;
  return lock;
}

namespace {

// What the stylesheet processor reported during the latest check of one document class.
struct ProcessorReport {
  std::wstring text;
  // libxslt ends a message that lacks a line feed with a second call holding just "\n"; that
  // call closes the message instead of replacing it.
  bool message_open = false;
};

// One report per document class, for the life of the process.
ProcessorReport& report_of(const DocumentBinding& kind) {
  static std::map<std::wstring, ProcessorReport> reports;
  return reports[kind.name];
}

std::string formatted(const char* format, va_list arguments) {
  va_list measuring;
  va_copy(measuring, arguments);
  const int size = std::vsnprintf(nullptr, 0, format, measuring);
  va_end(measuring);
  if (size <= 0) return {};
  std::string text(static_cast<size_t>(size) + 1, '\0');
  std::vsnprintf(&text[0], text.size(), format, arguments);
  text.resize(static_cast<size_t>(size));
  return text;
}

// The processor's error function: the last message wins.
void keep_last_message(void* context, const char* format, ...) {
  auto& report = *static_cast<ProcessorReport*>(context);
  va_list arguments;
  va_start(arguments, format);
  const std::string message = formatted(format, arguments);
  va_end(arguments);
  if (report.message_open && message == "\n") {
    report.message_open = false;
    return;
  }
  report.text = ansi_text(message);
  report.message_open = message.empty() || message.back() != '\n';
}

// Why libxml2 refused the document text, for a clear message.
struct ParseFailure {
  std::string message;
  int line = 0;
  int column = 0;
};

void keep_first_error(void* context, xmlErrorPtr error) {
  auto& failure = *static_cast<ParseFailure*>(context);
  if (!error || !failure.message.empty() || error->level < XML_ERR_ERROR) return;
  failure.message = error->message ? error->message : "";
  while (!failure.message.empty() && failure.message.back() == '\n') failure.message.pop_back();
  failure.line = error->line;
  failure.column = error->int2;
}

std::wstring not_well_formed(const ParseFailure& failure) {
  std::string text = "Tivalo: The document is not well-formed XML";
  if (!failure.message.empty())
    text += " (line " + std::to_string(failure.line) + ", column " +
            std::to_string(failure.column) + "): " + failure.message;
  return ansi_text(text + ".");
}

// libxml2's and libxslt's global settings for one check, and their reset afterwards. Loading is
// kept off the network: DTDs, entities, imports and document() calls go through the loader.
class StylesheetLibrariesInUse {
 public:
  StylesheetLibrariesInUse(ProcessorReport& report, ParseFailure& failure)
      : previous_loader_(xmlGetExternalEntityLoader()) {
    xmlSubstituteEntitiesDefault(1);
    xmlLoadExtDtdDefaultValue = 1;
    xmlSetExternalEntityLoader(xmlNoNetExternalEntityLoader);
    xmlSetStructuredErrorFunc(&failure, keep_first_error);
    xsltSetGenericErrorFunc(&report, keep_last_message);
  }
  ~StylesheetLibrariesInUse() {
    xsltSetGenericErrorFunc(nullptr, nullptr);
    xmlSetStructuredErrorFunc(nullptr, nullptr);
    xmlSetExternalEntityLoader(previous_loader_);
    xsltCleanupGlobals();
    xmlCleanupParser();
  }
  StylesheetLibrariesInUse(const StylesheetLibrariesInUse&) = delete;
  StylesheetLibrariesInUse& operator=(const StylesheetLibrariesInUse&) = delete;

 private:
  xmlExternalEntityLoader previous_loader_;
};

}  // namespace

std::wstring ValueErrorsFromStream(const DocumentBinding& kind, std::istream& in,
                                   const std::wstring& xsl_file) {
  const std::string stylesheet_path = file_path(xsl_file);
  const std::string document_text{std::istreambuf_iterator<char>(in),
                                  std::istreambuf_iterator<char>()};

  std::lock_guard<std::mutex> one_check_at_a_time(xml_library_lock());
  ProcessorReport& report = report_of(kind);
  report = ProcessorReport();
  ParseFailure failure;
  {
    StylesheetLibrariesInUse libraries(report, failure);
    xsltStylesheetPtr stylesheet =
        xsltParseStylesheetFile(reinterpret_cast<const xmlChar*>(stylesheet_path.c_str()));
    if (!stylesheet) {
      report.text = L"XSL file is not a stylesheet.";
    } else {
      failure = ParseFailure();
      xmlDocPtr document = xmlParseDoc(reinterpret_cast<const xmlChar*>(document_text.c_str()));
      xsltTransformContextPtr context =
          document ? xsltNewTransformContext(stylesheet, document) : nullptr;
      xmlDocPtr output = nullptr;  // never looked at: only the messages matter
      if (context) {
        context->type = XSLT_OUTPUT_TEXT;
        xsltSetCtxtParseOptions(context, context->parserOptions | XML_PARSE_NONET);
        output = xsltApplyStylesheetUser(stylesheet, document, nullptr, nullptr, nullptr, context);
        xsltFreeTransformContext(context);
      }
      xsltFreeStylesheet(stylesheet);
      if (output) xmlFreeDoc(output);
      if (document) xmlFreeDoc(document);
      else report.text = not_well_formed(failure);
    }
  }
  return report.text;
}

}  // namespace Morvek::Tivalo::Documents
