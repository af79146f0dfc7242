// Registration against the in-memory registry: what DllRegisterServer writes, what
// DllUnregisterServer leaves, the per-user switch of DllInstall and its clean-up on failure. The
// registrar's script language is seen through the scripts it runs here.
#include "module/catalogue.h"
#include "module/entry_points.h"
#include "module/registry.h"
#include "tests/module/registry_testing.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

using Morvek::Tivalo::Registry::Store;
namespace TypeLibrary = Morvek::Tivalo::TypeLibrary;

const std::wstring app_id = L"{AEE0CF80-B399-48ac-B500-9F82BBC0F322}";
const std::wstring libid = L"{e56b93c0-b0eb-11df-8a48-005056c00008}";
const std::wstring invoice_clsid = L"{e56b9443-b0eb-11df-8a48-005056c00008}";

class Registration : public EmptyRegistry {
 protected:
  static std::wstring value(const std::wstring& key, const std::wstring& name = L"") {
    return registry().value(key, name).value_or(L"<none>");
  }
};

TEST_F(Registration, WritesApplicationIdentityClassesAndTypeLibrary) {
  ASSERT_EQ(S_OK, DllRegisterServer());

  EXPECT_EQ(L"TivaloCOM", value(L"HKCR\\AppID\\" + app_id));
  EXPECT_EQ(app_id, value(L"HKCR\\AppID\\TivaloCOM.DLL", L"AppID"));

  EXPECT_EQ(L"Invoice Class", value(L"HKCR\\TivaloCOM.Invoice.1"));
  EXPECT_EQ(invoice_clsid, value(L"HKCR\\TivaloCOM.Invoice.1\\CLSID"));
  EXPECT_EQ(L"Invoice Class", value(L"HKCR\\TivaloCOM.Invoice"));
  EXPECT_EQ(invoice_clsid, value(L"HKCR\\TivaloCOM.Invoice\\CLSID"));
  EXPECT_EQ(L"TivaloCOM.Invoice.1", value(L"HKCR\\TivaloCOM.Invoice\\CurVer"));

  std::wstring clsid = L"HKCR\\CLSID\\" + invoice_clsid;
  EXPECT_EQ(L"Invoice Class", value(clsid));
  EXPECT_EQ(L"TivaloCOM.Invoice.1", value(clsid + L"\\ProgID"));
  EXPECT_EQ(L"TivaloCOM.Invoice", value(clsid + L"\\VersionIndependentProgID"));
  EXPECT_TRUE(registry().key_exists(clsid + L"\\Programmable"));
  EXPECT_EQ(L"Apartment", value(clsid + L"\\InprocServer32", L"ThreadingModel"));
  EXPECT_EQ(libid, value(clsid + L"\\TypeLib"));

  // The module's own full path, as the library was loaded.
  std::wstring module = value(clsid + L"\\InprocServer32");
  EXPECT_EQ(L'/', module.front());
  EXPECT_NE(std::wstring::npos, module.find(L"libTivaloCOM.so")) << std::string(module.begin(), module.end());

  // The item class keeps its proper case in the ProgID.
  EXPECT_EQ(L"Item Class", value(L"HKCR\\TivaloCOM.Item.1"));

  std::wstring version = L"HKCR\\TypeLib\\" + libid + L"\\1.2";
  EXPECT_EQ(L"Morvek Tivalo 1.2.2 Type Library", value(version));
  EXPECT_EQ(module, value(version + L"\\0\\win32"));
  EXPECT_EQ(L"IInvoice", value(L"HKCR\\Interface\\{e56b9444-b0eb-11df-8a48-005056c00008}"));

  // Every class of the map is there.
  size_t registered = 0;
  for (const auto& key : registry().subkeys(L"HKCR\\CLSID")) registered += !key.empty();
  EXPECT_EQ(TypeLibrary::class_count(), registered);
}

TEST_F(Registration, UnregisteringKeepsTheSharedParentsOnly) {
  EXPECT_EQ(S_OK, DllUnregisterServer()) << "unregistering what is not there is no failure";
  registry().create_key(L"HKCR\\CLSID\\{00000000-1111-2222-3333-444444444444}");
  ASSERT_EQ(S_OK, DllRegisterServer());
  // Another program's key under one of the first class's ProgIDs: it stays, with the ProgID that
  // holds it, and the walk goes on through every other key.
  const std::wstring progid = L"HKCR\\TivaloCOM.ApplicationResponse.1";
  ASSERT_TRUE(registry().key_exists(progid + L"\\CLSID"));
  registry().create_key(progid + L"\\ShellNew");
  registry().set_value(progid + L"\\ShellNew", L"Command", L"other.exe");
  ASSERT_EQ(S_OK, DllUnregisterServer());
  EXPECT_EQ(L"other.exe", value(progid + L"\\ShellNew", L"Command"));
  EXPECT_FALSE(registry().key_exists(progid + L"\\CLSID"));
  std::vector<std::wstring> progids_left;
  for (const auto& key : registry().subkeys(L"HKCR"))
    if (key.rfind(L"TivaloCOM.", 0) == 0) progids_left.push_back(key);
  EXPECT_EQ(std::vector<std::wstring>{L"TivaloCOM.ApplicationResponse.1"}, progids_left);

  EXPECT_TRUE(registry().key_exists(L"HKCR\\CLSID"));
  EXPECT_TRUE(registry().key_exists(L"HKCR\\AppID"));
  EXPECT_TRUE(registry().key_exists(L"HKCR\\CLSID\\{00000000-1111-2222-3333-444444444444}"))
      << "another component's class stays";
  EXPECT_EQ(1u, registry().subkeys(L"HKCR\\CLSID").size());
  EXPECT_TRUE(registry().subkeys(L"HKCR\\AppID").empty());
  EXPECT_FALSE(registry().key_exists(L"HKCR\\TivaloCOM.Invoice"));
  EXPECT_FALSE(registry().key_exists(L"HKCR\\TivaloCOM.Invoice.1"));
  EXPECT_FALSE(registry().key_exists(L"HKCR\\TypeLib\\" + libid));
  EXPECT_TRUE(registry().subkeys(L"HKCR\\Interface").empty());
}

TEST_F(Registration, ForceRemoveReplacesWhatAnEarlierRegistrationLeft) {
  std::wstring stale = L"HKCR\\CLSID\\" + invoice_clsid + L"\\InprocServer32\\Stale";
  registry().create_key(stale);
  ASSERT_EQ(S_OK, DllRegisterServer());
  EXPECT_FALSE(registry().key_exists(stale));
}

TEST_F(Registration, InstallWithUsersRegistersForTheMachine) {
  ASSERT_EQ(S_OK, DllInstall(TRUE, L"users"));
  EXPECT_TRUE(registry().key_exists(L"HKCR\\TivaloCOM.Invoice"));
  EXPECT_FALSE(registry().key_exists(L"HKCU\\Software\\Classes\\TivaloCOM.Invoice"));
  ASSERT_EQ(S_OK, DllInstall(FALSE, nullptr));
  EXPECT_FALSE(registry().key_exists(L"HKCR\\TivaloCOM.Invoice"));
}

// The per-user switch lasts for the rest of the process, so it runs in a child of its own.
TEST_F(Registration, InstallWithUserRegistersPerUser) {
  EXPECT_EXIT(
      {
        bool ok = DllInstall(TRUE, L"User") == S_OK &&
                  !registry().key_exists(L"HKCR\\TivaloCOM.Invoice") &&
                  registry().key_exists(L"HKCU\\Software\\Classes\\TivaloCOM.Invoice.1") &&
                  registry().key_exists(L"HKCU\\Software\\Classes\\CLSID\\" + invoice_clsid) &&
                  registry().key_exists(L"HKCU\\Software\\Classes\\AppID\\" + app_id) &&
                  registry().key_exists(L"HKCU\\Software\\Classes\\TypeLib\\" + libid + L"\\1.2\\0\\win32");
        ok = ok && DllInstall(FALSE, nullptr) == S_OK &&
             !registry().key_exists(L"HKCU\\Software\\Classes\\TivaloCOM.Invoice.1") &&
             !registry().key_exists(L"HKCU\\Software\\Classes\\TypeLib\\" + libid);
        std::exit(ok ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

// A registry that refuses to write one key, passing everything else to the in-memory one.
class RefusingStore final : public Store {
 public:
  RefusingStore(Store& inner, std::wstring refused) : inner_(inner), refused_(std::move(refused)) {}
  HRESULT create_key(const std::wstring& path) override {
    return path == refused_ ? E_ACCESSDENIED : inner_.create_key(path);
  }
  bool key_exists(const std::wstring& path) const override { return inner_.key_exists(path); }
  HRESULT set_value(const std::wstring& path, const std::wstring& name,
                    const std::wstring& value) override {
    return inner_.set_value(path, name, value);
  }
  std::optional<std::wstring> value(const std::wstring& path,
                                    const std::wstring& name) const override {
    return inner_.value(path, name);
  }
  HRESULT delete_value(const std::wstring& path, const std::wstring& name) override {
    return inner_.delete_value(path, name);
  }
  HRESULT delete_key(const std::wstring& path) override { return inner_.delete_key(path); }
  HRESULT delete_tree(const std::wstring& path) override { return inner_.delete_tree(path); }
  std::vector<std::wstring> subkeys(const std::wstring& path) const override {
    return inner_.subkeys(path);
  }
  std::vector<std::wstring> value_names(const std::wstring& path) const override {
    return inner_.value_names(path);
  }

 private:
  Store& inner_;
  std::wstring refused_;
};

// Installs a registry that refuses one key for the life of the scope.
class RefusedKey {
 public:
  explicit RefusedKey(const wchar_t* key)
      : store_(registry(), key), previous_(Morvek::Tivalo::Registry::use_registry(&store_)) {}
  ~RefusedKey() { Morvek::Tivalo::Registry::use_registry(previous_); }

 private:
  RefusingStore store_;
  Store* previous_;
};

// A failed registration stops at the key that failed and leaves what it wrote; a failed install
// undoes it and reports the registration's failure.
TEST_F(Registration, AFailedRegistrationStopsThereAndAFailedInstallIsUndone) {
  {
    RefusedKey refused(L"HKCR\\TivaloCOM.Invoice.1");
    EXPECT_EQ(E_ACCESSDENIED, DllRegisterServer());
  }
  EXPECT_TRUE(registry().key_exists(L"HKCR\\TivaloCOM.Address"));
  EXPECT_FALSE(registry().key_exists(L"HKCR\\TivaloCOM.Invoice"));
  EXPECT_FALSE(registry().key_exists(L"HKCR\\TivaloCOM.Waybill")) << "stops at the first failure";
  EXPECT_FALSE(registry().key_exists(L"HKCR\\TypeLib\\" + libid));
  clear();
  {
    RefusedKey refused(L"HKCR\\TivaloCOM.Invoice.1");
    EXPECT_EQ(E_ACCESSDENIED, DllInstall(TRUE, nullptr));
  }
  EXPECT_FALSE(registry().key_exists(L"HKCR\\TivaloCOM.Address"));
  EXPECT_FALSE(registry().key_exists(L"HKCR\\CLSID\\" + invoice_clsid));
  EXPECT_TRUE(registry().subkeys(L"HKCR\\AppID").empty());
}

}  // namespace
