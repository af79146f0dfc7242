#include "document/grammar_cache.h"
#include "document/grammar_image.h"

#include "document/file_identity.h"

#include "document/local_parser.h"
#include "document/xml_text.h"

#include <xercesc/dom/DOMError.hpp>
#include <xercesc/dom/DOMErrorHandler.hpp>
#include <xercesc/dom/DOMImplementation.hpp>
#include <xercesc/dom/DOMImplementationRegistry.hpp>
#include <xercesc/dom/DOMLSParser.hpp>
#include <xercesc/dom/DOMLSResourceResolver.hpp>
#include <xercesc/framework/LocalFileInputSource.hpp>
#include <xercesc/framework/Wrapper4InputSource.hpp>
#include <xercesc/framework/XMLGrammarPoolImpl.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLURL.hpp>
#include <xercesc/util/XMLUni.hpp>
#include <xercesc/validators/schema/ComplexTypeInfo.hpp>
#include <xercesc/validators/schema/SchemaGrammar.hpp>
#include <xsd/cxx/xml/dom/auto-ptr.hxx>
#include <xsd/cxx/xml/string.hxx>


#include <algorithm>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <optional>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Morvek::Tivalo::Documents {
namespace {

using xercesc::XMLUni;

// A file that is newer than this when its schema is loaded may still change within the same tick
// of the file system's clock, unseen by its modification time: its schema is not kept.
constexpr std::chrono::seconds settling_time{2};

bool unchanged(const std::vector<FileIdentity>& files) {
  return std::all_of(files.begin(), files.end(), [](const FileIdentity& file) {
    return Morvek::Tivalo::unchanged(file);
  });
}

std::string utf8(const XMLCh* text) { return xsd::cxx::xml::transcode<char>(text); }

// The local file the parser reads for `system_id` named from `base`, resolved the way the parser
// resolves it; empty when it is not a plain local file.
std::string local_file(const XmlText& system_id, const XmlText& base) {
  try {
    xercesc::XMLURL url;
    if (url.setURL(base.empty() ? nullptr : base.c_str(), system_id.c_str(), url) &&
        !url.isRelative()) {
      if (url.getProtocol() != xercesc::XMLURL::File) return {};
      std::string path = utf8(url.getPath());
      return path.find('%') == std::string::npos ? path : std::string();  // escapes: not worth it
    }
    if (base.empty()) return utf8(xercesc::LocalFileInputSource(system_id.c_str()).getSystemId());
    return utf8(xercesc::LocalFileInputSource(base.c_str(), system_id.c_str()).getSystemId());
  } catch (...) {
    return {};
  }
}

// Notes every further file a schema names (includes, imports, redefines) and leaves the decision
// to the parser's usual rule for resources.
class RecordingResolver final : public xercesc::DOMLSResourceResolver {
 public:
  xercesc::DOMLSInput* resolveResource(const XMLCh* type, const XMLCh* ns, const XMLCh* public_id,
                                       const XMLCh* system_id, const XMLCh* base_uri) override {
    requests.emplace_back(system_id ? system_id : xml_chars(u""), base_uri ? base_uri : xml_chars(u""));
    return local_resources_only().resolveResource(type, ns, public_id, system_id, base_uri);
  }
  std::vector<std::pair<XmlText, XmlText>> requests;
};

class DiagnosticCounter final : public xercesc::DOMErrorHandler {
 public:
  bool handleError(const xercesc::DOMError&) override {
    ++count;
    return true;
  }
  int count = 0;
};

// Grammars build some of their parts on first use. Building them all now, while one thread alone
// holds the grammars, leaves nothing for the parses that share them to write.
class Preparation {
 public:
  void grammars(xercesc::XMLGrammarPool& pool) {
    auto grammars = pool.getGrammarEnumerator();
    while (grammars.hasMoreElements()) {
      xercesc::Grammar& grammar = grammars.nextElement();
      if (grammar.getGrammarType() != xercesc::Grammar::SchemaGrammarType) continue;
      auto& schema = static_cast<xercesc::SchemaGrammar&>(grammar);
      if (auto* registry = schema.getComplexTypeRegistry()) {
        xercesc::RefHashTableOfEnumerator<xercesc::ComplexTypeInfo> types(registry, false);
        while (types.hasMoreElements()) type(&types.nextElement());
      }
      auto elements = schema.getElemEnumerator();
      while (elements.hasMoreElements()) type(elements.nextElement().getComplexTypeInfo());
    }
  }

 private:
  void type(xercesc::ComplexTypeInfo* info) {
    if (!info || !done_.insert(info).second) return;
    info->getContentModel();
    info->getFormattedContentModel();
    info->getAttDefList();
    for (XMLSize_t i = 0; i < info->elementCount(); ++i) {
      if (xercesc::SchemaElementDecl* element = info->elementAt(i))
        type(element->getComplexTypeInfo());
    }
    type(info->getBaseComplexTypeInfo());
  }

  std::unordered_set<const void*> done_;
};

struct Loaded {
  std::shared_ptr<xercesc::XMLGrammarPool> grammars;
  std::wstring target_namespace;
  std::vector<FileIdentity> files;
  bool keep = false;  // loaded cleanly from files that have settled
};

// The grammars from the library's image of the bundled schemas when the schema is one of them,
// else from its files.
Loaded load(const std::string& absolute_path, const std::wstring& location) {
  Loaded loaded;
  SchemaLoad schema;
  std::shared_ptr<xercesc::XMLGrammarPool> pool =
      grammars_from_image(absolute_path, location, schema);
  if (!pool) {
    pool = std::make_shared<ValidationGrammars>();
    schema = load_schema_into(*pool, absolute_path, location);
    if (!schema.clean) return loaded;
  }
  try {
    Preparation().grammars(*pool);
  } catch (...) {
    return loaded;
  }
  pool->lockPool();
  loaded.grammars = std::move(pool);
  loaded.target_namespace = std::move(schema.target_namespace);

  bool settled = true;
  for (const std::string& path : schema.files) {
    std::optional<FileIdentity> file = path.empty() ? std::nullopt : identity_of(path);
    if (!file || file->settling(settling_time)) settled = false;
    if (file) loaded.files.push_back(std::move(*file));
  }
  loaded.keep = settled;
  return loaded;
}

// A schema for another namespace than the document's makes the parse load it again and report
// the mismatch: that parse goes without the kept grammars, as it always did.
bool usable(const std::wstring& target_namespace, const std::wstring& document_namespace) {
  return target_namespace == document_namespace;
}

struct Entry {
  std::string path;
  std::wstring location;
  std::wstring target_namespace;
  std::vector<FileIdentity> files;
  std::shared_ptr<xercesc::XMLGrammarPool> grammars;
  std::uint64_t last_use = 0;
};

}  // namespace

// Loads the schema as a validating parse would, with the same rule for further resources.
SchemaLoad load_schema_into(xercesc::XMLGrammarPool& pool, const std::string& absolute_path,
                            const std::wstring& location) {
  SchemaLoad loaded;
  static const XMLCh load_store[] = {xercesc::chLatin_L, xercesc::chLatin_S, xercesc::chNull};
  xercesc::DOMImplementation* implementation =
      xercesc::DOMImplementationRegistry::getDOMImplementation(load_store);
  xsd::cxx::xml::dom::unique_ptr<xercesc::DOMLSParser> parser(implementation->createLSParser(
      xercesc::DOMImplementationLS::MODE_SYNCHRONOUS, nullptr,
      xercesc::XMLPlatformUtils::fgMemoryManager, &pool));
  RecordingResolver resolver;
  DiagnosticCounter diagnostics;
  xercesc::DOMConfiguration* config = parser->getDomConfig();
  config->setParameter(XMLUni::fgDOMNamespaces, true);
  config->setParameter(XMLUni::fgDOMValidate, true);
  config->setParameter(XMLUni::fgXercesSchema, true);
  config->setParameter(XMLUni::fgXercesSchemaFullChecking, false);
  config->setParameter(XMLUni::fgXercesHandleMultipleImports, true);
  config->setParameter(XMLUni::fgDOMResourceResolver,
                       static_cast<xercesc::DOMLSResourceResolver*>(&resolver));
  config->setParameter(XMLUni::fgDOMErrorHandler,
                       static_cast<xercesc::DOMErrorHandler*>(&diagnostics));

  // The parse names the schema by `location`: the grammar must carry the very same name to be
  // recognised as the one asked for.
  const xsd::cxx::xml::string system_id(location);
  try {
    xercesc::LocalFileInputSource file(system_id.c_str());
    file.setSystemId(system_id.c_str());
    xercesc::Wrapper4InputSource input(&file, false);
    xercesc::Grammar* grammar =
        parser->loadGrammar(&input, xercesc::Grammar::SchemaGrammarType, true);
    if (!grammar || diagnostics.count > 0) return loaded;
    loaded.target_namespace = xsd::cxx::xml::transcode<wchar_t>(grammar->getTargetNamespace());
  } catch (...) {
    return loaded;  // the parse that follows meets the same failure and reports it
  }
  loaded.clean = true;
  loaded.files.push_back(absolute_path);
  for (const auto& [requested, base] : resolver.requests)
    loaded.files.push_back(local_file(requested, base));
  return loaded;
}

ValidationGrammars::ValidationGrammars()
    : XMLGrammarPoolImpl(xercesc::XMLPlatformUtils::fgMemoryManager) {}

struct GrammarCache::State {
  mutable std::mutex lock;
  size_t capacity;
  std::uint64_t uses = 0;
  std::vector<Entry> entries;

  void trim() {
    while (entries.size() > capacity) {
      auto oldest = std::min_element(entries.begin(), entries.end(),
                                     [](const Entry& a, const Entry& b) {
                                       return a.last_use < b.last_use;
                                     });
      entries.erase(oldest);
    }
  }
};

GrammarCache::GrammarCache(size_t capacity) : state_(std::make_unique<State>()) {
  state_->capacity = capacity;
}

GrammarCache::~GrammarCache() = default;

std::shared_ptr<xercesc::XMLGrammarPool> GrammarCache::grammars(
    const std::string& schema_path, const std::wstring& location,
    const std::wstring& document_namespace) {
  std::error_code failed;
  const std::string absolute = std::filesystem::absolute(schema_path, failed).string();
  if (failed) return nullptr;

  std::vector<Entry> stale;  // released outside the lock
  {
    std::lock_guard<std::mutex> hold(state_->lock);
    if (state_->capacity == 0) return nullptr;
    auto& entries = state_->entries;
    auto found = std::find_if(entries.begin(), entries.end(), [&](const Entry& entry) {
      return entry.path == absolute && entry.location == location;
    });
    if (found != entries.end()) {
      if (unchanged(found->files)) {
        found->last_use = ++state_->uses;
        return usable(found->target_namespace, document_namespace) ? found->grammars : nullptr;
      }
      stale.push_back(std::move(*found));
      entries.erase(found);
    }
  }

  // Loading takes long: other threads go on meanwhile. Two threads that load the same schema at
  // once keep one of the two results.
  Loaded loaded = load(absolute, location);
  if (!loaded.grammars) return nullptr;
  auto answer = usable(loaded.target_namespace, document_namespace) ? loaded.grammars : nullptr;
  if (!loaded.keep) return answer;
  std::lock_guard<std::mutex> hold(state_->lock);
  auto& entries = state_->entries;
  auto same = std::find_if(entries.begin(), entries.end(), [&](const Entry& entry) {
    return entry.path == absolute && entry.location == location;
  });
  if (same != entries.end()) {
    stale.push_back(std::move(*same));
    entries.erase(same);
  }
  entries.push_back({absolute, location, loaded.target_namespace, std::move(loaded.files),
                     loaded.grammars, ++state_->uses});
  state_->trim();
  return answer;
}

void GrammarCache::set_capacity(size_t capacity) {
  std::lock_guard<std::mutex> hold(state_->lock);
  state_->capacity = capacity;
  state_->trim();
}

size_t GrammarCache::size() const {
  std::lock_guard<std::mutex> hold(state_->lock);
  return state_->entries.size();
}

GrammarCache& grammar_cache() {
  static GrammarCache cache(8);
  return cache;
}

}  // namespace Morvek::Tivalo::Documents
