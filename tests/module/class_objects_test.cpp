// Class objects as a host gets them: DllGetClassObject, the factories, the lock count, and the
// ProgID functions answered from the class map.
#include "module/catalogue.h"
#include "script_host.h"
#include "tivalo/interfaces.h"

#include <cstring>

namespace {

std::wstring progid_of(REFCLSID clsid) {
  LPOLESTR text = nullptr;
  EXPECT_EQ(S_OK, ProgIDFromCLSID(clsid, &text));
  std::wstring result = text ? text : L"";
  CoTaskMemFree(text);
  return result;
}

TEST(ClassObjects, UnknownClassesAndInterfacesLeaveANullPointer) {
  EXPECT_EQ(E_POINTER, DllGetClassObject(CLSID_Invoice, IID_IClassFactory, nullptr));
  const struct { const GUID& clsid; const GUID& iid; HRESULT expected; } cases[] = {
      {LIBID_TivaloCOMLib, IID_IClassFactory, CLASS_E_CLASSNOTAVAILABLE},
      {IID_IInvoice, IID_IClassFactory, CLASS_E_CLASSNOTAVAILABLE},
      {GUID_NULL, IID_IUnknown, CLASS_E_CLASSNOTAVAILABLE},
      {CLSID_Invoice, IID_IDispatch, E_NOINTERFACE}};  // a factory answers only its own
  for (const auto& c : cases) {
    void* out = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(c.expected, DllGetClassObject(c.clsid, c.iid, &out));
    EXPECT_EQ(nullptr, out);
  }
}
TEST(ClassObjects, EveryClassHasOneCachedFactory) {
  const auto* classes = Morvek::Tivalo::TypeLibrary::classes();
  for (size_t k = 0; k < Morvek::Tivalo::TypeLibrary::class_count(); ++k) {
    tivalo::ComPtr<IClassFactory> first, second;
    ASSERT_EQ(S_OK, DllGetClassObject(classes[k].clsid, IID_IClassFactory, first.put_void()))
        << classes[k].progid_name;
    ASSERT_EQ(S_OK, DllGetClassObject(classes[k].clsid, IID_IUnknown, second.put_void()));
    EXPECT_EQ(static_cast<IUnknown*>(first.get()), static_cast<IUnknown*>(second.get()));
  }
}

TEST(ClassObjects, FactoryCreatesTheClassAndAggregatesOnlyThroughIUnknown) {
  auto factory = script::factory_of(L"TivaloCOM.Address");
  ASSERT_TRUE(factory);
  tivalo::ComPtr<IAddress> address;
  EXPECT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IAddress, address.put_void()));
  EXPECT_TRUE(address);

  void* out = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(E_NOINTERFACE, factory->CreateInstance(nullptr, IID_IInvoice, &out));
  EXPECT_EQ(nullptr, out);
  EXPECT_EQ(CLASS_E_NOAGGREGATION, factory->CreateInstance(address.get(), IID_IDispatch, &out));
  tivalo::ComPtr<IUnknown> inner;
  EXPECT_EQ(S_OK, factory->CreateInstance(address.get(), IID_IUnknown, inner.put_void()));
  EXPECT_TRUE(inner);
}

TEST(ClassObjects, CanUnloadFollowsLiveObjectsFactoriesAndServerLocks) {
  ASSERT_EQ(S_OK, DllCanUnloadNow());
  IClassFactory* factory = nullptr;
  ASSERT_EQ(S_OK, DllGetClassObject(CLSID_Invoice, IID_IClassFactory,
                                    reinterpret_cast<void**>(&factory)));
  EXPECT_EQ(S_FALSE, DllCanUnloadNow()) << "a factory in a client's hands keeps the module";

  IUnknown* invoice = nullptr;
  ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(&invoice)));
  EXPECT_EQ(S_OK, factory->LockServer(TRUE));
  factory->Release();
  EXPECT_EQ(S_FALSE, DllCanUnloadNow());
  invoice->Release();
  EXPECT_EQ(S_FALSE, DllCanUnloadNow()) << "the server lock is still held";

  ASSERT_EQ(S_OK, DllGetClassObject(CLSID_Invoice, IID_IClassFactory,
                                    reinterpret_cast<void**>(&factory)));
  EXPECT_EQ(S_OK, factory->LockServer(FALSE));
  factory->Release();
  EXPECT_EQ(S_OK, DllCanUnloadNow());
}

TEST(ClassObjects, ChildrenCreatedByObjectsCountAsLiveObjects) {
  ASSERT_EQ(S_OK, DllCanUnloadNow());
  {
    auto invoice = script::create(L"TivaloCOM.Invoice");
    auto id = script::get_object(invoice.get(), L"ID");
    invoice = nullptr;
    EXPECT_EQ(S_FALSE, DllCanUnloadNow()) << "the identifier outlives its invoice";
  }
  EXPECT_EQ(S_OK, DllCanUnloadNow());
}

// Creation by either form of ProgID, without regard to case, is the Python host's test.
TEST(ProgIds, VersionedFormComesBackForEveryClass) {
  EXPECT_EQ(L"TivaloCOM.Invoice.1", progid_of(CLSID_Invoice));
  EXPECT_EQ(L"TivaloCOM.Item.1", progid_of(CLSID_Item));
  const auto* classes = Morvek::Tivalo::TypeLibrary::classes();
  for (size_t k = 0; k < Morvek::Tivalo::TypeLibrary::class_count(); ++k) {
    std::wstring progid = progid_of(classes[k].clsid);
    CLSID back;
    ASSERT_EQ(S_OK, CLSIDFromProgID(progid.c_str(), &back));
    EXPECT_EQ(classes[k].clsid, back);
  }
  CLSID clsid;
  EXPECT_EQ(CO_E_CLASSSTRING, CLSIDFromProgID(L"TivaloCOM.Invoice.2", &clsid));
  LPOLESTR text = reinterpret_cast<LPOLESTR>(0x1);
  EXPECT_EQ(REGDB_E_CLASSNOTREG, ProgIDFromCLSID(LIBID_TivaloCOMLib, &text));
  EXPECT_EQ(nullptr, text);
}

TEST(ProgIds, CoCreateInstanceTakesTheClientsPath) {
  tivalo::ComPtr<IInvoice> invoice;
  EXPECT_EQ(S_OK, CoCreateInstance(CLSID_Invoice, nullptr, CLSCTX_INPROC_SERVER, IID_IInvoice,
                                   invoice.put_void()));
  EXPECT_TRUE(invoice);
  void* out = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(REGDB_E_CLASSNOTREG,
            CoCreateInstance(LIBID_TivaloCOMLib, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &out));
  EXPECT_EQ(nullptr, out);
}

}  // namespace
