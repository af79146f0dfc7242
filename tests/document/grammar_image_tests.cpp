// The library's image of the bundled schemas' grammars stands in for their files only while the
// files hold what it was made from. The whole test program validates with the image installed, so
// the cache tests beside it compare the image's results with the files' on every document class.
#include "document/grammar_cache.h"
#include "document/grammar_image.h"
#include "document_testing.h"

#include <filesystem>
#include <fstream>
#include <iterator>

using namespace document_testing;
using Morvek::Tivalo::Documents::grammar_cache;
using Morvek::Tivalo::Documents::grammars_taken_from_image;

namespace {

class InstalledImage : public ::testing::Environment {
 public:
  void SetUp() override {
    std::ifstream in(TIVALO_GRAMMAR_IMAGE, std::ios::binary);
    image_.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    ASSERT_FALSE(image_.empty());
    Morvek::Tivalo::Documents::use_grammar_image(image_);
  }
  void TearDown() override { Morvek::Tivalo::Documents::use_grammar_image({}); }

 private:
  std::string image_;
};

[[maybe_unused]] ::testing::Environment* const installed =
    ::testing::AddGlobalTestEnvironment(new InstalledImage);

std::wstring check_invoice(const std::wstring& schema) {
  ComPtr<IInvoice> invoice = create<IInvoice>(CLSID_Invoice);
  Bstr errors;
  EXPECT_EQ(S_OK, invoice->GetSchemaValidationErrorsFromXML(
                      Bstr(string_of_bytes(valid_invoice())).get(), Bstr(schema).get(),
                      errors.put()));
  return errors.get() ? errors.get() : L"";
}

class GrammarImage : public TempDirectory {
 protected:
  void SetUp() override {
    TempDirectory::SetUp();
    std::filesystem::copy(TIVALO_SCHEMA_DIR, std::filesystem::path(path("xsd")),
                          std::filesystem::copy_options::recursive);
    grammar_cache().set_capacity(0);  // empties the cache
    grammar_cache().set_capacity(8);
  }
  void TearDown() override {
    grammar_cache().set_capacity(8);
    TempDirectory::TearDown();
  }
  std::wstring copied_invoice_schema() const {
    return path("xsd/maindoc/UBL-Invoice-2.0.xsd");
  }
};

TEST_F(GrammarImage, TheBundledSchemasAndAnyByteForByteCopyComeFromTheImage) {
  const std::size_t before = grammars_taken_from_image();
  const std::wstring expected = check_invoice(schema_of(L"Invoice"));
  EXPECT_EQ(before + 1, grammars_taken_from_image());
  EXPECT_EQ(expected, check_invoice(copied_invoice_schema()));
  EXPECT_EQ(before + 2, grammars_taken_from_image());
}

TEST_F(GrammarImage, AnEditedImportedFileIsLoadedFromTheFiles) {
  const std::filesystem::path common(path("xsd/common/UBL-CommonBasicComponents-2.0.xsd"));
  std::ofstream(common, std::ios::app) << "<!-- edited -->\n";
  const std::size_t before = grammars_taken_from_image();
  const std::wstring from_files = check_invoice(copied_invoice_schema());
  EXPECT_EQ(before, grammars_taken_from_image());
  EXPECT_EQ(check_invoice(schema_of(L"Invoice")), from_files);

  // An edit that changes the grammar changes the result: the files were read, not the image.
  std::ifstream in(common, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  const std::string declaration = "<xsd:element name=\"ID\" type=\"IDType\"/>";
  ASSERT_NE(std::string::npos, text.find(declaration));
  text.replace(text.find(declaration), declaration.size(),
               "<xsd:element name=\"ID\" type=\"xsd:boolean\"/>");
  std::ofstream(common, std::ios::binary | std::ios::trunc) << text;
  grammar_cache().set_capacity(0);
  grammar_cache().set_capacity(8);
  EXPECT_NE(from_files, check_invoice(copied_invoice_schema()));
}

}  // namespace
