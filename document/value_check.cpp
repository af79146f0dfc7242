// The component's stylesheet check: the rule check's report, reduced to the one text the
// document members return.
#include "document/rule_check.h"
#include "document/streams.h"
#include "document/text.h"
#include "document/xml_library.h"

#include <istream>
#include <iterator>

namespace Morvek::Tivalo::Documents {

std::mutex& xml_library_lock() {
  static std::mutex lock;
  return lock;
}

std::wstring ValueErrorsFromStream(const DocumentBinding&, std::istream& in,
                                   const std::wstring& xsl_file) {
  const std::string document_text{std::istreambuf_iterator<char>(in),
                                  std::istreambuf_iterator<char>()};
  Rules::CheckOptions messages_only;
  messages_only.read_report_document = false;
  const Rules::Report report = Rules::check(document_text, file_path(xsl_file), messages_only);
  switch (report.outcome) {
    case Rules::Report::Outcome::stylesheet_not_loaded:
      return L"XSL file is not a stylesheet.";
    case Rules::Report::Outcome::document_refused:
      return ansi_text(report.refusal);
    default:
      // Whatever the processor's report channel received last: a rule stylesheet reports all
      // its findings in one message.
      return report.deliveries.empty() ? L"" : ansi_text(report.deliveries.back().text);
  }
}

}  // namespace Morvek::Tivalo::Documents
