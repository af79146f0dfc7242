#include "document/grammar_image.h"

#include "document/xml_text.h"

#include <xercesc/framework/XMLGrammarPoolImpl.hpp>
#include <xercesc/framework/XMLSchemaDescription.hpp>
#include <xercesc/internal/BinMemOutputStream.hpp>
#include <xercesc/util/BinMemInputStream.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xsd/cxx/xml/string.hxx>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

namespace Morvek::Tivalo::Documents {
namespace {

constexpr std::string_view image_magic = "TivaloGrammars 1\n";

std::atomic<const char*> image_data{nullptr};
std::atomic<std::size_t> image_size{0};
std::atomic<std::size_t> taken{0};

// Tells files apart by content: eight bytes at a time, mixed after each word.
std::uint64_t content_hash(std::string_view bytes) {
  std::uint64_t hash = 0x9E3779B97F4A7C15ull ^ bytes.size();
  std::size_t at = 0;
  for (; at + 8 <= bytes.size(); at += 8) {
    std::uint64_t word;
    std::memcpy(&word, bytes.data() + at, 8);
    hash = (hash ^ word) * 0x100000001B3ull;
    hash ^= hash >> 29;
  }
  for (; at < bytes.size(); ++at) hash = (hash ^ std::uint8_t(bytes[at])) * 0x100000001B3ull;
  return hash;
}

std::optional<std::uint64_t> hash_of_file(const std::string& path) {
  std::error_code failed;
  const std::uintmax_t size = std::filesystem::file_size(std::filesystem::u8path(path), failed);
  std::ifstream in(std::filesystem::u8path(path), std::ios::binary);
  if (failed || !in) return std::nullopt;
  std::string bytes(size, '\0');
  if (!in.read(bytes.data(), std::streamsize(size)) || in.peek() != EOF) return std::nullopt;
  return content_hash(bytes);
}

std::string utf8(const XMLCh* text) {
  return xsd::cxx::xml::transcode<char>(text ? text : xml_chars(u""));
}

// One schema of the image: the files it is built from (the schema itself first) by their path
// from the schema's directory and their content, and the namespaces of its grammars (its own
// first).
struct ImageSchema {
  std::vector<std::pair<std::string, std::uint64_t>> files;
  std::vector<std::string> namespaces;
};

struct Image {
  std::vector<ImageSchema> schemas;
  std::string_view grammars;
};

// Reads the line at the front of `rest` and drops it from there.
std::string_view next_line(std::string_view& rest) {
  const std::size_t end = rest.find('\n');
  const std::string_view line = rest.substr(0, end);
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  return line;
}

bool take_number(std::string_view& line, std::uint64_t& value, int base = 10) {
  const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), value, base);
  if (error != std::errc()) return false;
  line.remove_prefix(std::size_t(end - line.data()));
  if (!line.empty() && line.front() == ' ') line.remove_prefix(1);
  return true;
}

bool take_word(std::string_view& line, std::string_view word) {
  if (line.substr(0, word.size()) != word) return false;
  line.remove_prefix(word.size());
  return true;
}

std::optional<Image> parse_image(std::string_view rest) {
  if (!take_word(rest, image_magic)) return std::nullopt;
  Image image;
  for (;;) {
    std::string_view line = next_line(rest);
    std::uint64_t files = 0, namespaces = 0, size = 0;
    if (take_word(line, "grammars ")) {
      if (!take_number(line, size) || size != rest.size()) return std::nullopt;
      image.grammars = rest;
      return image;
    }
    if (!take_word(line, "schema ") || !take_number(line, files) || !take_number(line, namespaces))
      return std::nullopt;
    ImageSchema& schema = image.schemas.emplace_back();
    for (std::uint64_t i = 0; i < files; ++i) {
      std::string_view file = next_line(rest);
      std::uint64_t hash = 0;
      if (!take_word(file, "file ") || !take_number(file, hash, 16)) return std::nullopt;
      schema.files.emplace_back(std::string(file), hash);
    }
    for (std::uint64_t i = 0; i < namespaces; ++i) {
      std::string_view name = next_line(rest);
      if (!take_word(name, "namespace ")) return std::nullopt;
      schema.namespaces.emplace_back(name);
    }
  }
}

// The files of `schema` as they lie beside `absolute_path` now, when every one of them still
// holds what the image was made from.
std::optional<std::vector<std::string>> matching_files(const ImageSchema& schema,
                                                       const std::string& absolute_path,
                                                       std::uint64_t schema_hash) {
  if (schema.files.empty() || schema.files.front().second != schema_hash) return std::nullopt;
  const std::filesystem::path directory = std::filesystem::u8path(absolute_path).parent_path();
  std::vector<std::string> files{absolute_path};
  for (std::size_t i = 1; i < schema.files.size(); ++i) {
    const std::string path =
        (directory / std::filesystem::u8path(schema.files[i].first)).lexically_normal().u8string();
    if (hash_of_file(path) != schema.files[i].second) return std::nullopt;
    files.push_back(path);
  }
  return files;
}

// The image's grammars less those of namespaces `keep` does not name.
std::shared_ptr<ValidationGrammars> grammars_of(std::string_view bytes,
                                                const std::vector<std::string>& keep) {
  auto pool = std::make_shared<ValidationGrammars>();
  xercesc::BinMemInputStream in(reinterpret_cast<const XMLByte*>(bytes.data()), bytes.size(),
                                xercesc::BinMemInputStream::BufOpt_Reference);
  pool->deserializeGrammars(&in);
  std::vector<XmlText> others;
  auto grammars = pool->getGrammarEnumerator();
  while (grammars.hasMoreElements()) {
    const XMLCh* name = grammars.nextElement().getTargetNamespace();
    if (std::find(keep.begin(), keep.end(), utf8(name)) == keep.end()) others.emplace_back(name);
  }
  for (const XmlText& name : others) delete pool->orphanGrammar(name.c_str());
  return pool;
}

std::vector<std::string> namespaces_of(xercesc::XMLGrammarPool& pool, const std::wstring& own) {
  std::vector<std::string> names{utf8(xsd::cxx::xml::string(own).c_str())};
  auto grammars = pool.getGrammarEnumerator();
  while (grammars.hasMoreElements()) {
    std::string name = utf8(grammars.nextElement().getTargetNamespace());
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  }
  return names;
}

}  // namespace

// The image is installed once, when the library loads, before any schema check; tests swap it
// between tests.
void use_grammar_image(std::string_view image) {
  image_data = nullptr;
  image_size = image.size();
  image_data = image.empty() ? nullptr : image.data();
}

std::size_t grammars_taken_from_image() { return taken; }

std::shared_ptr<xercesc::XMLGrammarPool> grammars_from_image(const std::string& absolute_path,
                                                             const std::wstring& location,
                                                             SchemaLoad& schema) {
  const char* data = image_data;
  if (!data) return nullptr;
  const std::optional<Image> image = parse_image({data, image_size});
  if (!image) return nullptr;
  const std::optional<std::uint64_t> hash = hash_of_file(absolute_path);
  if (!hash) return nullptr;
  for (const ImageSchema& candidate : image->schemas) {
    std::optional<std::vector<std::string>> files = matching_files(candidate, absolute_path, *hash);
    if (!files) continue;
    try {
      auto pool = grammars_of(image->grammars, candidate.namespaces);
      // The parse asks for the schema by its location: the grammar answers to it.
      const xsd::cxx::xml::string own(candidate.namespaces.front());
      const std::unique_ptr<xercesc::XMLSchemaDescription> wanted(
          pool->createSchemaDescription(own.c_str()));
      xercesc::Grammar* grammar = pool->retrieveGrammar(wanted.get());
      if (!grammar) return nullptr;
      static_cast<xercesc::XMLSchemaDescription*>(grammar->getGrammarDescription())
          ->setLocationHints(xsd::cxx::xml::string(location).c_str());
      schema.clean = true;
      schema.target_namespace = xsd::cxx::xml::transcode<wchar_t>(grammar->getTargetNamespace());
      schema.files = std::move(*files);
      ++taken;
      return pool;
    } catch (...) {
      return nullptr;  // an image this build of the parser cannot read: the files are loaded
    }
  }
  return nullptr;
}

std::string make_grammar_image(const std::vector<std::string>& schemas) {
  std::ostringstream manifest;
  manifest << image_magic;
  xercesc::XMLGrammarPoolImpl all(xercesc::XMLPlatformUtils::fgMemoryManager);
  for (const std::string& path : schemas) {
    const std::wstring location(path.begin(), path.end());
    xercesc::XMLGrammarPoolImpl own(xercesc::XMLPlatformUtils::fgMemoryManager);
    const SchemaLoad alone = load_schema_into(own, path, location);
    if (!alone.clean) continue;
    const std::filesystem::path directory = std::filesystem::u8path(path).parent_path();
    std::ostringstream files;
    bool local = true;
    std::vector<std::string> seen;
    for (const std::string& file : alone.files) {
      if (std::find(seen.begin(), seen.end(), file) != seen.end()) continue;
      seen.push_back(file);
      const std::optional<std::uint64_t> hash = file.empty() ? std::nullopt : hash_of_file(file);
      if (!hash) local = false;
      if (!hash) break;
      files << "file " << std::hex << *hash << std::dec << ' '
            << std::filesystem::u8path(file).lexically_relative(directory).u8string() << '\n';
    }
    if (!local || !load_schema_into(all, path, location).clean) continue;
    const std::vector<std::string> namespaces = namespaces_of(own, alone.target_namespace);
    manifest << "schema " << seen.size() << ' ' << namespaces.size() << '\n' << files.str();
    for (const std::string& name : namespaces) manifest << "namespace " << name << '\n';
  }
  xercesc::BinMemOutputStream out(1 << 22);
  all.serializeGrammars(&out);
  manifest << "grammars " << out.curPos() << '\n';
  manifest.write(reinterpret_cast<const char*>(out.getRawBuffer()),
                 std::streamsize(out.curPos()));
  return manifest.str();
}

}  // namespace Morvek::Tivalo::Documents
