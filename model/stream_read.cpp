#include "model/stream_read.h"

namespace Morvek::Tivalo::StreamRead {

// Each reads the text as the binding does (binding/values.*), failing on the same texts.

DATE date_from_text(const std::wstring& text) {
  const xml_schema::date date(text, nullptr);
  return date_value(date.year(), date.month(), date.day());
}

DATE time_from_text(const std::wstring& text) {
  const xml_schema::time time(text, nullptr);
  return time_value(time.hours(), time.minutes(), time.seconds());
}

VARIANT_BOOL indicator_from_text(const std::wstring& text) {
  return tree::traits<bool, wchar_t, tree::schema_type::other>::create(text, nullptr, 0, nullptr)
             ? VARIANT_TRUE
             : VARIANT_FALSE;
}

double decimal_from_text(const std::wstring& text) {
  return tree::traits<double, wchar_t, tree::schema_type::decimal>::create(text, nullptr, 0,
                                                                           nullptr);
}

double double_from_text(const std::wstring& text) {
  return tree::traits<double, wchar_t, tree::schema_type::double_>::create(text, nullptr, 0,
                                                                           nullptr);
}

void bytes_from_text(BytesContent& content, const std::wstring& text) {
  const xml_schema::base64_binary bytes(text, nullptr);
  content.assign(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

}  // namespace Morvek::Tivalo::StreamRead
