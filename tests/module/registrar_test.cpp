// The registrar's script language; the generated scripts are run by the registration tests.
#include "module/registrar.h"
#include "module/registry.h"
#include "tests/module/registry_testing.h"

#include <gtest/gtest.h>

#include <string>

namespace {

namespace Registrar = Morvek::Tivalo::Registrar;
using Morvek::Tivalo::Registry::Store;

using Scripts = EmptyRegistry;

const wchar_t* const sample = LR"(
HKCR
{
  NoRemove Shared
  {
    ForceRemove 'Mine' = s 'Owned by %Name%'
    {
      val Path = s '%module%'
      Empty
    }
    Plain = s 'It''s %%100'
    {
      Inner = d '7'
    }
  }
}
)";

const Registrar::Replacements replacements = {{L"NAME", L"sample"}, {L"Module", L"/lib/x.so"}};

TEST_F(Scripts, RegisterWritesKeysValuesAndReplacementsWithoutRegardToCase) {
  ASSERT_EQ(S_OK, Registrar::run_script(sample, replacements, true, false));
  EXPECT_EQ(L"Owned by sample", registry().value(L"HKCR\\Shared\\Mine").value_or(L""));
  EXPECT_EQ(L"/lib/x.so", registry().value(L"HKCR\\Shared\\Mine", L"Path").value_or(L""));
  EXPECT_TRUE(registry().key_exists(L"HKCR\\Shared\\Mine\\Empty"));
  EXPECT_EQ(L"It's %100", registry().value(L"HKCR\\Shared\\Plain").value_or(L""));
  EXPECT_EQ(L"7", registry().value(L"HKCR\\shared\\plain\\INNER").value_or(L""));
}

TEST_F(Scripts, UnregisterKeepsNoRemoveKeysAndForeignSubkeys) {
  ASSERT_EQ(S_OK, Registrar::run_script(sample, replacements, true, false));
  registry().create_key(L"HKCR\\Shared\\Mine\\Foreign");
  registry().create_key(L"HKCR\\Shared\\Plain\\Foreign");
  registry().create_key(L"HKCR\\Shared\\Other");

  ASSERT_EQ(S_OK, Registrar::run_script(sample, replacements, false, false));
  EXPECT_TRUE(registry().key_exists(L"HKCR\\Shared")) << "NoRemove";
  EXPECT_TRUE(registry().key_exists(L"HKCR\\Shared\\Other"));
  EXPECT_FALSE(registry().key_exists(L"HKCR\\Shared\\Mine")) << "ForceRemove takes the subtree";
  EXPECT_TRUE(registry().key_exists(L"HKCR\\Shared\\Plain\\Foreign"));
  EXPECT_FALSE(registry().key_exists(L"HKCR\\Shared\\Plain\\Inner"));

  // Unregistering what is not there is no failure.
  EXPECT_EQ(S_OK, Registrar::run_script(sample, replacements, false, false));
}

TEST_F(Scripts, PerUserWritesClassesUnderTheUsersSoftwareClasses) {
  ASSERT_EQ(S_OK, Registrar::run_script(sample, replacements, true, true));
  EXPECT_FALSE(registry().key_exists(L"HKCR\\Shared"));
  EXPECT_TRUE(registry().key_exists(L"HKCU\\Software\\Classes\\Shared\\Mine"));
  ASSERT_EQ(S_OK, Registrar::run_script(L"HKLM { Machine = s 'x' }", {}, true, true));
  EXPECT_TRUE(registry().key_exists(L"HKLM\\Machine")) << "only HKCR is redirected";
}

TEST_F(Scripts, BadScriptsFailWithoutWriting) {
  for (const wchar_t* bad : {L"HKCR { Key = s 'unterminated }", L"HKCR { Key { }",
                             L"HKXX { Key }", L"HKCR { Key = q 'x' }", L"HKCR { = s 'x' }",
                             L"HKCR { Key = s '%UNKNOWN%' }", L"HKCR { Key = s '%open' }"}) {
    EXPECT_EQ(E_FAIL, Registrar::run_script(bad, replacements, true, false))
        << std::string(bad, bad + wcslen(bad));
  }
  EXPECT_TRUE(registry().subkeys(L"HKCR").empty());
}

}  // namespace
