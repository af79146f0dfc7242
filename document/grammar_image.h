// The grammars of the bundled UBL schemas, compiled when the library is built. Loading the schemas
// from their text costs tens of milliseconds per process; reading them back from the image costs a
// few. The image is used only for a schema whose file, and every file it includes or imports,
// holds byte for byte what the image was made from, so it changes no result.
#pragma once

#include "document/grammar_cache.h"

#include <xercesc/framework/XMLGrammarPool.hpp>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Morvek::Tivalo::Documents {

// Makes `image` (what make_grammar_image wrote) the one schemas are looked up in; an empty view
// takes it away. The bytes must outlive every use.
void use_grammar_image(std::string_view image);

// The grammars of the schema file `absolute_path`, to be given to the parser as `location`, from
// the image, with what loading it from its files would have found in `schema`; null when the image
// does not hold that schema as it now is.
std::shared_ptr<xercesc::XMLGrammarPool> grammars_from_image(const std::string& absolute_path,
                                                             const std::wstring& location,
                                                             SchemaLoad& schema);

// How many grammar sets the process has taken from the image.
std::size_t grammars_taken_from_image();

// An image of the schema files `schemas` (absolute paths): each is loaded on its own to learn
// the files and namespaces it takes, then all of them into one set of grammars. Schemas that do
// not load cleanly are left out.
std::string make_grammar_image(const std::vector<std::string>& schemas);

}  // namespace Morvek::Tivalo::Documents
