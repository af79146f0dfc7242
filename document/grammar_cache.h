// Schema grammars kept from one validation to the next: the one place where the component keeps
// state between calls. Loading the UBL schemas costs tens of milliseconds, validating against them
// well under one, so each schema is loaded once and then shared read-only by every parse.
#pragma once

#include <xercesc/framework/XMLGrammarPoolImpl.hpp>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace Morvek::Tivalo::Documents {

// Grammars are kept per schema (its absolute path and the location the parser is given) together
// with the identity (path, size, modification time) of every file they were built from; a change
// to any of those files loads the schema afresh. Only a schema that loads without a single
// diagnostic is kept: any other is loaded by each parse itself, which reports its problems as
// before. At most `capacity` schemas are kept, the least recently used going first. Safe for use
// from several threads at once; the grammars handed out are locked (read-only).
//
// Grammars live in the XML parser platform's memory: the process-wide cache is made on first use,
// after the module started the platform, and is therefore destroyed before the module stops it.
class GrammarCache {
 public:
  explicit GrammarCache(size_t capacity);
  ~GrammarCache();
  GrammarCache(const GrammarCache&) = delete;
  GrammarCache& operator=(const GrammarCache&) = delete;

  // The grammars of the schema file `schema_path` given to the parser as `location` for a
  // document in `document_namespace`, or null when it does not load cleanly or is not a schema of
  // that namespace (then the parse must load it itself).
  std::shared_ptr<xercesc::XMLGrammarPool> grammars(const std::string& schema_path,
                                                    const std::wstring& location,
                                                    const std::wstring& document_namespace);

  // Changing the capacity drops what no longer fits; 0 keeps nothing.
  void set_capacity(size_t capacity);
  size_t size() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Grammars kept for validation. Locking a pool builds the schema component model from all its
// grammars, which only post-validation infoset users read and no parse of ours asks for: a fifth
// of a process's first validation, skipped.
class ValidationGrammars final : public xercesc::XMLGrammarPoolImpl {
 public:
  ValidationGrammars();

 private:
  void createXSModel() override {}
};

// What loading a schema found: whether it loaded without a single diagnostic, its target
// namespace, and every file it was built from (the schema first; an empty name for a resource
// that is no plain local file).
struct SchemaLoad {
  bool clean = false;
  std::wstring target_namespace;
  std::vector<std::string> files;
};

// Loads the schema file `absolute_path`, given to the parser as `location`, into `pool` as a
// validating parse would, with the same rule for further resources.
SchemaLoad load_schema_into(xercesc::XMLGrammarPool& pool, const std::string& absolute_path,
                            const std::wstring& location);

// The cache every schema check of the process shares.
GrammarCache& grammar_cache();

}  // namespace Morvek::Tivalo::Documents
