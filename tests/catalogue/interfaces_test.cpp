// The generated interface header as a C++ client sees it: each method sits in the virtual-table
// slot the catalogue gives it, with the published parameter types, and the GUID constants are
// the catalogue's.
#include "tivalo/interfaces.h"

#include "catalogue_testing.h"

#include <cstdint>
#include <cstring>
#include <type_traits>

using namespace catalogue_testing;

namespace {

// Virtual-table index of a virtual method. In the Itanium C++ ABI (g++ and clang on Linux) a
// pointer to a virtual member function holds one plus the method's byte offset in the table.
template <class Interface, class Function>
int vtable_slot(Function Interface::*method) {
  static_assert(sizeof(method) == 2 * sizeof(std::uintptr_t));
  std::uintptr_t raw[2];
  std::memcpy(raw, &method, sizeof(raw));
  EXPECT_EQ(raw[0] % sizeof(void*), 1u) << "not a virtual method";
  return static_cast<int>((raw[0] - 1) / sizeof(void*));
}

int catalogue_slot(const char* interface_name, const char* cpp_name) {
  const Member* m = method(interface_named(interface_name), cpp_name);
  return m ? m->slot : -1;
}

bool same(const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof(GUID)) == 0; }

}  // namespace

#define EXPECT_SLOT(Interface, Method) \
  EXPECT_EQ(vtable_slot(&Interface::Method), catalogue_slot(#Interface, #Method)) \
      << #Interface "::" #Method

TEST(CatalogueInterfaceHeader, DispatchOperationsComeFirst) {
  EXPECT_EQ(vtable_slot(&IAddress::QueryInterface), 0);
  EXPECT_EQ(vtable_slot(&IAddress::Release), 2);
  EXPECT_EQ(vtable_slot(&IAddress::Invoke), 6);
}

// The families and the members that break their rule: first, last and irregular ones.
TEST(CatalogueInterfaceHeader, MethodsSitInTheirCatalogueSlots) {
  EXPECT_SLOT(IAddress, get_ID);
  EXPECT_SLOT(IInvoice, get_IsUBLVersionIDSet);
  EXPECT_SLOT(IInvoice, get_UBLExtensions);
  EXPECT_SLOT(IInvoice, clearInvoiceLines);
  EXPECT_SLOT(IInvoice, get_InvoiceLineCount);
  EXPECT_SLOT(IInvoice, put_XML);
  EXPECT_SLOT(IInvoice, get_XML);
  EXPECT_SLOT(IFreightInvoice, get_CustomizationID);
  EXPECT_SLOT(ISelfBilledInvoice, GetValueValidationErrorsFromXML);
  EXPECT_SLOT(ICreditNoteLine, put_item);
  EXPECT_SLOT(IBillingReference, clearBillingRevesrenceLine);
  EXPECT_SLOT(ICardAccount, get_IsCV2IDSet);
  EXPECT_SLOT(IAmount, put_Value);
  EXPECT_SLOT(IBinaryObject, get_Value);
  // The types a client compiles against where the catalogue cannot say them.
  static_assert(std::is_same_v<decltype(&IInvoiceLine::getDelivery),
                               HRESULT (IInvoiceLine::*)(LONG, IDelivery**)>);
  static_assert(std::is_same_v<decltype(&IInvoice::put_CopyIndicator),
                               HRESULT (IInvoice::*)(VARIANT_BOOL)>);
  static_assert(std::is_same_v<decltype(&IBinaryObject::put_Value),
                               HRESULT (IBinaryObject::*)(VARIANT)>);
  static_assert(sizeof(LONG) == 4, "list indices and counts are 32-bit");
}

TEST(CatalogueInterfaceHeader, GuidConstantsAreTheCatalogues) {
  EXPECT_TRUE(same(LIBID_TivaloCOMLib, library.libid));
  EXPECT_TRUE(same(CLSID_Address, interface_named("IAddress").clsid));
  EXPECT_TRUE(same(IID_IAddress, interface_named("IAddress").iid));
  EXPECT_TRUE(same(CLSID_Item, interface_named("IItem").clsid));
  EXPECT_TRUE(same(CLSID_Waybill, interface_named("IWaybill").clsid));
  EXPECT_TRUE(same(IID_IWaybill, interface_named("IWaybill").iid));
  EXPECT_EQ(&tivalo::iid_of<IInvoice>(), &IID_IInvoice);
  EXPECT_EQ(&tivalo::iid_of<IItem>(), &IID_IItem);
}
