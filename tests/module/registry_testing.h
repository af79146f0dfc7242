// Tests of registration start and end with an empty in-memory registry.
#pragma once

#include "module/registry.h"

#include <gtest/gtest.h>

#include <string>

inline Morvek::Tivalo::Registry::Store& registry() {
  return Morvek::Tivalo::Registry::registry();
}

class EmptyRegistry : public ::testing::Test {
 protected:
  void SetUp() override { clear(); }
  void TearDown() override { clear(); }

  static void clear() {
    for (const wchar_t* root : {L"HKCR", L"HKCU", L"HKLM"}) {
      for (const auto& key : registry().subkeys(root))
        registry().delete_tree(std::wstring(root) + L"\\" + key);
    }
  }
};
