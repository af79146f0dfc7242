#include "cli/xslt2_rules.h"

#include "document/svrl_report.h"

#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <libxml/xmlreader.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <regex>
#include <sstream>
#include <vector>

extern char** environ;

namespace tivalo::cli {
namespace Rules = Morvek::Tivalo::Rules;
namespace fs = std::filesystem;
namespace {

const char* const missing_runtime =
    "XSLT 2.0 and 3.0 stylesheets run on Saxon-HE, which needs Java: install the Debian packages "
    "default-jre-headless and libsaxonhe-java";
const char* const saxon_jar = "/usr/share/java/Saxon-HE.jar";

// --- the documents, on this side -------------------------------------------------------------

// libxml2 reports to the thread's own handler while one of these lives: nothing reaches stderr.
struct QuietParse {
  std::string first_error;
  int line = 0, column = 0;
  xmlStructuredErrorFunc structured = xmlStructuredError;
  void* structured_context = xmlStructuredErrorContext;
  xmlGenericErrorFunc generic = xmlGenericError;
  void* generic_context = xmlGenericErrorContext;
  QuietParse() {
    xmlSetStructuredErrorFunc(this, &QuietParse::said);
    xmlSetGenericErrorFunc(nullptr, &QuietParse::ignored);
  }
  ~QuietParse() {
    xmlSetGenericErrorFunc(generic_context, generic);
    xmlSetStructuredErrorFunc(structured_context, structured);
  }
  QuietParse(const QuietParse&) = delete;
  QuietParse& operator=(const QuietParse&) = delete;
  static void ignored(void*, const char*, ...) {}
  static void said(void* self, xmlErrorPtr error) {
    auto* parse = static_cast<QuietParse*>(self);
    if (!error || error->level < XML_ERR_ERROR || !parse->first_error.empty()) return;
    parse->first_error = error->message ? error->message : "";
    while (!parse->first_error.empty() && parse->first_error.back() == '\n') parse->first_error.pop_back();
    parse->line = error->line;
    parse->column = error->int2;
  }
};

struct DocumentFree {
  void operator()(xmlDocPtr document) const { xmlFreeDoc(document); }
};
using DocumentPtr = std::unique_ptr<xmlDoc, DocumentFree>;

void stop_at_document_type(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
  auto parser = static_cast<xmlParserCtxtPtr>(context);
  parser->_private = const_cast<char*>(Rules::document_type_refusal);
  xmlStopParser(parser);
}

// Parsed as the XSLT 1.0 check parses: no DTD, nothing from outside. Empty with `refusal` set when
// the document cannot be checked.
DocumentPtr parse(std::string_view bytes, std::string& refusal) {
  QuietParse quiet;
  xmlParserCtxtPtr parser = xmlNewParserCtxt();
  if (!parser) {
    refusal = "Tivalo: Out of memory.";
    return nullptr;
  }
  parser->sax->internalSubset = stop_at_document_type;
  DocumentPtr document;
  if (bytes.size() <= static_cast<size_t>(INT32_MAX))
    document.reset(xmlCtxtReadMemory(parser, bytes.data(), static_cast<int>(bytes.size()), nullptr,
                                     nullptr, XML_PARSE_NONET | XML_PARSE_HUGE));
  const bool refused_dtd = parser->_private == Rules::document_type_refusal;
  xmlFreeParserCtxt(parser);
  if (refused_dtd) {
    refusal = Rules::document_type_refusal;
    return nullptr;
  }
  if (!document) {
    refusal = "Tivalo: The document is not well-formed XML";
    if (!quiet.first_error.empty())
      refusal += " (line " + std::to_string(quiet.line) + ", column " + std::to_string(quiet.column) +
                 "): " + quiet.first_error;
    refusal += ".";
  }
  return document;
}

// --- the process ----------------------------------------------------------------------------

std::string found_on_path(const std::string& program) {
  const char* path = std::getenv("PATH");
  std::istringstream directories(path ? path : "/usr/bin:/bin");
  for (std::string directory; std::getline(directories, directory, ':');) {
    const std::string candidate = (directory.empty() ? "." : directory) + "/" + program;
    if (::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return {};
}

// The tool's own Java class: beside the tool in the build tree and in the Python package, under
// the data directory when installed.
std::string rules_jar() {
  std::error_code error;
  const fs::path tool = fs::read_symlink("/proc/self/exe", error);
  for (const fs::path& candidate :
       {tool.parent_path() / "tivalo-rules.jar", tool.parent_path() / TIVALO_INSTALLED_RULES_JAR})
    if (!error && fs::is_regular_file(candidate, error)) return candidate.string();
  return TIVALO_BUILD_TREE_RULES_JAR;
}

bool write_all(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t sent = ::send(fd, data, size, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    data += sent;
    size -= static_cast<size_t>(sent);
  }
  return true;
}

// Reads the child's answers: lines and counted bytes.
class AnswerStream {
 public:
  explicit AnswerStream(int fd) : fd_(fd) {}
  bool line(std::string& text) {
    text.clear();
    for (char c; take(&c, 1);) {
      if (c == '\n') return true;
      text += c;
    }
    return false;
  }
  bool bytes(std::string& text, size_t size) {
    text.resize(size);
    return size == 0 || take(&text[0], size);
  }

 private:
  bool take(char* out, size_t size) {
    while (size > 0) {
      if (at_ == end_) {
        ssize_t got;
        do got = ::read(fd_, buffer_, sizeof buffer_);
        while (got < 0 && errno == EINTR);
        if (got <= 0) return false;
        at_ = 0;
        end_ = static_cast<size_t>(got);
      }
      const size_t n = std::min(size, end_ - at_);
      std::memcpy(out, buffer_ + at_, n);
      at_ += n;
      out += n;
      size -= n;
    }
    return true;
  }
  int fd_;
  char buffer_[1 << 16];
  size_t at_ = 0, end_ = 0;
};

bool read_record(AnswerStream& in, char& kind, std::string& text) {
  std::string head;
  if (!in.line(head) || head.size() < 3 || head[1] != ' ') return false;
  kind = head[0];
  char* end = nullptr;
  const unsigned long long size = std::strtoull(head.c_str() + 2, &end, 10);
  return end && *end == '\0' && size < (1ull << 34) && in.bytes(text, size);
}

}  // namespace

bool needs_xslt2(const std::string& stylesheet_path) {
  QuietParse quiet;
  xmlTextReaderPtr reader = xmlReaderForFile(stylesheet_path.c_str(), nullptr, XML_PARSE_NONET);
  if (!reader) return false;
  bool newer = false;
  int status;
  while ((status = xmlTextReaderRead(reader)) == 1) {
    if (xmlTextReaderNodeType(reader) != XML_READER_TYPE_ELEMENT) continue;
    xmlChar* version = xmlTextReaderGetAttribute(reader, reinterpret_cast<const xmlChar*>("version"));
    if (!version)
      version = xmlTextReaderGetAttributeNs(reader, reinterpret_cast<const xmlChar*>("version"),
                                            reinterpret_cast<const xmlChar*>("http://www.w3.org/1999/XSL/Transform"));
    if (version) newer = std::strtod(reinterpret_cast<const char*>(version), nullptr) >= 2.0;
    xmlFree(version);
    break;
  }
  xmlFreeTextReader(reader);
  return newer;
}

struct Xslt2Rules::Answer {
  bool done = false;
  std::vector<std::pair<char, std::string>> records;
  std::string failure;
};

Xslt2Rules::Xslt2Rules(const std::string& stylesheet_path, unsigned threads) {
  const std::string java = found_on_path("java");
  if (java.empty() || ::access(saxon_jar, R_OK) != 0) throw Xslt2Unavailable(missing_runtime);
  const std::string jar = rules_jar();
  if (::access(jar.c_str(), R_OK) != 0)
    throw Xslt2Unavailable("the tool's XSLT 2.0 runner " + jar + " is missing: " + std::strerror(errno));

  // A socket towards the child, so that writing to a child that is gone fails instead of raising
  // SIGPIPE in the tool.
  int to[2], from[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, to) != 0 || ::pipe2(from, O_CLOEXEC) != 0)
    throw Xslt2Unavailable(std::string("cannot start Java: ") + std::strerror(errno));
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, to[1], 0);
  posix_spawn_file_actions_adddup2(&files, from[1], 1);
  posix_spawn_file_actions_addopen(&files, 2, "/dev/null", O_WRONLY, 0);
  const std::string class_path = std::string(saxon_jar) + ":" + jar;
  const std::string thread_count = std::to_string(std::max(1u, threads));
  std::vector<std::string> words{java, "-cp", class_path, "TivaloRules", stylesheet_path, thread_count};
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(&word[0]);
  argv.push_back(nullptr);
  pid_t child;
  const int spawned = posix_spawn(&child, java.c_str(), &files, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  ::close(to[1]);
  ::close(from[1]);
  if (spawned != 0) {
    ::close(to[0]);
    ::close(from[0]);
    throw Xslt2Unavailable(std::string("cannot start ") + java + ": " + std::strerror(spawned) + "; " + missing_runtime);
  }
  pid_ = child;
  to_child_ = to[0];
  from_child_ = from[0];

  AnswerStream in(from_child_);
  char kind = 0;
  std::string text;
  if (!read_record(in, kind, text) || kind != 'C') {
    const std::string reason = kind == 'X' ? text : "Java stopped before compiling it; " + std::string(missing_runtime);
    ::close(to_child_);
    ::close(from_child_);
    int status;
    ::waitpid(pid_, &status, 0);
    throw Xslt2Unavailable("cannot load the stylesheet: " + reason);
  }
  reader_ = std::thread([this] { read_answers(); });
}

Xslt2Rules::~Xslt2Rules() {
  ::shutdown(to_child_, SHUT_WR);  // no more documents: the child finishes and exits
  if (reader_.joinable()) reader_.join();
  ::close(to_child_);
  ::close(from_child_);
  int status;
  ::waitpid(pid_, &status, 0);
}

void Xslt2Rules::fail_all(const std::string& reason) {
  std::lock_guard<std::mutex> lock(answers_mutex_);
  gone_ = reason;
  for (auto& [id, answer] : waiting_) {
    answer->failure = reason;
    answer->done = true;
  }
  waiting_.clear();
  answered_.notify_all();
}

void Xslt2Rules::read_answers() {
  AnswerStream in(from_child_);
  for (std::string head; in.line(head);) {
    unsigned long id = 0;
    size_t count = 0;
    if (std::sscanf(head.c_str(), "R %lu %zu", &id, &count) != 2) break;
    std::vector<std::pair<char, std::string>> records(count);
    bool complete = true;
    for (auto& [kind, text] : records) complete = complete && read_record(in, kind, text);
    if (!complete) break;
    std::lock_guard<std::mutex> lock(answers_mutex_);
    auto waiting = waiting_.find(id);
    if (waiting == waiting_.end()) continue;
    waiting->second->records = std::move(records);
    waiting->second->done = true;
    waiting_.erase(waiting);
    answered_.notify_all();
  }
  fail_all("Tivalo: The XSLT 2.0 processor (Java) stopped unexpectedly.");
}

class Xslt2Rules::Pending {
 public:
  DocumentPtr document;
  std::shared_ptr<Answer> answer;
  std::string refusal;
};

std::shared_ptr<Xslt2Rules::Pending> Xslt2Rules::start(std::string_view document_bytes, const std::string& uri) {
  auto pending = std::make_shared<Pending>();
  pending->document = parse(document_bytes, pending->refusal);
  if (!pending->document) return pending;
  auto answer = pending->answer = std::make_shared<Answer>();
  unsigned long id;
  {
    std::lock_guard<std::mutex> lock(answers_mutex_);
    id = next_id_++;
    if (gone_.empty()) waiting_[id] = answer;
    else answer->failure = gone_, answer->done = true;
  }
  if (answer->done) return pending;
  std::lock_guard<std::mutex> lock(sending_);
  const std::string head = "D " + std::to_string(id) + " " + std::to_string(uri.size()) + " " +
                           std::to_string(document_bytes.size()) + "\n";
  if (!write_all(to_child_, head.data(), head.size()) || !write_all(to_child_, uri.data(), uri.size()) ||
      !write_all(to_child_, document_bytes.data(), document_bytes.size())) {
    std::lock_guard<std::mutex> answers(answers_mutex_);
    if (waiting_.erase(id)) answer->failure = "Tivalo: The XSLT 2.0 processor (Java) stopped unexpectedly.", answer->done = true;
  }
  return pending;
}

Rules::Report Xslt2Rules::finish(Pending& pending) {
  Rules::Report report;
  if (!pending.document) {
    report.outcome = Rules::Report::Outcome::document_refused;
    report.refusal = pending.refusal;
    return report;
  }
  Answer* answer = pending.answer.get();
  {
    std::unique_lock<std::mutex> lock(answers_mutex_);
    answered_.wait(lock, [&] { return answer->done; });
  }
  xmlDocPtr document = pending.document.get();
  if (!answer->failure.empty()) {
    report.outcome = Rules::Report::Outcome::stylesheet_failed;
    report.problems.push_back({Rules::Diagnostic::Level::error, answer->failure, {}});
    return report;
  }
  for (auto& [kind, text] : answer->records) {
    switch (kind) {
      case 'M':
      case 'T': {
        Rules::Finding message;
        message.text = std::move(text);
        report.findings.push_back(std::move(message));
        break;
      }
      case 'E':
        report.outcome = Rules::Report::Outcome::stylesheet_failed;
        report.problems.push_back({Rules::Diagnostic::Level::error, std::move(text), {}});
        break;
      case 'S': {
        QuietParse quiet;
        DocumentPtr result(xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr,
                                         XML_PARSE_NONET | XML_PARSE_HUGE));
        if (result) Rules::read_svrl_report(result->children, document, report.findings);
        break;
      }
      default:
        break;
    }
  }
  return report;
}

}  // namespace tivalo::cli
