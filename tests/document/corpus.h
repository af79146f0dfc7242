// The documents every reader and validator is held to, in groups (one ctest test each): the
// samples, the hostile corpus, the fuzz seeds, and the documents generated from the schemas for each
// document class with their variants (FILE.xml, FILE.<variant>.xml; make_stream_documents.py).
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace corpus {

namespace fs = std::filesystem;

inline std::vector<std::string> groups(const fs::path& generated) {
  std::vector<std::string> names = {"samples", "hostile", "fuzz"};
  for (const auto& entry : fs::directory_iterator(generated)) {
    const std::string stem = entry.path().stem().string();
    if (stem.find('.') == std::string::npos) names.push_back(stem);
  }
  std::sort(names.begin() + 3, names.end());
  return names;
}

inline std::vector<fs::path> files_of(const std::string& group, const fs::path& source,
                                      const fs::path& generated) {
  fs::path directory = generated;
  if (group == "samples") directory = source / "samples";
  if (group == "hostile") directory = source / "tests" / "hostile";
  if (group == "fuzz") directory = source / "tests" / "fuzz" / "corpus";
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(directory)) {
    const std::string stem = entry.path().stem().string();
    if (entry.path().extension() != ".xml") continue;
    if (directory == generated && stem != group && stem.rfind(group + ".", 0) != 0) continue;
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace corpus
