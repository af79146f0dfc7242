// Compiled stylesheets kept between rule checks. A compiled stylesheet is only read while it is
// applied, so one copy serves checks on any number of threads at once. An entry is used only
// while the stylesheet file and every file it includes or imports are unchanged (path, size,
// modification time); a stylesheet that fails to compile is never kept.
#pragma once

#include "document/rule_check.h"

#include <libxslt/xsltInternals.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Morvek::Tivalo::Rules {

class CompiledStylesheet {
 public:
  CompiledStylesheet(xsltStylesheetPtr stylesheet, std::vector<Diagnostic> said)
      : stylesheet_(stylesheet), said_(std::move(said)) {}
  ~CompiledStylesheet() { xsltFreeStylesheet(stylesheet_); }
  CompiledStylesheet(const CompiledStylesheet&) = delete;
  CompiledStylesheet& operator=(const CompiledStylesheet&) = delete;

  xsltStylesheetPtr get() const { return stylesheet_; }
  // What the processor said while compiling it (warnings).
  const std::vector<Diagnostic>& said() const { return said_; }

 private:
  xsltStylesheetPtr stylesheet_;
  std::vector<Diagnostic> said_;
};

// Compiles the stylesheet at `path`: what the processor said while compiling, and the files it
// read (includes and imports). Null when the stylesheet cannot be used.
struct Compiler {
  std::function<xsltStylesheetPtr(const std::string& path, std::vector<Diagnostic>& said,
                                  std::vector<std::string>& files_read)>
      compile;
};

struct Compilation {
  std::shared_ptr<const CompiledStylesheet> stylesheet;  // null when compiling failed
  std::vector<Diagnostic> said;  // what compiling said, the same for a kept stylesheet
};

// The kept stylesheet when nothing it was made from changed, else a fresh compilation.
Compilation compiled_stylesheet(const std::string& path, const Compiler& compiler);

}  // namespace Morvek::Tivalo::Rules
