// Rule stylesheets in XSLT 2.0 and 3.0, which libxslt cannot run: one Saxon-HE process per
// validation run, a child of the tool, compiles the stylesheet once and checks every document the
// tool hands it. Its answers come back as the same report the XSLT 1.0 check gives.
#pragma once

#include "document/rule_check.h"

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

namespace tivalo::cli {

// Whether the stylesheet's root element asks for XSLT 2.0 or later (its version, or xsl:version of
// a simplified stylesheet). False for anything unreadable: the XSLT 1.0 path says why.
bool needs_xslt2(const std::string& stylesheet_path);

// The processor cannot be started, or the stylesheet does not compile: the message says why
// (for a missing runtime, which Debian packages to install).
class Xslt2Unavailable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Xslt2Rules {
 public:
  // Starts the processor and compiles the stylesheet. Throws Xslt2Unavailable.
  Xslt2Rules(const std::string& stylesheet_path, unsigned threads);
  ~Xslt2Rules();
  Xslt2Rules(const Xslt2Rules&) = delete;
  Xslt2Rules& operator=(const Xslt2Rules&) = delete;

  // A check handed to the processor, whose report is collected later: the processor works on it
  // while the caller does something else (the schema check). Dropped unfinished, it is forgotten.
  class Pending;

  // Starts checking one document; safe on several threads at once. `uri` is the document's file
  // URI, or empty for standard input.
  std::shared_ptr<Pending> start(std::string_view document, const std::string& uri);
  // Waits for the processor's answer.
  Morvek::Tivalo::Rules::Report finish(Pending& pending);
  Morvek::Tivalo::Rules::Report check(std::string_view document, const std::string& uri) {
    return finish(*start(document, uri));
  }

 private:
  struct Answer;
  void read_answers();
  void fail_all(const std::string& reason);

  int pid_ = -1;
  int to_child_ = -1, from_child_ = -1;
  std::mutex sending_;
  std::mutex answers_mutex_;
  std::condition_variable answered_;
  std::map<unsigned long, std::shared_ptr<Answer>> waiting_;
  unsigned long next_id_ = 0;
  std::string gone_;  // why the processor stopped answering; empty while it runs
  std::thread reader_;
};

}  // namespace tivalo::cli
