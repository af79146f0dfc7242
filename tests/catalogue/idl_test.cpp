// The type library's IDL text against the compiled catalogue: every interface and coclass, with
// its attributes, help strings, members, DISPIDs and parameters.
#include "catalogue_testing.h"

#include <cstdio>
#include <regex>
#include <sstream>

using namespace catalogue_testing;

namespace {

std::vector<std::string> idl_lines() {
  std::vector<std::string> lines;
  std::istringstream in(idl_text());
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::string uuid(const GUID& g) {
  char text[40];
  std::snprintf(text, sizeof text, "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                unsigned(g.Data1), g.Data2, g.Data3, g.Data4[0], g.Data4[1], g.Data4[2],
                g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
  return text;
}

std::string idl_type(const Param& p) {
  static const char* const names[] = {"BSTR", "DATE", "double", "VARIANT_BOOL", "long",
                                      "VARIANT"};
  std::string type = p.type == ParamType::Object
                         ? std::string(classes()[p.object_class].interface_name) + "*"
                         : names[static_cast<int>(p.type)];
  return p.retval ? type + "*" : type;
}

// The index of the line equal to text, searching from `from`; lines.size() when absent.
size_t find_line(const std::vector<std::string>& lines, const std::string& text, size_t from = 0) {
  while (from < lines.size() && lines[from] != text) ++from;
  return from;
}

class CatalogueIdl : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { lines_ = new std::vector<std::string>(idl_lines()); }
  static void TearDownTestSuite() { delete lines_; }
  static const std::vector<std::string>& lines() { return *lines_; }
  static inline std::vector<std::string>* lines_ = nullptr;
};

}  // namespace

TEST_F(CatalogueIdl, DeclaresTheLibrary) {
  size_t at = find_line(lines(), "library TivaloCOMLib");
  ASSERT_LT(at, lines().size());
  ASSERT_GE(at, 4u);
  EXPECT_EQ(lines()[at - 4], "\tuuid(" + uuid(library.libid) + "),");
  EXPECT_EQ(lines()[at - 3], "\tversion(1.2),");
  EXPECT_EQ(lines()[at - 2], "\thelpstring(\"Morvek Tivalo 1.2.2 Type Library\")");
  EXPECT_EQ(lines()[at + 2], "\timportlib(\"stdole2.tlb\");");
}

TEST_F(CatalogueIdl, EveryInterfaceWithItsAttributesAndMembers) {
  const std::regex member_line(R"(\t\[(propget, |propput, )?id\((\d+)\)\] HRESULT (\w+)\((.*)\);)");
  const std::regex param_text(R"(\[(in|out, retval)\] ([\w*]+) (\w+))");
  size_t interfaces = 0;
  for (const std::string& line : lines())
    interfaces += line.find(" : IDispatch") != std::string::npos;
  EXPECT_EQ(interfaces, class_count());

  for (size_t k = 0; k < class_count(); ++k) {
    const Class& c = classes()[k];
    size_t at = find_line(lines(), std::string("interface ") + c.interface_name + " : IDispatch");
    ASSERT_LT(at, lines().size()) << c.interface_name;
    ASSERT_GE(at, 9u);
    const std::vector<std::string> attributes(lines().begin() + at - 9, lines().begin() + at);
    EXPECT_EQ(attributes, (std::vector<std::string>{
                              "[", "\tobject,", "\tuuid(" + uuid(c.iid) + "),", "\tdual,",
                              "\tnonextensible,", "\toleautomation,",
                              "\thelpstring(\"" + std::string(c.interface_help) + "\"),",
                              "\tpointer_default(unique)", "]"}))
        << c.interface_name;
    ASSERT_EQ(lines()[at + 1], "{");
    for (int i = 0; i < c.member_count; ++i) {
      const Member& m = c.members[i];
      std::smatch parts;
      const std::string& line = lines()[at + 2 + i];
      ASSERT_TRUE(std::regex_match(line, parts, member_line)) << line;
      const char* kind = m.kind == MemberKind::PropGet   ? "propget, "
                         : m.kind == MemberKind::PropPut ? "propput, "
                                                         : "";
      EXPECT_EQ(parts[1].str(), kind) << line;
      EXPECT_EQ(parts[2].str(), std::to_string(m.dispid)) << line;
      EXPECT_EQ(parts[3].str(), m.name) << line;
      const std::string params = parts[4].str();
      auto p = std::sregex_iterator(params.begin(), params.end(), param_text);
      for (int n = 0; n < m.param_count; ++n, ++p) {
        ASSERT_NE(p, std::sregex_iterator()) << line;
        const Param& expected = m.params[n];
        EXPECT_EQ((*p)[1].str(), expected.retval ? "out, retval" : "in") << line;
        EXPECT_EQ((*p)[2].str(), idl_type(expected)) << line;
        EXPECT_EQ((*p)[3].str(), expected.name ? expected.name : "newVal") << line;
      }
      EXPECT_EQ(p, std::sregex_iterator()) << line;
    }
    EXPECT_EQ(lines()[at + 2 + c.member_count], "};") << c.interface_name;
  }
}

TEST_F(CatalogueIdl, EveryCoclassWithItsDefaultInterface) {
  size_t library_at = find_line(lines(), "library TivaloCOMLib");
  for (size_t k = 0; k < class_count(); ++k) {
    const Class& c = classes()[k];
    size_t at = find_line(lines(), std::string("\tcoclass ") + c.name, library_at);
    ASSERT_LT(at, lines().size()) << c.name;
    EXPECT_EQ(lines()[at - 3], "\t\tuuid(" + uuid(c.clsid) + "),");
    EXPECT_EQ(lines()[at - 2], "\t\thelpstring(\"" + std::string(c.class_help) + "\")");
    EXPECT_EQ(lines()[at + 2], std::string("\t\t[default] interface ") + c.interface_name + ";");
  }
  EXPECT_LT(find_line(lines(), "\tcoclass item"), lines().size());
  EXPECT_EQ(find_line(lines(), "\tcoclass Item"), lines().size());
}
