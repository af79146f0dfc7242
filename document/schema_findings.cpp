#include "document/schema_findings.h"

#include "document/file_identity.h"
#include "document/local_uri.h"
#include "document/markup_limits.h"

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/SAX2.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>
#include <libxml/xmlschemas.h>
#include <libxml/xmlschemastypes.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <regex>
#include <set>
#include <unordered_map>

namespace Morvek::Tivalo::SchemaFindings {
namespace {

const char* const schema_namespace = "http://www.w3.org/2001/XMLSchema";

std::string text_of(const xmlChar* text) { return text ? reinterpret_cast<const char*>(text) : ""; }
const xmlChar* xml(const char* text) { return reinterpret_cast<const xmlChar*>(text); }

std::string key_of(const std::string& ns, const std::string& local) { return "{" + ns + "}" + local; }

std::string namespace_of(const std::string& key) {
  return key.size() > 1 && key[0] == '{' ? key.substr(1, key.find('}') - 1) : std::string();
}

std::string local_of(const std::string& key) {
  const size_t close = key.find('}');
  return key[0] == '{' && close != std::string::npos ? key.substr(close + 1) : key;
}

// --- what the schema says about content and types, read from its files -----------------------
//
// libxml2 names the elements it expected but not which of them are required, nor the type a
// value was declared with in the schema's own terms. Both are read here from the schema's files:
// per complex type its children in order with their occurrences, per type its base.

struct Child {
  std::string element;  // key of the element
  std::string type;     // key of its type; empty for a reference (the global element's type)
  long min = 1, max = 1;  // max -1: unbounded
};

struct Type {
  std::string base;
  bool extends = false;  // the base's children come first
  bool complete = true;  // no group references or the like that this reader does not follow
  bool facets = false;   // restricts its base by a pattern, an enumeration, a length, ...
  std::vector<Child> children;
};

class SchemaModel {
 public:
  void read(const std::string& path) {
    std::vector<std::string> pending{path};
    while (!pending.empty()) {
      const std::string file = pending.back();
      pending.pop_back();
      if (!read_.insert(file).second) continue;
      xmlDocPtr doc = xmlReadFile(file.c_str(), nullptr, XML_PARSE_NOENT | XML_PARSE_NONET);
      if (!doc) continue;
      read_schema(xmlDocGetRootElement(doc), file, pending);
      xmlFreeDoc(doc);
    }
    // Each element of a document looks its children up: flattened once here.
    for (const auto& [key, type] : types_) {
      std::optional<std::vector<Child>> children = flattened(key);
      if (!children) continue;
      Content& content = content_[key];
      for (size_t i = 0; i < children->size(); ++i) content.index.emplace((*children)[i].element, i);
      content.children = std::move(*children);
    }
  }

  std::string element_type(const std::string& element) const {
    const auto found = elements_.find(element);
    return found == elements_.end() ? std::string() : found->second;
  }

  const Type* type(const std::string& key) const {
    const auto found = types_.find(key);
    return found == types_.end() ? nullptr : &found->second;
  }

  // The children a type takes, its base's first when it extends one; null when unknown.
  const std::vector<Child>* children_of(const std::string& key) const {
    const auto found = content_.find(key);
    return found == content_.end() ? nullptr : &found->second.children;
  }

  std::string child_type(const std::string& parent_type, const std::string& element) const {
    const auto found = content_.find(parent_type);
    if (found == content_.end()) return {};
    const auto at = found->second.index.find(element);
    if (at == found->second.index.end()) return {};
    const Child& child = found->second.children[at->second];
    return child.type.empty() ? element_type(element) : child.type;
  }

 private:
  std::optional<std::vector<Child>> flattened(const std::string& key) const {
    std::vector<Child> children;
    std::string at = key;
    for (int guard = 0; guard < 64 && !at.empty(); ++guard) {
      const Type* type = this->type(at);
      if (!type || !type->complete) return std::nullopt;
      children.insert(children.begin(), type->children.begin(), type->children.end());
      if (!type->extends) break;
      at = type->base;
    }
    return children;
  }


 public:
  // The type, then its base, and so on.
  std::vector<std::string> derivation(const std::string& key) const {
    std::vector<std::string> chain;
    for (std::string at = key; !at.empty() && chain.size() < 64; ) {
      chain.push_back(at);
      const Type* type = this->type(at);
      if (!type) break;
      at = type->base;
    }
    return chain;
  }

  // The prefix the schema files use for a namespace.
  std::string prefix_for(const std::string& ns) const {
    const auto found = prefixes_.find(ns);
    return found == prefixes_.end() ? std::string() : found->second;
  }
  bool knows_prefix(const std::string& ns) const { return prefixes_.count(ns) != 0; }

 private:
  static bool is_xsd(const xmlNode* node, const char* name) {
    return node->type == XML_ELEMENT_NODE && node->ns &&
           std::strcmp(reinterpret_cast<const char*>(node->ns->href), schema_namespace) == 0 &&
           std::strcmp(reinterpret_cast<const char*>(node->name), name) == 0;
  }

  static std::string attribute(const xmlNode* node, const char* name) {
    xmlChar* value = xmlGetProp(node, xml(name));
    std::string text = text_of(value);
    xmlFree(value);
    return text;
  }

  static std::string qname(const xmlNode* node, const std::string& name) {
    if (name.empty()) return {};
    const size_t colon = name.find(':');
    const std::string prefix = colon == std::string::npos ? "" : name.substr(0, colon);
    xmlNsPtr ns = xmlSearchNs(node->doc, const_cast<xmlNode*>(node),
                              prefix.empty() ? nullptr : xml(prefix.c_str()));
    return key_of(ns ? text_of(ns->href) : "", colon == std::string::npos ? name : name.substr(colon + 1));
  }

  static long occurs(const xmlNode* node, const char* name) {
    const std::string value = attribute(node, name);
    if (value.empty()) return 1;
    if (value == "unbounded") return -1;
    return std::strtol(value.c_str(), nullptr, 10);
  }

  void read_schema(xmlNode* root, const std::string& file, std::vector<std::string>& pending) {
    if (!root || !is_xsd(root, "schema")) return;
    target_ = attribute(root, "targetNamespace");
    qualified_ = attribute(root, "elementFormDefault") == "qualified";
    for (xmlNsPtr ns = root->nsDef; ns; ns = ns->next)
      if (ns->prefix && !prefixes_.count(text_of(ns->href)))
        prefixes_[text_of(ns->href)] = text_of(ns->prefix);
    for (xmlNode* node = root->children; node; node = node->next) {
      if (is_xsd(node, "include") || is_xsd(node, "import") || is_xsd(node, "redefine")) {
        const std::string location = attribute(node, "schemaLocation");
        if (location.empty() || is_remote(location.c_str())) continue;
        std::filesystem::path next = std::filesystem::u8path(location);
        if (next.is_relative()) next = std::filesystem::u8path(file).parent_path() / next;
        pending.push_back(next.lexically_normal().string());
      } else if (is_xsd(node, "element")) {
        const std::string key = key_of(target_, attribute(node, "name"));
        elements_[key] = declared_type(node, "element " + key);
      } else if (is_xsd(node, "complexType") || is_xsd(node, "simpleType")) {
        read_type(node, key_of(target_, attribute(node, "name")));
      }
    }
  }

  // The type an element declaration names, or the key its anonymous type is kept under.
  std::string declared_type(xmlNode* element, const std::string& anonymous_key) {
    if (const std::string type = attribute(element, "type"); !type.empty()) return qname(element, type);
    for (xmlNode* node = element->children; node; node = node->next)
      if (is_xsd(node, "complexType") || is_xsd(node, "simpleType")) {
        read_type(node, anonymous_key);
        return anonymous_key;
      }
    return {};
  }

  void read_type(xmlNode* node, const std::string& key) {
    Type type;
    read_content(node, key, type, 1, 1);
    types_[key] = std::move(type);
  }

  // Walks a type definition: its base, and its particles with the occurrences they multiply to.
  void read_content(xmlNode* parent, const std::string& key, Type& type, long min, long max) {
    for (xmlNode* node = parent->children; node; node = node->next) {
      if (node->type != XML_ELEMENT_NODE) continue;
      if (is_xsd(node, "annotation") || is_xsd(node, "attribute") || is_xsd(node, "attributeGroup") ||
          is_xsd(node, "anyAttribute") || is_xsd(node, "any"))
        continue;
      if (is_xsd(node, "simpleContent") || is_xsd(node, "complexContent")) {
        read_content(node, key, type, min, max);
      } else if (is_xsd(node, "extension") || is_xsd(node, "restriction")) {
        type.base = qname(node, attribute(node, "base"));
        type.extends = is_xsd(node, "extension") && is_xsd(parent, "complexContent");
        read_content(node, key, type, min, max);
      } else if (is_xsd(node, "sequence") || is_xsd(node, "all")) {
        read_content(node, key, type, min * occurs(node, "minOccurs"), times(max, occurs(node, "maxOccurs")));
      } else if (is_xsd(node, "choice")) {
        int alternatives = 0;
        for (xmlNode* c = node->children; c; c = c->next)
          alternatives += c->type == XML_ELEMENT_NODE && !is_xsd(c, "annotation");
        read_content(node, key, type, alternatives > 1 ? 0 : min * occurs(node, "minOccurs"),
                     times(max, occurs(node, "maxOccurs")));
      } else if (is_xsd(node, "element")) {
        Child child;
        if (const std::string ref = attribute(node, "ref"); !ref.empty()) {
          child.element = qname(node, ref);
        } else {
          const std::string name = attribute(node, "name");
          const bool qualified = attribute(node, "form").empty() ? qualified_ : attribute(node, "form") == "qualified";
          child.element = key_of(qualified ? target_ : "", name);
          child.type = declared_type(node, key + "/" + name);
        }
        child.min = min * occurs(node, "minOccurs");
        child.max = times(max, occurs(node, "maxOccurs"));
        type.children.push_back(std::move(child));
      } else if (is_facet(node)) {
        type.facets = true;
      } else if (is_xsd(node, "list") || is_xsd(node, "union")) {
        // a simple type of its own kind: no base to name
      } else {
        type.complete = false;  // group references and anything else not followed here
      }
    }
  }

  static bool is_facet(const xmlNode* node) {
    for (const char* facet : {"enumeration", "pattern", "length", "minLength", "maxLength", "minInclusive",
                              "maxInclusive", "minExclusive", "maxExclusive", "totalDigits",
                              "fractionDigits", "whiteSpace"})
      if (is_xsd(node, facet)) return true;
    return false;
  }

  static long times(long a, long b) { return a < 0 || b < 0 ? -1 : a * b; }

  std::set<std::string> read_;
  std::string target_;
  bool qualified_ = false;
  std::unordered_map<std::string, std::string> elements_;
  std::unordered_map<std::string, Type> types_;
  std::unordered_map<std::string, std::string> prefixes_;
  struct Content {
    std::vector<Child> children;
    std::unordered_map<std::string, size_t> index;  // the first child of each element
  };
  std::unordered_map<std::string, Content> content_;
};

// --- libxml2's process-wide hooks and its per-thread error functions -------------------------

thread_local bool loading_schema = false;
thread_local std::vector<std::string>* schema_problems = nullptr;
xmlExternalEntityLoader previous_entity_loader = nullptr;

// A schema's includes and imports are read from local files only; everyone else in the process
// keeps the loader they had.
xmlParserInputPtr schema_entity_loader(const char* url, const char* id, xmlParserCtxtPtr context) {
  if (!loading_schema) return previous_entity_loader(url, id, context);
  if (is_remote(url)) {
    if (schema_problems) schema_problems->push_back(std::string("Tivalo: Network access refused: ") + url);
    return nullptr;
  }
  return xmlNoNetExternalEntityLoader(url, id, context);
}

void install_hooks_once() {
  static std::once_flag once;
  std::call_once(once, [] {
    xmlInitParser();
    previous_entity_loader = xmlGetExternalEntityLoader();
    xmlSetExternalEntityLoader(schema_entity_loader);
  });
}

std::string without_line_end(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) text.pop_back();
  return text;
}

void say_nothing(void*, const char*, ...) {}

// What libxml2 says on this thread goes to `sink` while the guard lives, never to standard error.
class QuietLibrary {
 public:
  explicit QuietLibrary(xmlStructuredErrorFunc sink, void* context)
      : structured_(xmlStructuredError),
        structured_context_(xmlStructuredErrorContext),
        generic_(xmlGenericError),
        generic_context_(xmlGenericErrorContext) {
    xmlSetStructuredErrorFunc(context, sink);
    xmlSetGenericErrorFunc(nullptr, say_nothing);
  }
  ~QuietLibrary() {
    xmlSetGenericErrorFunc(generic_context_, generic_);
    xmlSetStructuredErrorFunc(structured_context_, structured_);
  }
  QuietLibrary(const QuietLibrary&) = delete;
  QuietLibrary& operator=(const QuietLibrary&) = delete;

 private:
  xmlStructuredErrorFunc structured_;
  void* structured_context_;
  xmlGenericErrorFunc generic_;
  void* generic_context_;
};

// --- compiled schemas, kept per path --------------------------------------------------------

struct CompiledSchema {
  std::string path;
  std::optional<FileIdentity> identity;
  xmlSchemaPtr schema = nullptr;
  std::string problem;

  // Read when a document first has a finding to word: a batch of valid documents never needs it.
  const SchemaModel& model() {
    std::call_once(model_read_, [this] {
      const bool outer = loading_schema;
      loading_schema = true;
      model_.read(path);
      loading_schema = outer;
    });
    return model_;
  }

  ~CompiledSchema() {
    if (schema) xmlSchemaFree(schema);
  }

 private:
  std::once_flag model_read_;
  SchemaModel model_;
};

void collect_problem(void* context, xmlErrorPtr error) {
  if (!error || error->level < XML_ERR_ERROR) return;
  std::string text = without_line_end(text_of(xml(error->message)));
  if (error->file && error->line) text = std::string(error->file) + ":" + std::to_string(error->line) + ": " + text;
  static_cast<std::vector<std::string>*>(context)->push_back(text);
}

std::shared_ptr<CompiledSchema> compile(const std::string& path) {
  auto compiled = std::make_shared<CompiledSchema>();
  compiled->path = path;
  compiled->identity = identity_of(path);
  std::vector<std::string> problems;
  {
    QuietLibrary quiet(collect_problem, &problems);
    loading_schema = true;
    schema_problems = &problems;
    if (xmlSchemaParserCtxtPtr parser = xmlSchemaNewParserCtxt(path.c_str())) {
      xmlSchemaSetParserStructuredErrors(parser, collect_problem, &problems);
      compiled->schema = xmlSchemaParse(parser);
      xmlSchemaFreeParserCtxt(parser);
    }
    loading_schema = false;
    schema_problems = nullptr;
  }
  if (!compiled->schema) {
    for (const std::string& problem : problems)
      compiled->problem += (compiled->problem.empty() ? "" : "; ") + problem;
    if (compiled->problem.empty()) compiled->problem = "the schema cannot be loaded";
  }
  return compiled;
}

std::shared_ptr<CompiledSchema> compiled_schema(const std::string& path) {
  static std::mutex mutex;
  static std::map<std::string, std::shared_ptr<CompiledSchema>> kept;
  static std::map<std::string, std::shared_ptr<std::mutex>> compiling;
  std::shared_ptr<std::mutex> one_at_a_time;
  {
    std::lock_guard<std::mutex> lock(mutex);
    const auto found = kept.find(path);
    if (found != kept.end() && found->second->identity && unchanged(*found->second->identity))
      return found->second;
    auto& slot = compiling[path];
    if (!slot) slot = std::make_shared<std::mutex>();
    one_at_a_time = slot;
  }
  // Threads asking for the same schema at once wait for one compilation.
  std::lock_guard<std::mutex> compiling_this(*one_at_a_time);
  {
    std::lock_guard<std::mutex> lock(mutex);
    const auto found = kept.find(path);
    if (found != kept.end() && found->second->identity && unchanged(*found->second->identity))
      return found->second;
  }
  std::shared_ptr<CompiledSchema> compiled = compile(path);
  std::lock_guard<std::mutex> lock(mutex);
  kept[path] = compiled;
  return compiled;
}

// --- one check -----------------------------------------------------------------------------

struct Frame {
  std::string key;    // {namespace}local
  std::string shown;  // as the document writes it
  std::string type;   // key of the declared type, when known
  long line = 0, column = 0;
  std::vector<std::string> children;  // keys, in document order
};

struct Run {
  CompiledSchema* compiled = nullptr;
  const SchemaModel* model = nullptr;  // once there is something to word
  xmlParserCtxtPtr parser = nullptr;
  std::vector<Frame> open;
  std::optional<Frame> ended;  // the element whose end tag was read last
  bool in_end = false;
  bool refused = false;
  std::map<std::string, std::string> prefixes;  // as the document declares them
  std::vector<Finding> findings;
  std::set<std::pair<long, std::string>> values_said;  // one value finding per element
};

thread_local Run* current_run = nullptr;

long line_now(const Run& run) { return xmlSAX2GetLineNumber(run.parser); }
long column_now(const Run& run) { return xmlSAX2GetColumnNumber(run.parser); }

void on_start(void* context, const xmlChar* local, const xmlChar* prefix, const xmlChar* uri,
              int namespace_count, const xmlChar** namespaces, int attribute_count, int,
              const xmlChar**) {
  Run& run = *static_cast<Run*>(context);
  if (run.refused) return;
  // For encodings the byte scan leaves to the parser.
  if (run.open.size() + 1 > max_element_depth ||
      static_cast<size_t>(attribute_count) > max_attributes_per_element) {
    run.refused = true;
    xmlStopParser(run.parser);
    return;
  }
  for (int i = 0; i < namespace_count; ++i) {
    const std::string ns = text_of(namespaces[2 * i + 1]);
    if (!run.prefixes.count(ns)) run.prefixes[ns] = text_of(namespaces[2 * i]);
  }
  Frame frame;
  frame.key = key_of(text_of(uri), text_of(local));
  frame.shown = prefix ? text_of(prefix) + ":" + text_of(local) : text_of(local);
  if (!run.open.empty()) run.open.back().children.push_back(frame.key);
  frame.line = line_now(run);
  frame.column = column_now(run);
  run.open.push_back(std::move(frame));
  run.in_end = false;
}

void on_end(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
  Run& run = *static_cast<Run*>(context);
  if (run.refused || run.open.empty()) return;
  run.ended = std::move(run.open.back());
  run.open.pop_back();
  run.in_end = true;
}

void on_text(void* context, const xmlChar*, int) { static_cast<Run*>(context)->in_end = false; }

// Called when the parser meets "<!DOCTYPE", before it reads the internal subset.
void on_doctype(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
  Run& run = *static_cast<Run*>(context);
  run.refused = true;
  xmlStopParser(run.parser);
}

// Parser errors arrive with the validation layer's data, so the run is found through the thread.
void on_parser_error(void*, xmlErrorPtr error) {
  if (current_run && error && error->level >= XML_ERR_ERROR) current_run->refused = true;
}

// --- the findings in the document's own words --------------------------------------------------

class Wording {
 public:
  explicit Wording(const Run& run) : run_(run), model_(*run.model) {}

  // "{urn:...CommonBasicComponents-2}ID" as "cbc:ID", with the prefix the document declared
  // for the namespace, else the schema's.
  std::string shown(const std::string& key) const {
    if (key.empty() || key[0] != '{') return key;
    const std::string ns = namespace_of(key);
    const auto declared = run_.prefixes.find(ns);
    std::string prefix;
    if (declared != run_.prefixes.end()) prefix = declared->second;
    else if (model_.knows_prefix(ns)) prefix = model_.prefix_for(ns);
    else if (!ns.empty()) return key;
    return prefix.empty() ? local_of(key) : prefix + ":" + local_of(key);
  }

  // Every "{namespace}name" in a text of libxml2's, shown as above.
  std::string with_prefixes(const std::string& text) const {
    static const std::regex qualified(R"(\{([^{}\s]*)\}([\w.\-*]+))");
    std::string out;
    std::sregex_iterator it(text.begin(), text.end(), qualified), end;
    size_t at = 0;
    for (; it != end; ++it) {
      out += text.substr(at, it->position() - at);
      out += shown(it->str());
      at = it->position() + it->length();
    }
    return out + text.substr(at);
  }

  // "cbc:A, cbc:B or cbc:C", shortened after a few.
  std::string list(const std::vector<std::string>& keys, const char* last_word = " or ") const {
    std::string text;
    const size_t shown_count = std::min<size_t>(keys.size(), 5);
    for (size_t i = 0; i < shown_count; ++i) {
      if (i > 0) text += i + 1 == shown_count && keys.size() <= shown_count ? last_word : ", ";
      text += keys[i].find("##other") != std::string::npos || local_of(keys[i]) == "*"
                  ? "an element of another namespace"
                  : shown(keys[i]);
    }
    if (keys.size() > shown_count) text += ", …";
    return text;
  }

  // The type a value was declared with, in the schema's own terms: the first type of its
  // derivation outside the element's own namespace ("DateType" for cbc:IssueDate, whose
  // cbc:IssueDateType extends udt:DateType); libxml2's name when the schema says nothing.
  std::string value_type(const Frame* frame, const std::string& said) const {
    if (frame && !frame->type.empty()) {
      const std::vector<std::string> chain = model_.derivation(frame->type);
      const std::string own = namespace_of(frame->key);
      for (const std::string& type : chain)
        if (namespace_of(type) != own && namespace_of(type) != schema_namespace) return local_of(type);
      return local_of(chain.front());
    }
    return said.empty() ? "value" : local_of(with_prefixes(said));
  }

 private:
  const Run& run_;
  const SchemaModel& model_;
};

// libxml2 does not collapse the whitespace around the value of an element whose complex type has
// simple content (cbc:IssueDate of cbc:IssueDateType, extending udt:DateType): " 2024-01-31 "
// is refused where the schema allows it. A value that its built-in type takes once collapsed,
// with no facet on the way there, is valid.
bool valid_once_collapsed(const SchemaModel& model, const Frame& frame, const std::string& value) {
  std::string collapsed;
  for (char c : value) {
    const bool space = c == ' ' || c == '\t' || c == '\n' || c == '\r';
    if (space && (collapsed.empty() || collapsed.back() == ' ')) continue;
    collapsed += space ? ' ' : c;
  }
  if (!collapsed.empty() && collapsed.back() == ' ') collapsed.pop_back();
  if (collapsed == value || frame.type.empty()) return false;
  const std::vector<std::string> chain = model.derivation(frame.type);
  for (const std::string& type : chain)
    if (const Type* declared = model.type(type); declared && declared->facets) return false;
  if (namespace_of(chain.back()) != schema_namespace) return false;
  xmlSchemaTypePtr builtin = xmlSchemaGetPredefinedType(xml(local_of(chain.back()).c_str()), xml(schema_namespace));
  return builtin && xmlSchemaValidatePredefinedType(builtin, xml(collapsed.c_str()), nullptr) == 0;
}

// A hostile value may be long: messages quote its beginning, cut between characters, on one line.
std::string quoted(const std::string& value) {
  constexpr size_t shown = 64;
  size_t end = std::min(value.size(), shown);
  while (end < value.size() && end > 0 && (static_cast<unsigned char>(value[end]) & 0xC0) == 0x80) --end;
  std::string text = "'";
  for (size_t i = 0; i < end; ++i) {
    const char c = value[i];
    text += c == '\n' ? "\\n" : c == '\r' ? "\\r" : c == '\t' ? "\\t" : std::string(1, c);
  }
  return text + (end < value.size() ? "...'" : "'");
}

std::vector<std::string> expected_keys(const std::string& listed) {
  std::vector<std::string> keys;
  size_t at = 0;
  while (at < listed.size()) {
    size_t end = listed.find(", ", at);
    // Commas may stand inside braces only in wildcards' namespace lists.
    if (end == std::string::npos) end = listed.size();
    std::string key = listed.substr(at, end - at);
    while (!key.empty() && key.back() == ' ') key.pop_back();
    while (!key.empty() && key.front() == ' ') key.erase(0, 1);
    if (!key.empty()) keys.push_back(key);
    at = end + 2;
  }
  return keys;
}

// The element a validity error is about: the one just ended, or one still open.
const Frame* frame_of(const Run& run, const std::string& key) {
  if (run.in_end && run.ended && run.ended->key == key) return &*run.ended;
  for (auto it = run.open.rbegin(); it != run.open.rend(); ++it)
    if (it->key == key) return &*it;
  return nullptr;
}

bool is_ended(const Run& run, const Frame* frame) { return run.ended && frame == &*run.ended; }

const Frame* parent_of(const Run& run, const Frame* frame) {
  if (!frame) return nullptr;
  if (is_ended(run, frame)) return run.open.empty() ? nullptr : &run.open.back();
  for (size_t i = run.open.size(); i-- > 1;)
    if (&run.open[i] == frame) return &run.open[i - 1];
  return nullptr;
}

long index_in(const std::vector<Child>& children, const std::string& key) {
  for (size_t i = 0; i < children.size(); ++i)
    if (children[i].element == key) return static_cast<long>(i);
  return -1;
}

// An element where the parent's content did not allow it.
std::string unexpected(const Run& run, const Wording& say, const Frame& element, const Frame* parent,
                       const std::vector<std::string>& expected) {
  const std::string name = element.shown;
  const std::string in = parent ? parent->shown : "the document";
  const std::vector<Child>* children =
      parent && !parent->type.empty() ? run.model->children_of(parent->type) : nullptr;
  if (parent && children) {
    const long at = index_in(*children, element.key);
    if (at < 0) return "unexpected " + name + ": " + in + " has no such child";
    // The children before this one (the last of parent->children is the element itself).
    const std::vector<std::string> before(parent->children.begin(), parent->children.end() - 1);
    const long count = std::count(before.begin(), before.end(), element.key);
    const Child& child = (*children)[static_cast<size_t>(at)];
    if (child.max >= 0 && count >= child.max)
      return "unexpected " + name + ": " + in + " takes at most " + std::to_string(child.max);
    long first_expected = LONG_MAX;
    for (const std::string& key : expected) {
      const long index = index_in(*children, key);
      if (index >= 0) first_expected = std::min(first_expected, index);
    }
    if (first_expected != LONG_MAX && first_expected < at) {
      std::vector<std::string> missing;
      for (long i = first_expected; i < at; ++i) {
        const Child& wanted = (*children)[static_cast<size_t>(i)];
        if (wanted.min > 0 && std::count(before.begin(), before.end(), wanted.element) < wanted.min)
          missing.push_back(wanted.element);
      }
      if (!missing.empty()) return "missing " + say.list(missing, " and ") + " before " + name;
    }
    // It belongs before a child that came already.
    for (const std::string& key : before) {
      const long index = index_in(*children, key);
      if (index > at) return "misplaced " + name + ": it belongs before " + say.shown(key);
    }
  }
  std::string text = "unexpected " + name + " in " + in;
  if (!expected.empty()) text += "; expected " + say.list(expected);
  return text;
}

// The children still wanted when the parent ended.
std::string missing_at_end(const Run& run, const Wording& say, const Frame& parent,
                           const std::vector<std::string>& expected) {
  const std::vector<Child>* children = parent.type.empty() ? nullptr : run.model->children_of(parent.type);
  std::vector<std::string> missing;
  if (children) {
    long first_expected = LONG_MAX;
    for (const std::string& key : expected) {
      const long index = index_in(*children, key);
      if (index >= 0) first_expected = std::min(first_expected, index);
    }
    for (long i = first_expected == LONG_MAX ? 0 : first_expected; i < static_cast<long>(children->size()); ++i) {
      const Child& wanted = (*children)[static_cast<size_t>(i)];
      if (wanted.min > 0 &&
          std::count(parent.children.begin(), parent.children.end(), wanted.element) < wanted.min)
        missing.push_back(wanted.element);
    }
  }
  if (missing.empty())
    return "missing " + (expected.size() > 1 ? "one of " + say.list(expected) : say.list(expected)) +
           (parent.children.empty() ? " in " : " at the end of ") + parent.shown;
  return "missing " + say.list(missing, " and ") + (parent.children.empty() ? " in " : " at the end of ") +
         parent.shown;
}

// The declared type of each element open, and of the one just ended, from the root down.
void find_types(Run& run) {
  const SchemaModel& model = *run.model;
  for (size_t i = 0; i < run.open.size(); ++i) {
    Frame& frame = run.open[i];
    if (i == 0) frame.type = model.element_type(frame.key);
    else if (!run.open[i - 1].type.empty()) frame.type = model.child_type(run.open[i - 1].type, frame.key);
  }
  if (run.ended) {
    if (run.open.empty()) run.ended->type = model.element_type(run.ended->key);
    else if (!run.open.back().type.empty()) run.ended->type = model.child_type(run.open.back().type, run.ended->key);
  }
}

void on_validity_error(void* context, xmlErrorPtr error) {
  Run& run = *static_cast<Run*>(context);
  if (!error || error->level < XML_ERR_ERROR) return;
  if (!run.model) run.model = &run.compiled->model();
  find_types(run);
  const Wording say(run);
  const std::string message = without_line_end(text_of(xml(error->message)));
  static const std::regex about(R"(^Element '([^']*)'(?:, attribute '([^']*)')?: ([\s\S]*)$)");
  std::smatch parts;
  Finding finding;
  finding.line = line_now(run);
  finding.column = column_now(run);
  if (!std::regex_match(message, parts, about)) {
    finding.message = say.with_prefixes(message);
    run.findings.push_back(std::move(finding));
    return;
  }
  const std::string key = parts[1].str();
  const std::string attribute = parts[2].str();
  const std::string body = parts[3].str();
  const Frame* frame = frame_of(run, key);
  const std::string name = frame ? frame->shown : say.shown(key);
  const std::string subject = attribute.empty() ? name : name + " attribute " + say.with_prefixes(attribute);
  // Findings about an element itself stand at its own line.
  const bool at_element = frame && !(run.in_end && is_ended(run, frame) && body.rfind("Missing child", 0) == 0);
  if (at_element) {
    finding.line = frame->line;
    finding.column = frame->column;
  }

  static const std::regex not_expected(R"(^This element is not expected\.(?: Expected is (?:one of )?\( (.*) \)\.?)?$)");
  static const std::regex missing_child(R"(^Missing child element\(s\)\. Expected is (?:one of )?\( (.*) \)\.?$)");
  static const std::regex bad_value(R"(^'([\s\S]*)' is not a valid value of the (?:local )?(?:atomic|list|union) type(?: '([^']*)')?\.?$)");
  static const std::regex facet(R"(^\[facet '(\w+)'\] The value '([\s\S]*?)' ([\s\S]*)$)");
  static const std::regex required_attribute(R"(^The attribute '([^']*)' is required but missing\.?$)");
  static const std::regex no_declaration(R"(^No matching global declaration available for the validation root\.?$)");
  static const std::regex not_allowed(R"(^The attribute '([^']*)' is not allowed\.?$)");
  static const std::regex text_in_elements(R"(^Character content other than whitespace is not allowed[\s\S]*$)");
  static const std::regex elements_in_value(R"(^Element content is not allowed, because the content type is a simple[\s\S]*$)");
  std::smatch said;
  if (std::regex_match(body, said, not_expected) && frame) {
    finding.message = unexpected(run, say, *frame, parent_of(run, frame), expected_keys(said[1].str()));
  } else if (std::regex_match(body, said, missing_child) && frame) {
    finding.message = missing_at_end(run, say, *frame, expected_keys(said[1].str()));
  } else if (std::regex_match(body, said, bad_value) || std::regex_match(body, said, facet)) {
    const bool is_facet = said.size() == 4;
    const std::string value = is_facet ? said[2].str() : said[1].str();
    if (!is_facet && attribute.empty() && frame && valid_once_collapsed(*run.model, *frame, value)) return;
    // libxml2 says a value is wrong twice when a facet fails: the first says why.
    if (!run.values_said.insert({frame ? frame->line : finding.line, subject + "\n" + value}).second) return;
    const std::string type = attribute.empty() ? say.value_type(frame, is_facet ? "" : said[2].str())
                                               : local_of(say.with_prefixes(is_facet ? "" : said[2].str()));
    finding.message = subject + ": " + quoted(value) + " is not a valid " + (type.empty() ? "value" : type);
    if (is_facet) {
      std::string why = said[3].str();
      if (said[1].str() == "enumeration") why = "not one of its codes";
      else if (said[1].str() == "pattern") why = "not of the form its pattern allows";
      else while (!why.empty() && why.back() == '.') why.pop_back();
      finding.message += " (" + say.with_prefixes(why) + ")";
    }
  } else if (std::regex_match(body, said, required_attribute)) {
    finding.message = name + ": attribute " + say.with_prefixes(said[1].str()) + " is missing";
  } else if (std::regex_match(body, said, no_declaration)) {
    finding.message = "the schema has no root element " + name;
    if (!namespace_of(key).empty()) finding.message += " in namespace " + namespace_of(key);
  } else if (std::regex_match(body, said, not_allowed)) {
    finding.message = name + ": attribute " + say.with_prefixes(said[1].str()) + " is not allowed";
  } else if (std::regex_match(body, said, text_in_elements)) {
    finding.message = name + ": text is not allowed here, only elements";
  } else if (std::regex_match(body, said, elements_in_value)) {
    const std::string type = say.value_type(frame, "");
    finding.message = name + ": elements are not allowed inside, only a " + (type == "value" ? "" : type + " ") + "value";
  } else {
    finding.message = subject + ": " + say.with_prefixes(body);
  }
  run.findings.push_back(std::move(finding));
}

}  // namespace

Report check(std::string_view document, const std::string& schema_path) {
  install_hooks_once();
  Report report;
  const std::shared_ptr<CompiledSchema> compiled = compiled_schema(schema_path);
  if (!compiled->schema) {
    report.outcome = Report::Outcome::schema_not_loaded;
    report.problem = compiled->problem;
    return report;
  }
  // Documents in other encodings than UTF-8 are left to the component, whose scan decodes them.
  if (!read_as_utf8(document) || markup_excess(document) != MarkupExcess::none ||
      document.size() > static_cast<size_t>(INT_MAX)) {
    report.outcome = Report::Outcome::document_refused;
    return report;
  }

  Run run;
  run.compiled = compiled.get();
  QuietLibrary quiet([](void*, xmlErrorPtr) {}, nullptr);
  xmlSchemaValidCtxtPtr validation = xmlSchemaNewValidCtxt(compiled->schema);
  xmlParserCtxtPtr parser =
      validation ? xmlCreateMemoryParserCtxt(document.data(), static_cast<int>(document.size())) : nullptr;
  if (!parser) {
    if (validation) xmlSchemaFreeValidCtxt(validation);
    throw std::bad_alloc();
  }
  xmlSchemaSetValidStructuredErrors(validation, on_validity_error, &run);
  // No network, no DTD, no entity substitution; no tree is built.
  xmlCtxtUseOptions(parser, XML_PARSE_NONET | XML_PARSE_HUGE);
  std::memset(parser->sax, 0, sizeof *parser->sax);
  parser->sax->initialized = XML_SAX2_MAGIC;
  parser->sax->startElementNs = on_start;
  parser->sax->endElementNs = on_end;
  parser->sax->characters = on_text;
  parser->sax->internalSubset = on_doctype;
  parser->sax->serror = on_parser_error;
  parser->userData = &run;
  run.parser = parser;

  Run* outer = current_run;
  current_run = &run;
  xmlSchemaSAXPlugPtr plug = xmlSchemaSAXPlug(validation, &parser->sax, &parser->userData);
  if (plug) {
    xmlParseDocument(parser);
    xmlSchemaSAXUnplug(plug);
  }
  current_run = outer;
  const bool well_formed = parser->wellFormed && parser->nsWellFormed;
  xmlFreeParserCtxt(parser);
  xmlSchemaFreeValidCtxt(validation);

  if (!plug || run.refused || !well_formed) {
    report.outcome = Report::Outcome::document_refused;
    return report;
  }
  report.findings = std::move(run.findings);
  return report;
}

}  // namespace Morvek::Tivalo::SchemaFindings
