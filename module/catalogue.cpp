// Lookups over the generated class table.
#include "module/catalogue.h"

#include <cstring>

namespace Morvek::Tivalo::TypeLibrary {

extern const Class generated_classes[];
extern const size_t generated_class_count;

namespace {

bool same_name(std::string_view a, const char* b) {
  size_t i = 0;
  for (; i < a.size() && b[i] != '\0'; ++i) {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return i == a.size() && b[i] == '\0';
}

bool same_tail(const GUID& a, const GUID& b) {
  return a.Data2 == b.Data2 && a.Data3 == b.Data3 &&
         std::memcmp(a.Data4, b.Data4, sizeof(a.Data4)) == 0;
}

// Class k's CLSID is the LIBID with the first field raised by 1 + 2k and its IID by 2 + 2k, so
// the first field names the one candidate; the stored GUID confirms it.
const Class* candidate(const GUID& guid, uint32_t first_offset) {
  if (!same_tail(guid, library.libid)) return nullptr;
  uint32_t offset = uint32_t(guid.Data1) - uint32_t(library.libid.Data1);
  if (offset < first_offset || (offset - first_offset) % 2 != 0) return nullptr;
  size_t k = (offset - first_offset) / 2;
  return k < generated_class_count ? &generated_classes[k] : nullptr;
}

}  // namespace

const Class* classes() { return generated_classes; }

size_t class_count() { return generated_class_count; }

const Class* find_class_by_name(std::string_view name) {
  // 154 short names: a scan costs less than building an index for the few callers.
  for (size_t k = 0; k < generated_class_count; ++k) {
    const Class& c = generated_classes[k];
    if (same_name(name, c.name) || same_name(name, c.progid_name)) return &c;
  }
  return nullptr;
}

const Class* find_class_by_clsid(const GUID& clsid) {
  const Class* c = candidate(clsid, 1);
  return c && IsEqualGUID(c->clsid, clsid) ? c : nullptr;
}

const Class* find_class_by_iid(const GUID& iid) {
  const Class* c = candidate(iid, 2);
  return c && IsEqualGUID(c->iid, iid) ? c : nullptr;
}

}  // namespace Morvek::Tivalo::TypeLibrary
